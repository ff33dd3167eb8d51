// Wall-clock dates: the window of the log that a run reads and the period
// that its statistics print. Microsecond resolution is what the log store
// records.
#pragma once

#include <chrono>

namespace lumvane {

using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

inline Date DateNow() {
  return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
}

inline Date DateByAddingSeconds(Date d, double seconds) {
  return d + std::chrono::microseconds(static_cast<long long>(seconds * 1e6));
}

}  // namespace lumvane

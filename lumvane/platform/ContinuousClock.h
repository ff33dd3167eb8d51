// A tick counter that keeps counting while the machine sleeps, with the
// timebase that turns ticks into nanoseconds (numerator / denominator). The
// run measures its duration with it and the throttle its quanta.
#pragma once

#include <cstdint>

namespace lumvane {

struct Timebase {
  uint32_t numerator = 1;
  uint32_t denominator = 1;
};

class ContinuousClock {
 public:
  virtual ~ContinuousClock() = default;
  // Thread-safe.
  virtual uint64_t now() const = 0;
  virtual Timebase timebase() const = 0;
};

// CLOCK_BOOTTIME in nanoseconds, timebase 1/1. Process-wide, never destroyed.
ContinuousClock& DefaultContinuousClock();

}  // namespace lumvane

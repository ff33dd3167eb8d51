// Puts the calling thread to sleep for a number of microseconds. The throttle
// sleeps through it, so that tests can record the sleeps instead of taking
// them.
#pragma once

#include <cstdint>

namespace lumvane {

class Sleeper {
 public:
  virtual ~Sleeper() = default;
  virtual void sleepMicroseconds(uint32_t microseconds) = 0;
};

// Real sleep (nanosleep, resumed after signals). Process-wide.
Sleeper& DefaultSleeper();

}  // namespace lumvane

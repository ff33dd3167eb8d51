// Puts the calling thread to sleep for a number of microseconds. The throttle
// sleeps through it, so that tests can record the sleeps instead of taking
// them.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "lumvane/platform/ContinuousClock.h"

namespace lumvane {

class Sleeper {
 public:
  virtual ~Sleeper() = default;
  virtual void sleepMicroseconds(uint32_t microseconds) = 0;
};

// Real sleep (nanosleep, resumed after signals). Process-wide.
Sleeper& DefaultSleeper();

// Test double: records each sleep and, when given a fake clock, moves it
// forward by the time slept (clock ticks are nanoseconds at timebase 1/1).
class RecordingSleeper final : public Sleeper {
 public:
  explicit RecordingSleeper(FakeContinuousClock* clock = nullptr) : clock_(clock) {}

  void sleepMicroseconds(uint32_t microseconds) override {
    {
      std::lock_guard<std::mutex> lock(mu_);
      sleeps_.push_back(microseconds);
    }
    if (clock_) clock_->advance(uint64_t{microseconds} * 1000);
  }

  std::vector<uint32_t> sleeps() const {
    std::lock_guard<std::mutex> lock(mu_);
    return sleeps_;
  }

 private:
  FakeContinuousClock* const clock_;
  mutable std::mutex mu_;
  std::vector<uint32_t> sleeps_;
};

}  // namespace lumvane

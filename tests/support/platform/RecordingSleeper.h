// Test double for the sleeper: records each sleep instead of taking it and,
// when given a fake clock, moves that clock forward by the time slept (clock
// ticks are nanoseconds at timebase 1/1). Thread-safe.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "lumvane/platform/Sleeper.h"
#include "tests/support/platform/FakeContinuousClock.h"

namespace lumvane {

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

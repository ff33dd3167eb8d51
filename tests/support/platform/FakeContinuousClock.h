// Test double for the continuous clock: time stands still until a test moves
// it. Thread-safe.
#pragma once

#include <atomic>
#include <cstdint>

#include "lumvane/platform/ContinuousClock.h"

namespace lumvane {

class FakeContinuousClock final : public ContinuousClock {
 public:
  explicit FakeContinuousClock(uint64_t start = 1'000'000'000, Timebase timebase = {})
      : ticks_(start), timebase_(timebase) {}

  uint64_t now() const override { return ticks_.load(); }
  Timebase timebase() const override { return timebase_; }

  void set(uint64_t ticks) { ticks_.store(ticks); }
  void advance(uint64_t ticks) { ticks_.fetch_add(ticks); }

 private:
  std::atomic<uint64_t> ticks_;
  const Timebase timebase_;
};

}  // namespace lumvane

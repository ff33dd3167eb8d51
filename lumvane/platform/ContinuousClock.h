// A tick counter that keeps counting while the machine sleeps, with the
// timebase that turns ticks into nanoseconds (numerator / denominator). The
// run measures its duration with it and the throttle its quanta.
#pragma once

#include <atomic>
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

// Test double: time stands still until a test moves it.
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

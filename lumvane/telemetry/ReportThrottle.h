// Holds the producer of telemetry events to at most 10 events per quantum of
// 125000 microseconds. Every 10th call measures the quantum that just ended
// and, when it was shorter than the budget, sleeps the rest of it away on the
// calling thread. Nothing carries over from one quantum to the next.
//
// Thread-safety: throttleReportedEvent() is called by one producer at a time
// (the extractor's callback thread during a run, the reporting queue for the
// end-of-run counts; the two never overlap). The counters may be read from
// any thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "lumvane/platform/ContinuousClock.h"
#include "lumvane/platform/Sleeper.h"

namespace lumvane {

class ReportThrottle final {
 public:
  static constexpr uint32_t kEventsPerQuantum = 10;
  static constexpr float kBudgetMicroseconds = 125000.0f;

  // Starts the first quantum at the clock's current reading and writes the
  // creation line. `clock` and `sleeper` must outlive the throttle.
  ReportThrottle(ContinuousClock& clock, Sleeper& sleeper);
  ReportThrottle(const ReportThrottle&) = delete;
  ReportThrottle& operator=(const ReportThrottle&) = delete;

  // The process-wide throttle on the real clock and sleeper, made on first
  // use (once, whichever thread comes first) and kept for the process.
  static ReportThrottle& shared();

  // Called once before each event is handed over; may sleep.
  void throttleReportedEvent();

  // How many times the throttle slept, and for how long in total.
  uint64_t throttleCount() const { return throttleCount_.load(std::memory_order_relaxed); }
  uint64_t totalSleptMicroseconds() const {
    return totalSlept_.load(std::memory_order_relaxed);
  }

 private:
  ContinuousClock& clock_;
  Sleeper& sleeper_;
  const double microsecondsPerTick_;
  uint64_t eventsInQuantum_ = 0;
  uint64_t quantumStart_;
  std::atomic<uint64_t> throttleCount_{0};
  std::atomic<uint64_t> totalSlept_{0};
};

// ReportThrottle::shared().throttleReportedEvent().
void throttleReportedEvent();

}  // namespace lumvane

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
#include <mutex>

#include "lumvane/platform/ContinuousClock.h"
#include "lumvane/platform/Sleeper.h"

namespace lumvane {

class ReportThrottle final {
 public:
  static constexpr uint32_t kEventsPerQuantum = 10;
  static constexpr float kBudgetMicroseconds = 125000.0f;

  // Reads nothing and writes nothing: the throttle comes into being on the
  // first call of throttleReportedEvent(), which reads the timebase, writes
  // the creation line and starts the first quantum at that moment. So a run
  // that never reports creates nothing, and the first quantum is measured
  // from the first event, not from whenever the process or run began.
  // `clock` and `sleeper` must outlive the throttle.
  ReportThrottle(ContinuousClock& clock, Sleeper& sleeper);
  ReportThrottle(const ReportThrottle&) = delete;
  ReportThrottle& operator=(const ReportThrottle&) = delete;

  // The process-wide throttle on the real clock and sleeper, kept for the
  // process.
  static ReportThrottle& shared();

  // Called once before each event is handed over; may sleep.
  void throttleReportedEvent();

  // How many times the throttle slept, and for how long in total.
  uint64_t throttleCount() const { return throttleCount_.load(std::memory_order_relaxed); }
  uint64_t totalSleptMicroseconds() const {
    return totalSlept_.load(std::memory_order_relaxed);
  }

 private:
  // Once per throttle, under created_, from the first call.
  void create();

  ContinuousClock& clock_;
  Sleeper& sleeper_;
  std::once_flag created_;
  double microsecondsPerTick_ = 0;
  uint64_t eventsInQuantum_ = 0;
  uint64_t quantumStart_ = 0;
  std::atomic<uint64_t> throttleCount_{0};
  std::atomic<uint64_t> totalSlept_{0};
};

// ReportThrottle::shared().throttleReportedEvent().
void throttleReportedEvent();

}  // namespace lumvane

#include "lumvane/telemetry/ReportThrottle.h"

#include "lumvane/filter/LVLog.h"
#include "lumvane/platform/NoDestructor.h"

namespace lumvane {
namespace {

// A timebase with a zero denominator is taken as 1/1 (nanosecond ticks).
double MicrosecondsPerTick(const Timebase& timebase) {
  if (timebase.denominator == 0) return 1.0 / 1000.0;
  return static_cast<double>(timebase.numerator) / static_cast<double>(timebase.denominator) /
         1000.0;
}

}  // namespace

ReportThrottle::ReportThrottle(ContinuousClock& clock, Sleeper& sleeper)
    : clock_(clock), sleeper_(sleeper) {}

void ReportThrottle::create() {
  microsecondsPerTick_ = MicrosecondsPerTick(clock_.timebase());
  LVLogDebug("%f us, %f clock ticks per quantum of %u reported events",
             static_cast<double>(kBudgetMicroseconds), kBudgetMicroseconds / microsecondsPerTick_,
             kEventsPerQuantum);
  quantumStart_ = clock_.now();
}

ReportThrottle& ReportThrottle::shared() {
  static NoDestructor<ReportThrottle> throttle(DefaultContinuousClock(), DefaultSleeper());
  return *throttle;
}

void ReportThrottle::throttleReportedEvent() {
  std::call_once(created_, [this] { create(); });
  if (++eventsInQuantum_ < kEventsPerQuantum) return;
  const uint64_t ticks = clock_.now() - quantumStart_;
  const double elapsed = microsecondsPerTick_ * static_cast<double>(ticks);
  if (elapsed < static_cast<double>(kBudgetMicroseconds)) {
    const auto sleepTime = static_cast<uint32_t>(static_cast<double>(kBudgetMicroseconds) - elapsed);
    LVLogDebug("Sleeping for %u us", sleepTime);
    sleeper_.sleepMicroseconds(sleepTime);
    totalSlept_.fetch_add(sleepTime, std::memory_order_relaxed);
    throttleCount_.fetch_add(1, std::memory_order_relaxed);
  }
  eventsInQuantum_ = 0;
  quantumStart_ = clock_.now();
}

void throttleReportedEvent() { ReportThrottle::shared().throttleReportedEvent(); }

}  // namespace lumvane

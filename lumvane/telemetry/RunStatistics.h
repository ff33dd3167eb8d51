// The end-of-run report: per aggregation of the object filter a header line
// and one line per (subsystem, category) in descending count order, a count
// event for the five largest pairs of each, one statistics event for the
// run, the summary line that begins "Done processing", and how often the
// throttle slept.
//
// Runs on the reporting queue after every send of the run has been carried
// out, so the object filter, the extractor and the throttle are only read
// here, never changed concurrently.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "lumvane/filter/LumvaneAggregation.h"
#include "lumvane/filter/LumvaneObjectFilter.h"
#include "lumvane/platform/ContinuousClock.h"
#include "lumvane/platform/Date.h"
#include "lumvane/signpost/VantrelObjectExtractor.h"
#include "lumvane/telemetry/ReportThrottle.h"

namespace lumvane {

// What a reporting run hands to its report.
struct RunStatisticsInput {
  std::shared_ptr<const LumvaneObjectFilter> objectFilter;
  uint64_t runStart = 0;  // continuous-clock ticks when processing began
  std::shared_ptr<const VantrelObjectExtractor> extractor;
  Date periodStart{};
  Date periodEnd{};
  // Set by the deferral poll on another thread; only ever goes to true.
  std::shared_ptr<const std::atomic<bool>> wasInterrupted;
};

class RunStatisticsReporter final {
 public:
  using DateFormatter = std::function<std::string(Date)>;

  // The reporter reads `clock` for the run's duration (its timebase gives
  // the seconds per tick), calls `throttle` before each count event and
  // formats the period with `formatDate`. All three must outlive it.
  RunStatisticsReporter(ContinuousClock& clock, ReportThrottle& throttle, DateFormatter formatDate);

  // Not reentrant: one report at a time (the reporting queue is serial).
  void reportRunStatistics(const RunStatisticsInput& input);

  // The per-key step of the dump: a throttle step for every key, a count
  // event for the first five keys of the aggregation, a log line for each.
  void reportAggregationCounts(const std::shared_ptr<const LumvaneAggregationKey>& key,
                               const LumvaneAggregation& aggregation, const char* classification);

 private:
  ContinuousClock& clock_;
  ReportThrottle& throttle_;
  const DateFormatter formatDate_;
  const double secondsPerTick_;
  uint64_t keysHandled_ = 0;  // keys of the current aggregation so far
};

// The process-wide report: the boot-time clock, the shared throttle and the
// current locale's date format.
void reportRunStatistics(const RunStatisticsInput& input);

}  // namespace lumvane

#include "lumvane/telemetry/RunStatistics.h"

#include "lumvane/filter/LVLog.h"
#include "lumvane/platform/DovetelEventSink.h"
#include "lumvane/platform/LocalizedDateFormatter.h"
#include "lumvane/platform/NoDestructor.h"

namespace lumvane {
namespace {

constexpr const char* kCountsEventName = "com.orvel.performance.signpost_counts";
constexpr const char* kStatsEventName = "com.orvel.performance.signpost_reporting_stats";
constexpr uint64_t kCountEventsPerAggregation = 5;

struct DumpedAggregation {
  const LumvaneAggregation& (LumvaneObjectFilter::*aggregation)() const;
  const char* header;
  const char* classification;
};

// The aggregations dumped, in the order they are dumped.
constexpr DumpedAggregation kDumped[] = {
    {&LumvaneObjectFilter::allInspectedSignpostObjectsAggregation,
     "**************\nTotal signpost object count: %llu", "AllInspected"},
    {&LumvaneObjectFilter::telemetryReportedAggregation,
     "**************\nReported signpost object count: %llu", "Reported"},
    {&LumvaneObjectFilter::telemetryReportedEventsAggregation,
     "**************\nReported signpost event count: %llu", "ReportedEvents"},
    {&LumvaneObjectFilter::telemetryNotReportedFailedSCFilterAggregation,
     "**************\nSubsystem/category filtered signpost object count: %llu",
     "SubsystemCategoryFiltered"},
    {&LumvaneObjectFilter::telemetryNotReportedDurationThresholdAggregation,
     "**************\nDuration filtered signpost object count: %llu", "DurationThresholdFiltered"},
    {&LumvaneObjectFilter::telemetryNotReportedFailedStringWhitelistAggregation,
     "**************\nString whitelist filtered signpost object count: %llu",
     "StringWhitelistFiltered"},
};

double secondsPerTickOf(const ContinuousClock& clock) {
  Timebase tb = clock.timebase();
  if (tb.denominator == 0) tb = Timebase{};  // as the throttle does: a broken timebase is 1/1
  return static_cast<double>(tb.numerator) * 1e-9 / static_cast<double>(tb.denominator);
}

bool debugEnabled() { return LVLog().isEnabled(LogLevel::Debug); }

}  // namespace

RunStatisticsReporter::RunStatisticsReporter(ContinuousClock& clock, ReportThrottle& throttle,
                                             DateFormatter formatDate)
    : clock_(clock),
      throttle_(throttle),
      formatDate_(std::move(formatDate)),
      secondsPerTick_(secondsPerTickOf(clock)) {}

void RunStatisticsReporter::reportRunStatistics(const RunStatisticsInput& input) {
  const LumvaneObjectFilter& filter = *input.objectFilter;
  for (const DumpedAggregation& dumped : kDumped) {
    const LumvaneAggregation& aggregation = (filter.*dumped.aggregation)();
    if (debugEnabled()) LVLogDebug(dumped.header, aggregation.totalCount());
    keysHandled_ = 0;
    for (const auto& key : aggregation.keysInDescendingCountOrder()) {
      reportAggregationCounts(key, aggregation, dumped.classification);
    }
  }

  // The duration covers the count events too: it is read after the last.
  const uint64_t elapsedTicks = clock_.now() - input.runStart;
  const float duration = static_cast<float>(secondsPerTick_ * static_cast<double>(elapsedTicks));
  const uint64_t logEvents = input.extractor ? input.extractor->processedEventCount() : 0;
  const bool interrupted = input.wasInterrupted && input.wasInterrupted->load();

  Dictionary stats;
  stats.set("ProcessingDurationInSeconds", Number::fromFloat(duration));
  stats.set("LogObjectsProcessed", Number::fromUInt64(logEvents));
  stats.set("AnimationsReported", Number::fromUInt64(filter.totalReportedAnimationCount()));
  stats.set("IntervalsReported", Number::fromUInt64(filter.totalReportedIntervalCount()));
  stats.set("EventsReported", Number::fromUInt64(filter.totalReportedEventCount()));
  stats.set("AnimationsNotReported", Number::fromUInt64(filter.totalUnreportedAnimationCount()));
  stats.set("IntervalsNotReported", Number::fromUInt64(filter.totalUnreportedIntervalCount()));
  stats.set("EventsNotReported", Number::fromUInt64(filter.totalUnreportedEventCount()));
  stats.set("WasInterrupted", Number::fromBool(interrupted));
  // Already on the reporting queue: send directly.
  DovetelSendEvent(kStatsEventName, stats);

  if (debugEnabled()) {
    LVLogDebug(
        "Done processing %llu reported and %llu unreported events, %llu reported and %llu "
        "unreported intervals and %llu reported and %llu unreported animations (%llu "
        "blacklisted, %llu too short, %llu whitelisted, %llu telemetry not enabled) from %llu "
        "log events in %.2fs between %@ and %@%s\n",
        filter.totalReportedEventCount(), filter.totalUnreportedEventCount(),
        filter.totalReportedIntervalCount(), filter.totalUnreportedIntervalCount(),
        filter.totalReportedAnimationCount(), filter.totalUnreportedAnimationCount(),
        filter.telemetryNotReportedFailedSCFilterAggregation().totalCount(),
        filter.telemetryNotReportedDurationThresholdAggregation().totalCount(),
        filter.telemetryNotReportedFailedStringWhitelistAggregation().totalCount(),
        filter.telemetryDisabledAggregation().totalCount(), logEvents,
        static_cast<double>(duration), formatDate_(input.periodStart),
        formatDate_(input.periodEnd), interrupted ? " (Interrupted by deferral)" : "");
    if (throttle_.throttleCount() != 0) {
      LVLogDebug("Throttled %llu times for a total of %llu usec", throttle_.throttleCount(),
                 throttle_.totalSleptMicroseconds());
    }
  }
}

void RunStatisticsReporter::reportAggregationCounts(
    const std::shared_ptr<const LumvaneAggregationKey>& key, const LumvaneAggregation& aggregation,
    const char* classification) {
  // Every key costs a throttle step, whether or not an event follows.
  throttle_.throttleReportedEvent();
  const auto& counts = aggregation.aggregationDictionary();
  auto found = counts.find(key);
  const uint64_t count = found == counts.end() ? 0 : found->second;
  if (keysHandled_ < kCountEventsPerAggregation) {
    // A key without subsystem or category leaves that key out of its event.
    Dictionary payload;
    payload.set("Subsystem", key->subsystem());
    payload.set("Category", key->category());
    payload.set("Count", Number::fromUInt64(count));
    payload.set("Classification", classification);
    DovetelSendEvent(kCountsEventName, payload);
    if (debugEnabled()) {
      LVLogDebug("%@:\t%llu (Count reported to Dovetel)", key->description(), count);
    }
  } else if (debugEnabled()) {
    LVLogDebug("%@:\t%llu (Count not reported)", key->description(), count);
  }
  ++keysHandled_;
}

void reportRunStatistics(const RunStatisticsInput& input) {
  // Built once per process (the seconds per tick with it); the reporting
  // queue runs one report at a time.
  static NoDestructor<RunStatisticsReporter> reporter(DefaultContinuousClock(),
                                                      ReportThrottle::shared(),
                                                      [](Date d) { return LVLocalizedDateString(d); });
  reporter->reportRunStatistics(input);
}

}  // namespace lumvane

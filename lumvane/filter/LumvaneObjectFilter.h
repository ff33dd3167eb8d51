// Gives every signpost object of a run its verdict and keeps the run's
// statistics. The tests run in a fixed order and the first that fails decides:
// the class can build a payload, telemetry is enabled, the duration is not
// negative, the string arguments pass the platform's whitelist, and the
// subsystem/category/name filter (when the platform has one) lets it through.
// Only objects that pass the first four reach the name filter, so only they
// consume its caps and downsample ratios.
//
// One filter per run. Not thread-safe: the per-object calls come from the
// extractor's callbacks one at a time, and the statistics are read only after
// processing has ended.
#pragma once

#include <cstdint>
#include <memory>

#include "lumvane/SubsystemCategoryFilter/LVSubsystemCategoryNameFilter.h"
#include "lumvane/filter/LVPlatform.h"
#include "lumvane/filter/LumvaneAggregation.h"
#include "lumvane/signpost/SignpostObject.h"

namespace lumvane {

enum SignpostClassification : uint32_t {
  SignpostClassificationTelemetryDisabled = 0,
  SignpostClassificationReported = 1,
  SignpostClassificationFailedStringWhitelist = 2,
  SignpostClassificationDurationThreshold = 3,
  SignpostClassificationFailedSCFilter = 4,
  SignpostClassificationClassNotSupported = 5,
};

class LumvaneObjectFilter final {
  struct PassKey {
    explicit PassKey() = default;
  };

 public:
  // Empty statistics, platform 0, no name filter.
  static std::shared_ptr<LumvaneObjectFilter> _init();
  // A filter for LVCurrentPlatform() with that platform's built-in name filter.
  static std::shared_ptr<LumvaneObjectFilter> init();
  // A filter for `platform`, or null for 0 and for values above 5 (which name
  // no platform and have no string whitelist).
  static std::shared_ptr<LumvaneObjectFilter> initWithPlatform(LVPlatform platform);

  // The verdict for one object, counted in the statistics. `classificationOut`
  // may be null. True exactly for SignpostClassificationReported.
  bool shouldReportSignpostObject(const SignpostObject& object,
                                  SignpostClassification* classificationOut);

  // Counts the object under `classification`: in the all-inspected
  // aggregation, in the classification's aggregation (none for a value above
  // 5), and in one class counter. Called by shouldReportSignpostObject.
  void incrementTotalForObject(const SignpostObject& object,
                               SignpostClassification classification);

  // The string whitelist test for this filter's platform.
  bool _objectPassesStringFilter(const SignpostObject& object) const;

  LVPlatform platform() const { return platform_; }

  const LumvaneAggregation& allInspectedSignpostObjectsAggregation() const {
    return allInspectedSignpostObjectsAggregation_;
  }
  const LumvaneAggregation& telemetryReportedEventsAggregation() const {
    return telemetryReportedEventsAggregation_;
  }
  const LumvaneAggregation& telemetryReportedAggregation() const {
    return telemetryReportedAggregation_;
  }
  const LumvaneAggregation& telemetryDisabledAggregation() const {
    return telemetryDisabledAggregation_;
  }
  const LumvaneAggregation& telemetryNotReportedFailedStringWhitelistAggregation() const {
    return telemetryNotReportedFailedStringWhitelistAggregation_;
  }
  const LumvaneAggregation& telemetryNotReportedFailedSCFilterAggregation() const {
    return telemetryNotReportedFailedSCFilterAggregation_;
  }
  const LumvaneAggregation& telemetryNotReportedDurationThresholdAggregation() const {
    return telemetryNotReportedDurationThresholdAggregation_;
  }
  const LumvaneAggregation& telemetryNotReportedClassNotSupportedAggregation() const {
    return telemetryNotReportedClassNotSupportedAggregation_;
  }

  // Shared with the built-in table: its downsampling state outlives the run.
  const std::shared_ptr<LVSubsystemCategoryNameFilter>& scnFilter() const { return scnFilter_; }
  void setScnFilter(std::shared_ptr<LVSubsystemCategoryNameFilter> scnFilter) {
    scnFilter_ = std::move(scnFilter);
  }

  uint64_t totalUnreportedIntervalCount() const { return totalUnreportedIntervalCount_; }
  uint64_t totalReportedIntervalCount() const { return totalReportedIntervalCount_; }
  uint64_t totalUnreportedAnimationCount() const { return totalUnreportedAnimationCount_; }
  uint64_t totalReportedAnimationCount() const { return totalReportedAnimationCount_; }
  uint64_t totalUnreportedEventCount() const { return totalUnreportedEventCount_; }
  uint64_t totalReportedEventCount() const { return totalReportedEventCount_; }

  // Only the factories can name PassKey.
  explicit LumvaneObjectFilter(PassKey) {}
  LumvaneObjectFilter(const LumvaneObjectFilter&) = delete;
  LumvaneObjectFilter& operator=(const LumvaneObjectFilter&) = delete;

 private:
  SignpostClassification classify(const SignpostObject& object) const;
  // Only test 6 may change the name filter's state, hence non-const.
  bool passesNameFilter(const SignpostObject& object);

  LVPlatform platform_ = LVPlatformUnknown;
  LumvaneAggregation allInspectedSignpostObjectsAggregation_;
  LumvaneAggregation telemetryReportedEventsAggregation_;
  LumvaneAggregation telemetryReportedAggregation_;
  LumvaneAggregation telemetryDisabledAggregation_;
  LumvaneAggregation telemetryNotReportedFailedStringWhitelistAggregation_;
  LumvaneAggregation telemetryNotReportedFailedSCFilterAggregation_;
  LumvaneAggregation telemetryNotReportedDurationThresholdAggregation_;
  LumvaneAggregation telemetryNotReportedClassNotSupportedAggregation_;
  std::shared_ptr<LVSubsystemCategoryNameFilter> scnFilter_;
  uint64_t totalUnreportedIntervalCount_ = 0;
  uint64_t totalReportedIntervalCount_ = 0;
  uint64_t totalUnreportedAnimationCount_ = 0;
  uint64_t totalReportedAnimationCount_ = 0;
  uint64_t totalUnreportedEventCount_ = 0;
  uint64_t totalReportedEventCount_ = 0;
};

}  // namespace lumvane

#include "lumvane/filter/LumvaneObjectFilter.h"

#include "lumvane/SubsystemCategoryFilter/LVBuiltInFilter.h"
#include "lumvane/filter/LVStringWhitelist.h"
#include "lumvane/signpost/SignpostAnimationInterval.h"
#include "lumvane/signpost/SignpostEvent.h"
#include "lumvane/signpost/SignpostInterval.h"

namespace lumvane {

std::shared_ptr<LumvaneObjectFilter> LumvaneObjectFilter::_init() {
  return std::make_shared<LumvaneObjectFilter>(PassKey());
}

std::shared_ptr<LumvaneObjectFilter> LumvaneObjectFilter::init() {
  auto filter = _init();
  filter->platform_ = LVCurrentPlatform();
  filter->scnFilter_ = LVBuiltInFilterForPlatform(filter->platform_);
  return filter;
}

std::shared_ptr<LumvaneObjectFilter> LumvaneObjectFilter::initWithPlatform(LVPlatform platform) {
  if (platform == LVPlatformUnknown || platform > LVPlatformElmos) return nullptr;
  auto filter = _init();
  filter->platform_ = platform;
  filter->scnFilter_ = LVBuiltInFilterForPlatform(platform);
  return filter;
}

bool LumvaneObjectFilter::_objectPassesStringFilter(const SignpostObject& object) const {
  return LVObjectPassesStringFilter(object, platform_);
}

bool LumvaneObjectFilter::passesNameFilter(const SignpostObject& object) {
  return !scnFilter_ || scnFilter_->shouldReportObject(object);
}

SignpostClassification LumvaneObjectFilter::classify(const SignpostObject& object) const {
  if (!object.canGenerateDovetelPayload()) return SignpostClassificationClassNotSupported;
  if (!object.telemetryEnabled()) return SignpostClassificationTelemetryDisabled;
  // An ordered comparison: a duration that is not a number passes.
  if (object.durationSeconds() < 0.0f) return SignpostClassificationDurationThreshold;
  if (!_objectPassesStringFilter(object)) return SignpostClassificationFailedStringWhitelist;
  return SignpostClassificationReported;
}

bool LumvaneObjectFilter::shouldReportSignpostObject(const SignpostObject& object,
                                                     SignpostClassification* classificationOut) {
  SignpostClassification classification = classify(object);
  // The name filter is asked last: asking advances its downsampling state.
  if (classification == SignpostClassificationReported && !passesNameFilter(object)) {
    classification = SignpostClassificationFailedSCFilter;
  }
  if (classificationOut != nullptr) *classificationOut = classification;
  incrementTotalForObject(object, classification);
  return classification == SignpostClassificationReported;
}

void LumvaneObjectFilter::incrementTotalForObject(const SignpostObject& object,
                                                  SignpostClassification classification) {
  const auto& subsystem = object.subsystem();
  const auto& category = object.category();
  allInspectedSignpostObjectsAggregation_.incrementSubsystem(subsystem, category);
  switch (classification) {
    case SignpostClassificationTelemetryDisabled:
      telemetryDisabledAggregation_.incrementSubsystem(subsystem, category);
      break;
    case SignpostClassificationReported:
      telemetryReportedAggregation_.incrementSubsystem(subsystem, category);
      break;
    case SignpostClassificationFailedStringWhitelist:
      telemetryNotReportedFailedStringWhitelistAggregation_.incrementSubsystem(subsystem, category);
      break;
    case SignpostClassificationDurationThreshold:
      telemetryNotReportedDurationThresholdAggregation_.incrementSubsystem(subsystem, category);
      break;
    case SignpostClassificationFailedSCFilter:
      telemetryNotReportedFailedSCFilterAggregation_.incrementSubsystem(subsystem, category);
      break;
    case SignpostClassificationClassNotSupported:
      telemetryNotReportedClassNotSupportedAggregation_.incrementSubsystem(subsystem, category);
      break;
  }

  const bool reported = classification == SignpostClassificationReported;
  // An animation interval is also an interval, so it is tested for first.
  if (dynamic_cast<const SignpostAnimationInterval*>(&object) != nullptr) {
    (reported ? totalReportedAnimationCount_ : totalUnreportedAnimationCount_) += 1;
  } else if (dynamic_cast<const SignpostInterval*>(&object) != nullptr) {
    (reported ? totalReportedIntervalCount_ : totalUnreportedIntervalCount_) += 1;
  } else if (dynamic_cast<const SignpostEvent*>(&object) != nullptr) {
    if (reported) {
      totalReportedEventCount_ += 1;
      telemetryReportedEventsAggregation_.incrementSubsystem(subsystem, category);
    } else {
      totalUnreportedEventCount_ += 1;
    }
  }
}

}  // namespace lumvane

// Walks a signpost log store over a time window and hands every completed
// interval, completed animation interval and emitted event to a callback.
//
// Calling rules that users rely on:
//  - Callbacks are called only from inside processLogArchiveWithPath, one at
//    a time, and all have returned before it returns. A callback may block.
//  - stopProcessing may be called from any thread, at any time (also before
//    or after processing) and any number of times; it asks a processing that
//    is under way to end at the next record.
//  - processedEventCount is read after processing has returned.
//  - Delivered objects never change afterwards; receivers may keep them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "lumvane/platform/Date.h"
#include "lumvane/platform/Error.h"
#include "lumvane/signpost/SignpostAnimationInterval.h"
#include "lumvane/signpost/SignpostEvent.h"
#include "lumvane/signpost/SignpostInterval.h"

namespace lumvane {

class VantrelObjectExtractor {
 public:
  using IntervalCompletionBlock = std::function<bool(std::shared_ptr<const SignpostInterval>)>;
  using AnimationIntervalCompletionBlock =
      std::function<bool(std::shared_ptr<const SignpostAnimationInterval>)>;
  using EmitEventBlock = std::function<bool(std::shared_ptr<const SignpostEvent>)>;

  virtual ~VantrelObjectExtractor() = default;

  virtual void setIntervalCompletionProcessingBlock(IntervalCompletionBlock block) = 0;
  virtual void setAnimationIntervalCompletionProcessingBlock(
      AnimationIntervalCompletionBlock block) = 0;
  virtual void setEmitEventProcessingBlock(EmitEventBlock block) = 0;
  virtual void setBuildAnimationCompositeIntervalTimelines(bool build) = 0;

  // Processes the records of [startDate, endDate] of the store at `path`, or
  // of the device's own store when `path` is absent. Synchronous. Returns
  // false on failure and may then put an error into *errorOut (if given).
  virtual bool processLogArchiveWithPath(const std::optional<std::string>& path, Date startDate,
                                         Date endDate, std::optional<Error>* errorOut) = 0;

  virtual void stopProcessing() = 0;

  virtual uint64_t processedEventCount() const = 0;
};

// How a run makes its extractor ("plain construction"); injected so that
// tests can hand the run a scripted one.
using ExtractorFactory = std::function<std::shared_ptr<VantrelObjectExtractor>()>;

}  // namespace lumvane

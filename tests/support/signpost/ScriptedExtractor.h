// Test double of the extractor: delivers a given list of objects, in order,
// through the callback of each object's class (animation intervals through
// the animation callback, other intervals through the interval callback,
// events through the event callback). It honours stopProcessing from any
// thread, records the window and path it was asked for, and can be told to
// fail. A hook run before each delivery lets tests act mid-processing (ask
// for deferral, say) at an exact point.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "lumvane/signpost/VantrelObjectExtractor.h"

namespace lumvane {

class ScriptedExtractor final : public VantrelObjectExtractor {
 public:
  explicit ScriptedExtractor(std::vector<std::shared_ptr<const SignpostObject>> objects);

  void setIntervalCompletionProcessingBlock(IntervalCompletionBlock block) override;
  void setAnimationIntervalCompletionProcessingBlock(
      AnimationIntervalCompletionBlock block) override;
  void setEmitEventProcessingBlock(EmitEventBlock block) override;
  void setBuildAnimationCompositeIntervalTimelines(bool build) override;
  bool processLogArchiveWithPath(const std::optional<std::string>& path, Date startDate,
                                 Date endDate, std::optional<Error>* errorOut) override;
  void stopProcessing() override;
  uint64_t processedEventCount() const override;

  // Counted as log events on top of the delivered objects (ordinary log
  // lines the store held besides signposts).
  void setExtraLogEventCount(uint64_t n) { extraLogEvents_ = n; }
  // Make processing answer false with this error (after delivering nothing).
  void failWith(std::optional<Error> error) { failure_ = std::move(error), fail_ = true; }
  // Called with the index of each object before it is delivered.
  void setBeforeDeliveryHook(std::function<void(std::size_t)> hook) { hook_ = std::move(hook); }

  bool buildAnimationCompositeIntervalTimelines() const { return buildComposite_; }
  bool stopRequested() const { return stopRequested_.load(); }
  int stopRequestCount() const { return stopRequests_.load(); }
  int processCallCount() const { return processCalls_; }
  const std::optional<std::string>& lastPath() const { return lastPath_; }
  Date lastStartDate() const { return lastStart_; }
  Date lastEndDate() const { return lastEnd_; }
  std::size_t deliveredCount() const { return delivered_; }

 private:
  const std::vector<std::shared_ptr<const SignpostObject>> objects_;
  IntervalCompletionBlock intervalBlock_;
  AnimationIntervalCompletionBlock animationBlock_;
  EmitEventBlock eventBlock_;
  std::function<void(std::size_t)> hook_;
  bool buildComposite_ = true;
  bool fail_ = false;
  std::optional<Error> failure_;
  uint64_t extraLogEvents_ = 0;
  std::atomic<bool> stopRequested_{false};
  std::atomic<int> stopRequests_{0};
  std::atomic<uint64_t> processed_{0};
  int processCalls_ = 0;
  std::optional<std::string> lastPath_;
  Date lastStart_{};
  Date lastEnd_{};
  std::size_t delivered_ = 0;
};

}  // namespace lumvane

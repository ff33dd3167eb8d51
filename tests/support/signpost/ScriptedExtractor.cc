#include "tests/support/signpost/ScriptedExtractor.h"

namespace lumvane {

ScriptedExtractor::ScriptedExtractor(std::vector<std::shared_ptr<const SignpostObject>> objects)
    : objects_(std::move(objects)) {}

void ScriptedExtractor::setIntervalCompletionProcessingBlock(IntervalCompletionBlock block) {
  intervalBlock_ = std::move(block);
}

void ScriptedExtractor::setAnimationIntervalCompletionProcessingBlock(
    AnimationIntervalCompletionBlock block) {
  animationBlock_ = std::move(block);
}

void ScriptedExtractor::setEmitEventProcessingBlock(EmitEventBlock block) {
  eventBlock_ = std::move(block);
}

void ScriptedExtractor::setBuildAnimationCompositeIntervalTimelines(bool build) {
  buildComposite_ = build;
}

bool ScriptedExtractor::processLogArchiveWithPath(const std::optional<std::string>& path,
                                                  Date startDate, Date endDate,
                                                  std::optional<Error>* errorOut) {
  ++processCalls_;
  lastPath_ = path;
  lastStart_ = startDate;
  lastEnd_ = endDate;
  if (fail_) {
    if (errorOut) *errorOut = failure_;
    return false;
  }
  processed_ += extraLogEvents_;
  for (std::size_t i = 0; i < objects_.size(); ++i) {
    if (hook_) hook_(i);
    // A stop request ends processing at the next record, also one that came
    // before processing began.
    if (stopRequested_.load()) break;
    const auto& object = objects_[i];
    processed_.fetch_add(1);
    if (auto anim = std::dynamic_pointer_cast<const SignpostAnimationInterval>(object)) {
      if (animationBlock_) animationBlock_(anim);
    } else if (auto interval = std::dynamic_pointer_cast<const SignpostInterval>(object)) {
      if (intervalBlock_) intervalBlock_(interval);
    } else if (auto event = std::dynamic_pointer_cast<const SignpostEvent>(object)) {
      if (eventBlock_) eventBlock_(event);
    } else {
      // Not a class the library delivers; counted as a log event only.
      continue;
    }
    ++delivered_;
  }
  return true;
}

void ScriptedExtractor::stopProcessing() {
  stopRequests_.fetch_add(1);
  stopRequested_.store(true);
}

uint64_t ScriptedExtractor::processedEventCount() const { return processed_.load(); }

}  // namespace lumvane

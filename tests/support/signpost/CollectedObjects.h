// What an extractor delivered, kept per class in delivery order. Attach it
// before processing; the extractor's callbacks then fill it on the reading
// thread, so read it only once processing has returned.
#pragma once

#include <memory>
#include <vector>

#include "lumvane/signpost/VantrelObjectExtractor.h"

namespace lumvane::testing {

struct CollectedObjects {
  std::vector<std::shared_ptr<const SignpostInterval>> intervals;
  std::vector<std::shared_ptr<const SignpostAnimationInterval>> animations;
  std::vector<std::shared_ptr<const SignpostEvent>> events;

  void attach(VantrelObjectExtractor& extractor) {
    extractor.setIntervalCompletionProcessingBlock(
        [this](auto o) { return intervals.push_back(std::move(o)), true; });
    extractor.setAnimationIntervalCompletionProcessingBlock(
        [this](auto o) { return animations.push_back(std::move(o)), true; });
    extractor.setEmitEventProcessingBlock(
        [this](auto o) { return events.push_back(std::move(o)), true; });
  }
};

}  // namespace lumvane::testing

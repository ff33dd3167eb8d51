#include "lumvane/signpost/ScriptedExtractor.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace lumvane {
namespace {

std::shared_ptr<const SignpostEvent> Event(std::string name) {
  SignpostObjectProperties p;
  p.name = std::move(name);
  return std::make_shared<SignpostEvent>(p, std::nullopt, std::nullopt);
}

std::shared_ptr<const SignpostInterval> Interval(std::string name) {
  SignpostObjectProperties p;
  p.name = std::move(name);
  return std::make_shared<SignpostInterval>(p, Event("b"), Event("e"));
}

std::shared_ptr<const SignpostAnimationInterval> Animation(std::string name) {
  SignpostObjectProperties p;
  p.name = std::move(name);
  return std::make_shared<SignpostAnimationInterval>(p, Event("b"), Event("e"), Dictionary{}, 60.f);
}

TEST(ScriptedExtractorTest, DeliversEachClassThroughItsOwnCallbackInOrder) {
  ScriptedExtractor extractor({Interval("i1"), Animation("a1"), Event("e1"), Interval("i2")});
  std::vector<std::string> seen;
  extractor.setIntervalCompletionProcessingBlock([&](auto o) {
    seen.push_back("interval:" + *o->name());
    return true;
  });
  extractor.setAnimationIntervalCompletionProcessingBlock([&](auto o) {
    seen.push_back("animation:" + *o->name());
    return true;
  });
  extractor.setEmitEventProcessingBlock([&](auto o) {
    seen.push_back("event:" + *o->name());
    return true;
  });
  extractor.setExtraLogEventCount(10);
  std::optional<Error> error;
  EXPECT_TRUE(extractor.processLogArchiveWithPath(std::nullopt, Date{}, Date{}, &error));
  EXPECT_EQ(seen, (std::vector<std::string>{"interval:i1", "animation:a1", "event:e1",
                                            "interval:i2"}));
  EXPECT_EQ(extractor.processedEventCount(), 14u);
  EXPECT_FALSE(error);
}

TEST(ScriptedExtractorTest, StopFromAnotherThreadEndsAtTheNextObjectAndRepeatsHarmlessly) {
  std::vector<std::shared_ptr<const SignpostObject>> objects;
  for (int i = 0; i < 100; ++i) objects.push_back(Event(std::to_string(i)));
  ScriptedExtractor extractor(objects);
  int delivered = 0;
  extractor.setEmitEventProcessingBlock([&](auto) {
    ++delivered;
    return true;
  });
  extractor.setBeforeDeliveryHook([&](std::size_t i) {
    if (i == 10) {
      std::thread([&] {
        extractor.stopProcessing();
        extractor.stopProcessing();
      }).join();
    }
  });
  EXPECT_TRUE(extractor.processLogArchiveWithPath(std::nullopt, Date{}, Date{}, nullptr));
  EXPECT_EQ(delivered, 10);
  EXPECT_EQ(extractor.processedEventCount(), 10u);
  extractor.stopProcessing();  // after processing: harmless
  EXPECT_EQ(extractor.stopRequestCount(), 3);

  ScriptedExtractor early({Event("x")});
  early.stopProcessing();  // before processing begins
  EXPECT_TRUE(early.processLogArchiveWithPath(std::nullopt, Date{}, Date{}, nullptr));
  EXPECT_EQ(early.deliveredCount(), 0u);
}

}  // namespace
}  // namespace lumvane

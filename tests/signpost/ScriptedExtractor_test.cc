#include "tests/support/signpost/ScriptedExtractor.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace lumvane {
namespace {

SignpostObjectProperties Named(std::string name) {
  SignpostObjectProperties p;
  p.name = std::move(name);
  return p;
}

std::shared_ptr<const SignpostEvent> Event(std::string name) {
  return std::make_shared<SignpostEvent>(Named(std::move(name)), std::nullopt, std::nullopt);
}

TEST(ScriptedExtractorTest, DeliversEachClassThroughItsOwnCallbackInOrder) {
  ScriptedExtractor extractor(
      {std::make_shared<SignpostInterval>(Named("i1"), Event("b"), Event("e")),
       std::make_shared<SignpostAnimationInterval>(Named("a1"), Event("b"), Event("e"),
                                                   Dictionary{}, 60.f),
       Event("e1"), std::make_shared<SignpostInterval>(Named("i2"), Event("b"), Event("e"))});
  std::vector<std::string> seen;
  auto record = [&seen](std::string kind) {
    return [&seen, kind](auto o) { return seen.push_back(kind + *o->name()), true; };
  };
  extractor.setIntervalCompletionProcessingBlock(record("interval:"));
  extractor.setAnimationIntervalCompletionProcessingBlock(record("animation:"));
  extractor.setEmitEventProcessingBlock(record("event:"));
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
  extractor.setEmitEventProcessingBlock([&](auto) { return ++delivered, true; });
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

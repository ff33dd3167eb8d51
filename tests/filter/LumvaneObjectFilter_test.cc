#include "lumvane/filter/LumvaneObjectFilter.h"

#include <gtest/gtest.h>

#include <cmath>

#include "lumvane/SubsystemCategoryFilter/LVBuiltInFilter.h"
#include "lumvane/signpost/SignpostInterval.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using Opt = std::optional<std::string>;
enum Kind { Plain, Event, Interval };

// An object of `kind` for com.orvel.test/cat/op.
std::shared_ptr<const SignpostObject> Make(Kind kind, bool enabled, float duration, Opt value = {}) {
  SignpostObjectProperties p;
  p.subsystem = "com.orvel.test", p.category = "cat", p.name = "op";
  p.telemetryEnabled = enabled;
  p.durationSeconds = duration;
  if (value) p.string1Name = "arg", p.string1Value = value;
  if (kind == Plain) return std::make_shared<const SignpostObject>(p);
  if (kind == Event) return std::make_shared<const SignpostEvent>(p, "proc", "/bin/proc");
  return std::make_shared<const SignpostInterval>(p, nullptr, nullptr);
}

uint64_t PerClassificationTotal(const LumvaneObjectFilter& f) {
  return f.telemetryDisabledAggregation().totalCount() +
         f.telemetryReportedAggregation().totalCount() +
         f.telemetryNotReportedFailedStringWhitelistAggregation().totalCount() +
         f.telemetryNotReportedDurationThresholdAggregation().totalCount() +
         f.telemetryNotReportedFailedSCFilterAggregation().totalCount() +
         f.telemetryNotReportedClassNotSupportedAggregation().totalCount();
}

// The classification, checked against the returned verdict.
SignpostClassification Verdict(LumvaneObjectFilter& f, const SignpostObject& o) {
  auto c = static_cast<SignpostClassification>(99);
  const bool reported = f.shouldReportSignpostObject(o, &c);
  EXPECT_EQ(reported, c == SignpostClassificationReported);
  return c;
}

class ObjectFilterTest : public ::testing::Test {
 protected:
  testing::ScopedLogCapture quiet_{LogLevel::Error};
  testing::ScopedInternalDiagnostics diagnostics_{false};
};

TEST_F(ObjectFilterTest, FirstFailingTestDecidesAndEachVerdictIsCountedOnce) {
  auto f = LumvaneObjectFilter::initWithPlatform(LVPlatformCirros);
  ASSERT_TRUE(f);
  EXPECT_EQ(Verdict(*f, *Make(Plain, false, -1, "bad")), SignpostClassificationClassNotSupported);
  EXPECT_EQ(Verdict(*f, *Make(Interval, false, -1, "bad")), SignpostClassificationTelemetryDisabled);
  EXPECT_EQ(Verdict(*f, *Make(Interval, true, -0.001f, "bad")),
            SignpostClassificationDurationThreshold);
  EXPECT_EQ(Verdict(*f, *Make(Interval, true, 0.0f, "bad")),
            SignpostClassificationFailedStringWhitelist);
  EXPECT_EQ(Verdict(*f, *Make(Interval, true, std::nanf(""), "Root")),
            SignpostClassificationReported);
  EXPECT_EQ(Verdict(*f, *Make(Interval, true, 0.0f)), SignpostClassificationReported);
  EXPECT_TRUE(f->shouldReportSignpostObject(*Make(Event, true, 1), nullptr));

  EXPECT_EQ(f->allInspectedSignpostObjectsAggregation().totalCount(), 7u);
  EXPECT_EQ(f->telemetryNotReportedClassNotSupportedAggregation().totalCount(), 1u);
  EXPECT_EQ(f->telemetryDisabledAggregation().totalCount(), 1u);
  EXPECT_EQ(f->telemetryNotReportedDurationThresholdAggregation().totalCount(), 1u);
  EXPECT_EQ(f->telemetryReportedAggregation().countForSubsystem("com.orvel.test", "cat"), 3u);
  EXPECT_EQ(PerClassificationTotal(*f), 7u);
  // The plain object is in no class counter; a reported interval is no event.
  EXPECT_EQ(f->totalUnreportedIntervalCount(), 3u);
  EXPECT_EQ(f->totalReportedIntervalCount(), 2u);
  EXPECT_EQ(f->totalReportedEventCount(), 1u);
  EXPECT_EQ(f->telemetryReportedEventsAggregation().totalCount(), 1u);
  EXPECT_EQ(f->totalUnreportedEventCount() + f->totalUnreportedAnimationCount(), 0u);

  // A value that is no classification counts as inspected and unreported only.
  f->incrementTotalForObject(*Make(Interval, true, 1), static_cast<SignpostClassification>(7));
  EXPECT_EQ(f->allInspectedSignpostObjectsAggregation().totalCount(), 8u);
  EXPECT_EQ(f->totalUnreportedIntervalCount(), 4u);
  EXPECT_EQ(PerClassificationTotal(*f), 7u);
}

TEST_F(ObjectFilterTest, FactoriesTakeTheBuiltInNameFilterOfTheirPlatform) {
  EXPECT_FALSE(LumvaneObjectFilter::initWithPlatform(LVPlatformUnknown));
  EXPECT_FALSE(LumvaneObjectFilter::initWithPlatform(static_cast<LVPlatform>(6)));
  for (uint32_t p = 1; p <= 5; ++p) {
    auto f = LumvaneObjectFilter::initWithPlatform(static_cast<LVPlatform>(p));
    ASSERT_TRUE(f);
    EXPECT_EQ(f->scnFilter(), LVBuiltInFilterForPlatform(static_cast<LVPlatform>(p))) << p;
  }
  auto current = LumvaneObjectFilter::init();
  EXPECT_EQ(current->platform(), LVPlatformCirros);
  EXPECT_FALSE(current->scnFilter());
}

TEST_F(ObjectFilterTest, OnlyObjectsPassingEarlierTestsReachTheNameFilter) {
  auto names = LVSubsystemCategoryNameFilter::initWithDictionaryArray(Array{});
  ASSERT_TRUE(names);
  names->addEntryWithSubsystem("com.orvel.test", std::nullopt, std::nullopt, 10, 2);
  auto f = LumvaneObjectFilter::initWithPlatform(LVPlatformCirros);
  f->setScnFilter(names);
  auto good = Make(Interval, true, 1, "Ext");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Verdict(*f, *Make(Interval, true, 1, "nope")),
              SignpostClassificationFailedStringWhitelist);
    EXPECT_EQ(Verdict(*f, *Make(Interval, false, 1)), SignpostClassificationTelemetryDisabled);
  }
  EXPECT_EQ(names->downsampleEntryForObject(*good)->eventsSeen(), 0u);
  // Every second governed object passes.
  EXPECT_EQ(Verdict(*f, *good), SignpostClassificationFailedSCFilter);
  EXPECT_EQ(Verdict(*f, *good), SignpostClassificationReported);
}

}  // namespace
}  // namespace lumvane

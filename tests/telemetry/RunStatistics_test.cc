#include "lumvane/telemetry/RunStatistics.h"

#include <gtest/gtest.h>

#include "lumvane/platform/DovetelEventSink.h"
#include "lumvane/signpost/SignpostAnimationInterval.h"
#include "lumvane/signpost/SignpostEvent.h"
#include "lumvane/signpost/SignpostInterval.h"
#include "tests/support/TestSupport.h"
#include "tests/support/platform/FakeContinuousClock.h"
#include "tests/support/platform/RecordingDovetelSink.h"
#include "tests/support/platform/RecordingSleeper.h"
#include "tests/support/signpost/ScriptedExtractor.h"

namespace lumvane {
namespace {

using testing::ScopedLogCapture;

constexpr const char* kStats = "com.orvel.performance.signpost_reporting_stats";
constexpr const char* kCounts = "com.orvel.performance.signpost_counts";
const std::string kBar = "**************\n";
const std::string kSent = " (Count reported to Dovetel)", kKept = " (Count not reported)";

enum Kind { Event, Interval, Animation };

// Counts `n` objects of `kind` for (subsystem, category) under `c`.
void Count(LumvaneObjectFilter& filter, int n, Kind kind, const char* subsystem,
           std::optional<std::string> category, SignpostClassification c) {
  SignpostObjectProperties p;
  p.subsystem = subsystem;
  p.category = std::move(category);
  std::shared_ptr<const SignpostObject> object;
  if (kind == Event) object = std::make_shared<SignpostEvent>(p, std::nullopt, std::nullopt);
  if (kind == Interval) object = std::make_shared<SignpostInterval>(p, nullptr, nullptr);
  if (kind == Animation) {
    object = std::make_shared<SignpostAnimationInterval>(p, nullptr, nullptr, Dictionary{}, 60.0f);
  }
  for (int i = 0; i < n; ++i) filter.incrementTotalForObject(*object, c);
}

Dictionary CountPayload(const char* subsystem, const char* category, uint64_t count,
                        const char* classification) {
  return {{"Subsystem", subsystem}, {"Category", category},
          {"Count", Number::fromUInt64(count)}, {"Classification", classification}};
}

// The events of one run: a recording sink swapped in, a throttle whose sleeps
// move its fake clock (1 tick = 1 ns), and a date formatter that counts its calls.
class RunStatisticsTest : public ::testing::Test {
 protected:
  RunStatisticsTest() : previous_(ExchangeDovetelEventSink(sink_)) {}
  ~RunStatisticsTest() override { ExchangeDovetelEventSink(previous_); }

  RunStatisticsInput Input(std::shared_ptr<const LumvaneObjectFilter> filter, bool interrupted) {
    RunStatisticsInput input;
    input.objectFilter = std::move(filter);
    input.runStart = clock_.now();
    input.extractor = extractor_;
    input.periodStart = Date(std::chrono::microseconds(111));
    input.periodEnd = Date(std::chrono::microseconds(222));
    input.wasInterrupted = std::make_shared<std::atomic<bool>>(interrupted);
    return input;
  }

  std::shared_ptr<RecordingDovetelSink> sink_ = std::make_shared<RecordingDovetelSink>();
  std::shared_ptr<DovetelEventSink> previous_;
  FakeContinuousClock clock_;
  RecordingSleeper sleeper_{&clock_};
  ReportThrottle throttle_{clock_, sleeper_};
  std::shared_ptr<ScriptedExtractor> extractor_ = std::make_shared<ScriptedExtractor>(
      std::vector<std::shared_ptr<const SignpostObject>>{});
  int formatCalls_ = 0;
  RunStatisticsReporter::DateFormatter format_ = [this](Date d) {
    ++formatCalls_;
    return "<" + std::to_string(d.time_since_epoch().count()) + ">";
  };
  RunStatisticsReporter reporter_{clock_, throttle_, format_};
};

const std::pair<const char*, int> kRanked[] = {{"a", 9}, {"b", 7}, {"c", 7}, {"d", 5},
                                               {"e", 3}, {"f", 2}, {"g", 1}};

// Seven subsystem/category-filtered keys of counts 9,7,7,5,3,2,1, one key in
// each other dumped aggregation, and one telemetry-disabled key (never dumped).
std::shared_ptr<LumvaneObjectFilter> RankedFilter() {
  auto filter = LumvaneObjectFilter::_init();
  for (auto [category, n] : kRanked) {
    Count(*filter, n, Event, "s", category, SignpostClassificationFailedSCFilter);
  }
  Count(*filter, 2, Event, "r", "x", SignpostClassificationReported);
  Count(*filter, 1, Interval, "r", "y", SignpostClassificationReported);
  Count(*filter, 1, Animation, "d", "z", SignpostClassificationDurationThreshold);
  Count(*filter, 1, Interval, "w", "q", SignpostClassificationFailedStringWhitelist);
  Count(*filter, 1, Event, "t", "t", SignpostClassificationTelemetryDisabled);
  return filter;
}

TEST_F(RunStatisticsTest, DumpsSixAggregationsInOrderWithFiveCountEventsAtMost) {
  ScopedLogCapture capture;
  reporter_.reportRunStatistics(Input(RankedFilter(), false));

  // The five highest keys only, in count order, ties in first-seen order.
  const char *all = "AllInspected", *sc = "SubsystemCategoryFiltered";
  const Dictionary counts[] = {
      CountPayload("s", "a", 9, all), CountPayload("s", "b", 7, all), CountPayload("s", "c", 7, all),
      CountPayload("s", "d", 5, all), CountPayload("s", "e", 3, all),
      CountPayload("r", "x", 2, "Reported"), CountPayload("r", "y", 1, "Reported"),
      CountPayload("r", "x", 2, "ReportedEvents"),
      CountPayload("s", "a", 9, sc), CountPayload("s", "b", 7, sc), CountPayload("s", "c", 7, sc),
      CountPayload("s", "d", 5, sc), CountPayload("s", "e", 3, sc),
      CountPayload("d", "z", 1, "DurationThresholdFiltered"),
      CountPayload("w", "q", 1, "StringWhitelistFiltered")};
  const auto events = sink_->events();
  ASSERT_EQ(events.size(), std::size(counts) + 1);
  for (std::size_t i = 0; i < std::size(counts); ++i) {
    EXPECT_EQ(events[i].name, kCounts) << i;
    EXPECT_EQ(events[i].payload, counts[i]) << i << ": " << Value(events[i].payload).description();
  }
  EXPECT_EQ(events.back().name, kStats);

  // 24 keys, one throttle step each, on a clock that only the sleeps move:
  // the 10th and the 20th step sleep a whole quantum, before that key's line.
  EXPECT_EQ(sleeper_.sleeps(), (std::vector<uint32_t>{125000, 125000}));
  const std::vector<std::string> expected = {
      kBar + "Total signpost object count: 40",
      // The first key's throttle step is the throttle's first call.
      "125000.000000 us, 125000000.000000 clock ticks per quantum of 10 reported events",
      "s/a:\t9" + kSent, "s/b:\t7" + kSent, "s/c:\t7" + kSent, "s/d:\t5" + kSent, "s/e:\t3" + kSent,
      "s/f:\t2" + kKept, "r/x:\t2" + kKept, "s/g:\t1" + kKept, "r/y:\t1" + kKept,
      "Sleeping for 125000 us", "d/z:\t1" + kKept, "w/q:\t1" + kKept, "t/t:\t1" + kKept,
      kBar + "Reported signpost object count: 3", "r/x:\t2" + kSent, "r/y:\t1" + kSent,
      kBar + "Reported signpost event count: 2", "r/x:\t2" + kSent,
      kBar + "Subsystem/category filtered signpost object count: 34",
      "s/a:\t9" + kSent, "s/b:\t7" + kSent, "s/c:\t7" + kSent, "s/d:\t5" + kSent,
      "Sleeping for 125000 us", "s/e:\t3" + kSent, "s/f:\t2" + kKept, "s/g:\t1" + kKept,
      kBar + "Duration filtered signpost object count: 1", "d/z:\t1" + kSent,
      kBar + "String whitelist filtered signpost object count: 1", "w/q:\t1" + kSent,
      // The duration is read after the last count event, so it holds both sleeps.
      "Done processing 2 reported and 35 unreported events, 1 reported and 1 unreported "
      "intervals and 0 reported and 1 unreported animations (34 blacklisted, 1 too short, 1 "
      "whitelisted, 1 telemetry not enabled) from 0 log events in 0.25s between <111> and "
      "<222>\n",
      "Throttled 2 times for a total of 250000 usec"};
  EXPECT_EQ(capture.log().messages(), expected);
  EXPECT_EQ(*events.back().payload.find("ProcessingDurationInSeconds")->asNumber(),
            Number::fromFloat(0.25f));
}

TEST_F(RunStatisticsTest, StatisticsEventAndSummaryCarryEveryCounterInItsPlace) {
  // Every counter differs from every other so that a swapped argument shows;
  // no whitelist-filtered object, and one reported event without a category.
  auto filter = LumvaneObjectFilter::_init();
  Count(*filter, 1, Event, "s", std::nullopt, SignpostClassificationReported);
  Count(*filter, 2, Interval, "s", "c", SignpostClassificationReported);
  Count(*filter, 3, Animation, "s", "c", SignpostClassificationReported);
  Count(*filter, 4, Event, "s", "c", SignpostClassificationFailedSCFilter);
  Count(*filter, 5, Interval, "s", "c", SignpostClassificationDurationThreshold);
  Count(*filter, 10, Event, "s", "c", SignpostClassificationTelemetryDisabled);
  Count(*filter, 3, Interval, "s", "c", SignpostClassificationTelemetryDisabled);
  Count(*filter, 7, Animation, "s", "c", SignpostClassificationTelemetryDisabled);
  extractor_->setExtraLogEventCount(1000);
  ASSERT_TRUE(extractor_->processLogArchiveWithPath(std::nullopt, Date{}, Date{}, nullptr));
  FakeContinuousClock slowTicks(5'000, Timebase{125, 3});  // 125/3 ns per tick
  RunStatisticsReporter reporter(slowTicks, throttle_, format_);
  RunStatisticsInput input = Input(filter, true);
  input.runStart = slowTicks.now();
  slowTicks.advance(296'294'400);  // 12.3456 s
  ScopedLogCapture capture;
  reporter.reportRunStatistics(input);

  const auto events = sink_->events();
  ASSERT_EQ(events.size(), 7u + 1);
  EXPECT_EQ(events[4].payload, (Dictionary{{"Subsystem", "s"}, {"Count", Number::fromUInt64(1)},
                                           {"Classification", "ReportedEvents"}}));
  const Dictionary expected = {{"ProcessingDurationInSeconds", Number::fromFloat(12.3456f)},
                               {"LogObjectsProcessed", Number::fromUInt64(1000)},
                               {"AnimationsReported", Number::fromUInt64(3)},
                               {"IntervalsReported", Number::fromUInt64(2)},
                               {"EventsReported", Number::fromUInt64(1)},
                               {"AnimationsNotReported", Number::fromUInt64(7)},
                               {"IntervalsNotReported", Number::fromUInt64(8)},
                               {"EventsNotReported", Number::fromUInt64(14)},
                               {"WasInterrupted", Number::fromBool(true)}};
  EXPECT_EQ(events.back().name, kStats);
  EXPECT_EQ(events.back().payload, expected) << Value(events.back().payload).description();
  // Six headers, the throttle's creation line, seven keys (no sleep), the summary.
  const auto messages = capture.log().messages();
  ASSERT_EQ(messages.size(), 15u);
  EXPECT_EQ(capture.log().count("s/(null):\t1" + kSent), 3u);
  EXPECT_EQ(messages[13], kBar + "String whitelist filtered signpost object count: 0");
  EXPECT_EQ(messages[14],
            "Done processing 1 reported and 14 unreported events, 2 reported and 8 unreported "
            "intervals and 3 reported and 7 unreported animations (4 blacklisted, 5 too short, "
            "0 whitelisted, 20 telemetry not enabled) from 1000 log events in 12.35s between "
            "<111> and <222> (Interrupted by deferral)\n");
  EXPECT_EQ(formatCalls_, 2);
}

// Absent extractor and interruption flag read as none and false.
TEST_F(RunStatisticsTest, WithoutDebugLoggingSendsTheSameEventsAndFormatsNoDate) {
  ScopedLogCapture capture(LogLevel::Error);
  RunStatisticsInput input = Input(RankedFilter(), true);
  input.extractor = nullptr;
  input.wasInterrupted = nullptr;
  reporter_.reportRunStatistics(input);
  const auto events = sink_->events();
  ASSERT_EQ(events.size(), 16u);
  EXPECT_EQ(events[8].payload, CountPayload("s", "a", 9, "SubsystemCategoryFiltered"));
  EXPECT_EQ(*events[15].payload.find("LogObjectsProcessed"), Value(Number::fromUInt64(0)));
  EXPECT_EQ(*events[15].payload.find("WasInterrupted"), Value(Number::fromBool(false)));
  EXPECT_EQ(formatCalls_, 0);
  EXPECT_TRUE(capture.log().messages().empty());
  EXPECT_EQ(throttle_.throttleCount(), 2u);  // the throttle still steps for every key
}

}  // namespace
}  // namespace lumvane

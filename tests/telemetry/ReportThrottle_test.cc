#include "lumvane/telemetry/ReportThrottle.h"

#include <gtest/gtest.h>

#include "lumvane/platform/DovetelEventSink.h"
#include "lumvane/signpost/SignpostEvent.h"
#include "lumvane/telemetry/ReportSignpostPayload.h"
#include "lumvane/telemetry/ReportingQueue.h"
#include "tests/support/TestSupport.h"
#include "tests/support/platform/FakeContinuousClock.h"
#include "tests/support/platform/RecordingDovetelSink.h"
#include "tests/support/platform/RecordingSleeper.h"

namespace lumvane {
namespace {

using testing::ScopedLogCapture;

// Makes `n` throttle calls, moving the clock by `step` ns before each.
void Calls(ReportThrottle& throttle, FakeContinuousClock& clock, int n, uint64_t step) {
  for (int i = 0; i < n; ++i) {
    clock.advance(step);
    throttle.throttleReportedEvent();
  }
}

TEST(ReportThrottleTest, StretchesShortQuantaToTheBudgetAndTruncatesTheSleep) {
  FakeContinuousClock clock;  // 1 tick = 1 ns
  RecordingSleeper sleeper(&clock);
  ScopedLogCapture capture;
  ReportThrottle throttle(clock, sleeper);
  Calls(throttle, clock, 9, 1'000'000'000);  // nine calls never measure, however slow
  Calls(throttle, clock, 1, 0);              // tenth: the quantum lasted 9 s, no sleep
  EXPECT_TRUE(sleeper.sleeps().empty());

  // Each row is one quantum of ten calls lasting `elapsed` ns; every quantum
  // starts after the previous one's sleep.
  const struct {
    uint64_t elapsed;
    uint32_t sleep;  // 0: none
  } quanta[] = {
      {25'000'000, 100000},   {25'000'000, 100000},  {200'000'000, 0},
      {125'000'000, 0},       {124'999'000, 1},      {24'999'600, 100000},
      {24'999'500, 100000},   {24'999'400, 100000},  {0, 125000},
  };
  std::vector<uint32_t> expected;
  uint64_t total = 0;
  for (const auto& q : quanta) {
    clock.advance(q.elapsed);
    Calls(throttle, clock, 10, 0);
    if (q.sleep) expected.push_back(q.sleep), total += q.sleep;
    EXPECT_EQ(sleeper.sleeps(), expected) << "after a quantum of " << q.elapsed << " ns";
  }
  EXPECT_EQ(capture.log().count("Sleeping for 100000 us"), 5u);
  EXPECT_EQ(throttle.throttleCount(), expected.size());
  EXPECT_EQ(throttle.totalSleptMicroseconds(), total);
}

TEST(ReportThrottleTest, ConvertsTicksThroughTheTimebase) {
  FakeContinuousClock clock(0, Timebase{125, 3});  // 1 tick = 125/3 ns
  RecordingSleeper sleeper;
  ScopedLogCapture capture;
  ReportThrottle throttle(clock, sleeper);
  Calls(throttle, clock, 10, 150'000);  // 1.35M ticks from the first call = 56250 us
  EXPECT_EQ(capture.log().count(
                "125000.000000 us, 3000000.000000 clock ticks per quantum of 10 reported events"),
            1u);
  EXPECT_EQ(sleeper.sleeps(), std::vector<uint32_t>{68750});
}

// Five objects make ten throttle steps: one quantum, on a clock only the sleep moves.
TEST(ReportSignpostPayloadTest, SendsBothEventsInOrderOnTheReportingQueue) {
  auto sink = std::make_shared<RecordingDovetelSink>();
  auto previous = ExchangeDovetelEventSink(sink);
  FakeContinuousClock clock;
  RecordingSleeper sleeper(&clock);
  ReportThrottle throttle(clock, sleeper);
  const char* names[] = {"sp__com.example.net__fetch__Request0", "sp__com.example.net__fetch__Request1",
                         "sp__com.example.net__fetch__Request2", "sp__com.example.net__Unknown__Request3",
                         "sp__com.example.net__fetch__Unknown"};
  std::vector<RecordingDovetelSink::Event> expected;
  for (int i = 0; i < 5; ++i) {
    SignpostObjectProperties p;
    p.subsystem = "com.example.net";
    if (i != 3) p.category = "fetch";
    if (i != 4) p.name = "Request" + std::to_string(i);
    auto object = std::make_shared<SignpostEvent>(p, std::nullopt, std::nullopt);
    auto payload = std::make_shared<Dictionary>(*object->dovetelPayload());
    expected.push_back({"com.orvel.performance.signpost", *payload});
    expected.push_back({names[i], *payload});
    reportSignpostPayload(object, payload, throttle, reportingQueue());
  }
  reportingQueue().sync([] {});
  EXPECT_EQ(ExchangeDovetelEventSink(previous), sink);  // hands back the sink it replaces
  EXPECT_EQ(sleeper.sleeps(), std::vector<uint32_t>{125000});
  const auto events = sink->events();
  ASSERT_EQ(events.size(), expected.size());
  for (std::size_t i = 0; i < events.size(); ++i) {
    EXPECT_EQ(events[i].name, expected[i].name) << i;
    EXPECT_EQ(events[i].payload, expected[i].payload) << i;
  }
}

}  // namespace
}  // namespace lumvane

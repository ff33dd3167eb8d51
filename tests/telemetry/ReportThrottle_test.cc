#include "lumvane/telemetry/ReportThrottle.h"

#include <gtest/gtest.h>

#include "lumvane/platform/DovetelEventSink.h"
#include "lumvane/signpost/SignpostEvent.h"
#include "lumvane/telemetry/ReportSignpostPayload.h"
#include "lumvane/telemetry/ReportingQueue.h"
#include "tests/support/TestSupport.h"

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

TEST(ReportThrottleTest, StretchesShortQuantaToTheBudget) {
  FakeContinuousClock clock;
  RecordingSleeper sleeper(&clock);
  ScopedLogCapture capture;
  ReportThrottle throttle(clock, sleeper);
  EXPECT_EQ(capture.log().messages(),
            std::vector<std::string>{
                "125000.000000 us, 125000000.000000 clock ticks per quantum of 10 reported events"});

  Calls(throttle, clock, 9, 1'000'000'000);  // nine calls never measure, however slow
  Calls(throttle, clock, 1, 0);              // tenth: the quantum lasted 9 s, no sleep
  EXPECT_TRUE(sleeper.sleeps().empty());

  Calls(throttle, clock, 10, 2'500'000);  // 25 ms
  EXPECT_EQ(sleeper.sleeps(), std::vector<uint32_t>{100000});
  EXPECT_EQ(capture.log().count("Sleeping for 100000 us"), 1u);

  // The next quantum starts after the sleep, so 25 ms more sleep again.
  Calls(throttle, clock, 10, 2'500'000);
  Calls(throttle, clock, 10, 20'000'000);  // 200 ms: no sleep
  clock.advance(24'999'600);               // 24999.6 us: 100000.4 truncated
  Calls(throttle, clock, 10, 0);
  EXPECT_EQ(sleeper.sleeps(), (std::vector<uint32_t>{100000, 100000, 100000}));
  EXPECT_EQ(throttle.throttleCount(), 3u);
  EXPECT_EQ(throttle.totalSleptMicroseconds(), 300000u);
}

TEST(ReportThrottleTest, ConvertsTicksThroughTheTimebase) {
  FakeContinuousClock clock(0, Timebase{125, 3});  // 1 tick = 125/3 ns
  RecordingSleeper sleeper;
  ScopedLogCapture capture;
  ReportThrottle throttle(clock, sleeper);
  EXPECT_EQ(capture.log().count(
                "125000.000000 us, 3000000.000000 clock ticks per quantum of 10 reported events"),
            1u);
  Calls(throttle, clock, 10, 150'000);  // 1.5M ticks = 62500 us
  EXPECT_EQ(sleeper.sleeps(), std::vector<uint32_t>{62500});
}

TEST(ReportSignpostPayloadTest, SendsBothEventsInOrderOnTheReportingQueue) {
  auto sink = std::make_shared<RecordingDovetelSink>();
  auto previous = ExchangeDovetelEventSink(sink);
  FakeContinuousClock clock;
  RecordingSleeper sleeper(&clock);
  ReportThrottle throttle(clock, sleeper);

  std::vector<std::shared_ptr<const Dictionary>> payloads;
  for (int i = 0; i < 5; ++i) {
    SignpostObjectProperties p;
    p.subsystem = "com.example.net";
    p.category = "fetch";
    if (i != 4) p.name = "Request" + std::to_string(i);
    if (i == 3) p.category.reset();
    auto object = std::make_shared<SignpostEvent>(p, std::nullopt, std::nullopt);
    payloads.push_back(std::make_shared<Dictionary>(*object->dovetelPayload()));
    reportSignpostPayload(object, payloads.back(), throttle, reportingQueue());
  }
  reportingQueue().sync([] {});
  EXPECT_EQ(ExchangeDovetelEventSink(previous), sink);  // hands back the sink it replaces

  EXPECT_EQ(sleeper.sleeps(), std::vector<uint32_t>{125000});  // five objects, one quantum
  auto events = sink->events();
  ASSERT_EQ(events.size(), 10u);
  const char* names[] = {"sp__com.example.net__fetch__Request0",
                         "sp__com.example.net__fetch__Request1",
                         "sp__com.example.net__fetch__Request2",
                         "sp__com.example.net__Unknown__Request3",
                         "sp__com.example.net__fetch__Unknown"};
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(events[2 * i].name, "com.orvel.performance.signpost");
    EXPECT_EQ(events[2 * i + 1].name, names[i]);
    EXPECT_EQ(events[2 * i].payload, *payloads[i]);
    EXPECT_EQ(events[2 * i + 1].payload, *payloads[i]);
  }
}

}  // namespace
}  // namespace lumvane

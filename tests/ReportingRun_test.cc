#include "lumvane/ReportingRun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <thread>

#include "lumvane/platform/DovetelEventSink.h"
#include "lumvane/signpost/SignpostAnimationInterval.h"
#include "tests/support/TestSupport.h"
#include "tests/support/platform/FakeContinuousClock.h"
#include "tests/support/platform/ManualTimerFactory.h"
#include "tests/support/platform/RecordingActivityScheduler.h"
#include "tests/support/platform/RecordingDovetelSink.h"
#include "tests/support/platform/RecordingSleeper.h"
#include "tests/support/signpost/ScriptedExtractor.h"

namespace lumvane {
namespace {

using ObjectPtr = std::shared_ptr<const SignpostObject>;
using Lines = std::vector<std::string>;
enum Kind { Event, Interval, Animation };

ObjectPtr Make(Kind kind, std::string name, bool enabled = true, float duration = 0.5f) {
  SignpostObjectProperties p;
  p.subsystem = "com.orvel.test", p.category = "cat", p.name = std::move(name);
  p.telemetryEnabled = enabled, p.durationSeconds = duration;
  if (kind == Event) return std::make_shared<const SignpostEvent>(p, "proc", "/bin/proc");
  if (kind == Interval) return std::make_shared<const SignpostInterval>(p, nullptr, nullptr);
  return std::make_shared<const SignpostAnimationInterval>(p, nullptr, nullptr, Dictionary(), 60.0f);
}

// Hands timers to a ManualTimerFactory but keeps its own copy of every
// handler and queue, as a timer whose last firing is still pending would.
struct KeepingTimerFactory final : TimerFactory {
  std::unique_ptr<RepeatingTimer> makeRepeatingTimer(std::shared_ptr<WorkQueue> queue,
                                                     std::function<void()> handler) override {
    kept.push_back({queue, handler});
    return manual.makeRepeatingTimer(std::move(queue), std::move(handler));
  }
  ManualTimerFactory manual;
  std::vector<std::pair<std::shared_ptr<WorkQueue>, std::function<void()>>> kept;
};

// A scheduler whose shouldDefer() answers true only once its gate opens, so
// that a test can hold a deferral poll in the middle of its work.
struct GatedScheduler final : ActivityScheduler {
  void registerActivity(const std::string&, ActivityCriteria, Handler) override {}
  ActivityState activityState(const Activity&) override { return kActivityStateRun; }
  bool setActivityState(const Activity&, ActivityState) override { return false; }
  std::unique_ptr<Transaction> beginTransaction(const std::string&) override { return nullptr; }
  void exitWhenClean() override {}
  bool shouldDefer(const Activity&) override {
    std::unique_lock<std::mutex> lock(mu);
    entered = true;
    cv.notify_all();
    cv.wait(lock, [this] { return open; });
    return true;
  }
  std::mutex mu;
  std::condition_variable cv;
  bool entered = false, open = false;
};

// What the report saw when it ran.
struct ReportView {
  bool onReportQueue, guardPresent, wasInterrupted;
  size_t sendsDelivered;
  Date periodStart, periodEnd;
};

class ReportingRunTest : public ::testing::Test {
 protected:
  void SetUp() override { previousSink_ = ExchangeDovetelEventSink(sink_); }
  void TearDown() override { ExchangeDovetelEventSink(previousSink_); }

  ReportingRunOutcome Run(std::optional<Error>* error = nullptr) {
    nowCalls_ = 0;
    ReportingRunEnvironment env{
        *schedulerInUse_,
        [this]() -> std::shared_ptr<VantrelObjectExtractor> {
          auto e = std::make_shared<ScriptedExtractor>(objects_);
          if (fail_) e->failWith(failure_);
          if (hook_) e->setBeforeDeliveryHook(hook_);
          extractor_ = e;
          ++extractorsMade_;
          return e;
        },
        timers_, clock_, throttle_, *queue_, *cookie_,
        [this] { return tasked_; },
        [this] { return bootFs_; },
        [this] { return nows_.at(nowCalls_++); },
        [this](const RunStatisticsInput& in) {
          std::lock_guard<std::mutex> lock(reportMu_);
          reports_.push_back({queue_->isCurrent(), testing::PathExists(cookie_->path()),
                              in.wasInterrupted->load(), sink_->events().size(), in.periodStart,
                              in.periodEnd});
          reportCv_.notify_all();
        },
    };
    return performReportingRun(activity_, env, error);
  }
  std::shared_ptr<ScriptedExtractor> Extractor() { return extractor_.lock(); }
  Lines Messages() { return capture_.log().messages(); }
  // Index of the first message equal to `text`, or the number of messages.
  size_t IndexOf(const std::string& text) {
    auto m = Messages();
    return static_cast<size_t>(std::find(m.begin(), m.end(), text) - m.begin());
  }

  testing::ScopedLogCapture capture_;
  testing::ScopedInternalDiagnostics diagnostics_{false};
  testing::TempDir dir_;
  std::shared_ptr<RecordingDovetelSink> sink_ = std::make_shared<RecordingDovetelSink>();
  std::shared_ptr<DovetelEventSink> previousSink_;
  RecordingActivityScheduler scheduler_;
  ActivityScheduler* schedulerInUse_ = &scheduler_;
  std::shared_ptr<Activity> activity_ = std::make_shared<Activity>("test activity");
  KeepingTimerFactory timers_;
  FakeContinuousClock clock_;
  RecordingSleeper sleeper_{&clock_};
  ReportThrottle throttle_{clock_, sleeper_};
  std::shared_ptr<WorkQueue> queue_ = NewSerialWorkQueue("test reporting queue");
  CookieFile guard_{dir_.file("lumvane_running")};
  CookieFile* cookie_ = &guard_;

  bool tasked_ = true;
  std::optional<std::string> bootFs_ = "ext4";
  std::vector<Date> nows_{Date(std::chrono::seconds(1'700'000'000)),
                          Date(std::chrono::microseconds(1'700'000'000'000'250))};
  size_t nowCalls_ = 0;
  std::vector<ObjectPtr> objects_;
  bool fail_ = false;
  std::optional<Error> failure_;
  std::function<void(size_t)> hook_;
  std::weak_ptr<ScriptedExtractor> extractor_;
  int extractorsMade_ = 0;
  std::vector<ReportView> reports_;
  std::mutex reportMu_;
  std::condition_variable reportCv_;
};

TEST_F(ReportingRunTest, EndsEarlyWhenNotTaskedOrAGuardFileIsPresentOrCannotBeMade) {
  const std::string throttleCreated =
      "125000.000000 us, 125000000.000000 clock ticks per quantum of 10 reported events";
  objects_ = {Make(Interval, "iv")};
  tasked_ = false;
  testing::WriteFile(guard_.path(), "");
  EXPECT_EQ(Run(), ReportingRunOutcome::NotTasked);
  EXPECT_TRUE(testing::PathExists(guard_.path())) << "an untasked run touched the guard file";
  EXPECT_EQ(Messages(), Lines{}) << "not even the throttle's creation line: nothing was reported";

  tasked_ = true;
  EXPECT_EQ(Run(), ReportingRunOutcome::BailedOnGuardFile);
  EXPECT_FALSE(testing::PathExists(guard_.path()));
  EXPECT_EQ(Messages(), (Lines{"Bailing due to cookie file", "Cleared cookie file"}));

  CookieFile unreachable(dir_.file("missing/lumvane_running"));
  cookie_ = &unreachable;
  EXPECT_EQ(Run(), ReportingRunOutcome::GuardFileNotCreated);
  EXPECT_EQ(Messages().back(), "Could not create cookie file");
  EXPECT_EQ(extractorsMade_, 0);
  EXPECT_TRUE(reports_.empty());
  EXPECT_TRUE(timers_.manual.timers().empty());
  // Nothing of the failure is remembered: once the path can be made, the next run proceeds.
  ASSERT_TRUE(std::filesystem::create_directory(dir_.file("missing")));
  EXPECT_EQ(Run(), ReportingRunOutcome::Processed);
  EXPECT_EQ(capture_.log().count("Created cookie file"), 1u);
  EXPECT_EQ(capture_.log().count(throttleCreated), 1u);

  cookie_ = &guard_;
  bootFs_.reset();
  EXPECT_EQ(Run(), ReportingRunOutcome::Processed) << "the run after a bail proceeds";
  auto events = sink_->events();
  ASSERT_EQ(events.size(), 4u);
  for (size_t i = 2; i < 4; ++i) {
    EXPECT_EQ(events[i].payload.keys().back(), "BootDiskType");
    EXPECT_FALSE(events[i].payload.contains("BootPartitionFS")) << "no filesystem type was found";
  }
}

TEST_F(ReportingRunTest, SendsEachAcceptedObjectOfTheLastDayTwiceWithBootKeysThenReports) {
  objects_ = {Make(Interval, "iv"), Make(Interval, "off", /*enabled=*/false), Make(Animation, "anim"),
              Make(Event, "ev"), Make(Event, "neg", true, -1.0f), Make(Event, "ev2"),
              Make(Event, "ev3")};
  std::optional<std::pair<Date, Date>> asked;
  hook_ = [&](size_t i) {
    if (i == 0) {
      EXPECT_TRUE(testing::PathExists(guard_.path())) << "no guard file while processing";
      EXPECT_FALSE(Extractor()->lastPath()) << "the run must read the machine's own store";
      EXPECT_FALSE(Extractor()->buildAnimationCompositeIntervalTimelines());
      asked.emplace(Extractor()->lastStartDate(), Extractor()->lastEndDate());
    }
    // 1 s from the run's start to its first object, then 5 ms between objects:
    // the first quantum (five accepted objects) lasts 30 ms from the first event.
    clock_.advance(i == 0 ? 1'000'000'000 : 5'000'000);
  };
  EXPECT_EQ(Run(), ReportingRunOutcome::Processed);
  EXPECT_EQ(sleeper_.sleeps(), std::vector<uint32_t>{95000});
  Lines expected;
  for (const char* name : {"iv", "anim", "ev", "ev2", "ev3"}) {
    expected.insert(expected.end(), {"com.orvel.performance.signpost",
                                     std::string("sp__com.orvel.test__cat__") + name});
  }
  const auto events = sink_->events();
  Lines names;
  for (const auto& e : events) names.push_back(e.name);
  EXPECT_EQ(names, expected);
  const Value* fs = events.at(0).payload.find("BootPartitionFS");
  EXPECT_TRUE(fs && fs->asString() && *fs->asString() == "ext4");
  // The day before the first reading of the clock, up to the second reading.
  const Date dayBefore = nows_[0] - std::chrono::seconds(86400);
  EXPECT_EQ(asked, std::make_pair(dayBefore, nows_[1]));
  ASSERT_EQ(reports_.size(), 1u);
  EXPECT_TRUE(reports_[0].onReportQueue);
  EXPECT_TRUE(reports_[0].guardPresent) << "guard file removed before the report";
  EXPECT_FALSE(reports_[0].wasInterrupted);
  EXPECT_EQ(reports_[0].sendsDelivered, expected.size());
  EXPECT_EQ(std::make_pair(reports_[0].periodStart, reports_[0].periodEnd),
            std::make_pair(dayBefore, nows_[1]));
  EXPECT_FALSE(testing::PathExists(guard_.path()));
  EXPECT_LT(IndexOf("Boot disk type: SSD"), Messages().size());
  EXPECT_FALSE(Extractor()) << "the extractor outlived its run";
}

TEST_F(ReportingRunTest, FailedProcessingIsLoggedAndStillReportedAndCleared) {
  const struct {
    std::optional<Error> failure;
    std::string message;
  } cases[] = {
      {Error("cannot open the log store"),
       "Failed to process signpost data due to error: cannot open the log store"},
      {std::nullopt, "Failed to process signpost data due to error: (null)"},
  };
  objects_ = {Make(Event, "ev")};
  fail_ = true;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    failure_ = c.failure;
    std::optional<Error> error = Error("not overwritten");
    EXPECT_EQ(Run(&error), ReportingRunOutcome::ProcessingFailed);
    EXPECT_EQ(error ? error->localizedDescription() : "(none)",
              c.failure ? c.failure->localizedDescription() : "(none)");
    EXPECT_EQ(capture_.log().count(c.message), 1u);
    ASSERT_FALSE(reports_.empty());
    EXPECT_TRUE(reports_.back().guardPresent) << "guard file removed before the report";
    EXPECT_FALSE(testing::PathExists(guard_.path()));
  }
  EXPECT_EQ(reports_.size(), 2u);
  EXPECT_TRUE(sink_->events().empty());
}

TEST_F(ReportingRunTest, DeferralPollStopsTheExtractorOnlyWhenAskedAndNeverKeepsItAlive) {
  objects_ = {Make(Event, "a"), Make(Event, "b"), Make(Event, "c")};
  hook_ = [&](size_t i) {
    if (i > 1) return;
    scheduler_.setShouldDefer(i == 1);
    // A poll that finds deferral again asks again.
    for (int poll = 0; poll <= static_cast<int>(i); ++poll) EXPECT_EQ(timers_.manual.fireAll(), 1);
    EXPECT_EQ(Extractor()->stopRequestCount(), 2 * static_cast<int>(i));
  };
  EXPECT_EQ(Run(), ReportingRunOutcome::Processed);

  // Polled at once, then every 10 s give or take 10 s, until processing ends.
  auto timers = timers_.manual.timers();
  ASSERT_EQ(timers.size(), 1u);
  using std::chrono::seconds;
  EXPECT_EQ(std::make_tuple(timers[0].startDelay, timers[0].period, timers[0].leeway),
            std::make_tuple(seconds(0), seconds(10), seconds(10)));
  EXPECT_TRUE(timers[0].started && timers[0].cancelled);
  EXPECT_EQ(timers_.manual.fireAll(), 0);
  const std::string stop = "Trying to stop in-flight reporting work.",
                    concluded = "Concluding processing due to deferral request";
  EXPECT_EQ(capture_.log().count("Deferral not requested, continuing."), 1u);
  EXPECT_LT(IndexOf(stop), IndexOf(concluded));
  ASSERT_EQ(reports_.size(), 1u);
  EXPECT_TRUE(reports_[0].wasInterrupted);
  EXPECT_EQ(scheduler_.calls(), Lines(3, "shouldDefer")) << "the run itself sets no activity state";

  // A poll handler left over reaches no extractor (that it keeps none alive, the sending test shows).
  ASSERT_EQ(timers_.kept.size(), 1u);
  timers_.kept[0].second();
  EXPECT_EQ(capture_.log().count(concluded), 3u);
}

TEST_F(ReportingRunTest, APollUnderWayWhenProcessingEndsFinishesBeforeTheReport) {
  GatedScheduler gated;
  schedulerInUse_ = &gated;
  objects_ = {Make(Event, "a"), Make(Event, "b")};
  hook_ = [&](size_t i) {
    if (i != 1) return;
    // Start a poll on the timer's own queue and let processing end while it is still asking.
    timers_.kept.at(0).first->async(timers_.kept.at(0).second);
    std::unique_lock<std::mutex> lock(gated.mu);
    gated.cv.wait(lock, [&] { return gated.entered; });
  };
  // Opens the gate once the report has run, or after 200 ms when the run
  // (rightly) holds the report back until the poll is over.
  std::thread opener([&] {
    {
      std::unique_lock<std::mutex> lock(reportMu_);
      reportCv_.wait_for(lock, std::chrono::milliseconds(200), [&] { return !reports_.empty(); });
    }
    std::lock_guard<std::mutex> lock(gated.mu);
    gated.open = true;
    gated.cv.notify_all();
  });
  EXPECT_EQ(Run(), ReportingRunOutcome::Processed);
  opener.join();
  ASSERT_EQ(reports_.size(), 1u);
  EXPECT_TRUE(reports_[0].wasInterrupted) << "the report ran before the poll had finished";
  EXPECT_EQ(capture_.log().count("Concluding processing due to deferral request"), 1u);
}

}  // namespace
}  // namespace lumvane

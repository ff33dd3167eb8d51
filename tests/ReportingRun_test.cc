#include "lumvane/ReportingRun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <thread>

#include "lumvane/platform/DovetelEventSink.h"
#include "lumvane/platform/InternalDiagnostics.h"
#include "lumvane/signpost/SignpostAnimationInterval.h"
#include "tests/support/TestSupport.h"
#include "tests/support/platform/FakeContinuousClock.h"
#include "tests/support/platform/FakeInternalDiagnosticsCheck.h"
#include "tests/support/platform/ManualTimerFactory.h"
#include "tests/support/platform/RecordingActivityScheduler.h"
#include "tests/support/platform/RecordingDovetelSink.h"
#include "tests/support/platform/RecordingSleeper.h"
#include "tests/support/signpost/ScriptedExtractor.h"

namespace lumvane {
namespace {

using ObjectPtr = std::shared_ptr<const SignpostObject>;
constexpr const char* kGeneralEvent = "com.orvel.performance.signpost";
constexpr const char* kThrottleCreated =
    "125000.000000 us, 125000000.000000 clock ticks per quantum of 10 reported events";

enum Kind { Event, Interval, Animation };

ObjectPtr Make(Kind kind, std::string name, bool enabled = true, float duration = 0.5f) {
  SignpostObjectProperties p;
  p.subsystem = "com.orvel.test", p.category = "cat", p.name = std::move(name);
  p.telemetryEnabled = enabled, p.durationSeconds = duration;
  switch (kind) {
    case Event: return std::make_shared<const SignpostEvent>(p, "proc", "/bin/proc");
    case Interval: return std::make_shared<const SignpostInterval>(p, nullptr, nullptr);
    case Animation:
      return std::make_shared<const SignpostAnimationInterval>(p, nullptr, nullptr, Dictionary(),
                                                               60.0f);
  }
  return nullptr;
}

// The string at `key`, or "<none>".
std::string StringAt(const Dictionary& d, const char* key) {
  const Value* v = d.find(key);
  return v && v->asString() ? *v->asString() : "<none>";
}

// Hands timers to a ManualTimerFactory but keeps its own copy of every
// handler and queue, as a timer whose last firing is still pending would.
class KeepingTimerFactory final : public TimerFactory {
 public:
  struct Kept {
    std::shared_ptr<WorkQueue> queue;
    std::function<void()> handler;
  };
  std::unique_ptr<RepeatingTimer> makeRepeatingTimer(std::shared_ptr<WorkQueue> queue,
                                                     std::function<void()> handler) override {
    kept.push_back({queue, handler});
    return manual.makeRepeatingTimer(std::move(queue), std::move(handler));
  }
  ManualTimerFactory manual;
  std::vector<Kept> kept;
};

// A scheduler whose shouldDefer() answers true only once its gate opens, so
// that a test can hold a deferral poll in the middle of its work.
class GatedScheduler final : public ActivityScheduler {
 public:
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
  bool onReportQueue = false;
  size_t sendsDelivered = 0;
  bool wasInterrupted = false;
  Date periodStart{}, periodEnd{};
  bool guardPresentAfter = false;  // the guard file, once the report had finished
};

class ReportingRunTest : public ::testing::Test {
 protected:
  void SetUp() override {
    previousSink_ = ExchangeDovetelEventSink(sink_);
    previousCheck_ = ExchangeInternalDiagnosticsCheck(
        std::make_shared<FakeInternalDiagnosticsCheck>(false));
  }
  void TearDown() override {
    ExchangeDovetelEventSink(previousSink_);
    ExchangeInternalDiagnosticsCheck(previousCheck_);
  }

  ReportingRunEnvironment Env() {
    return ReportingRunEnvironment{
        *schedulerInUse_,
        [this]() -> std::shared_ptr<VantrelObjectExtractor> {
          auto e = std::make_shared<ScriptedExtractor>(objects_);
          if (fail_) e->failWith(failure_);
          if (hook_) e->setBeforeDeliveryHook(hook_);
          extractor_ = e;
          ++extractorsMade_;
          return e;
        },
        timers_,
        clock_,
        throttle_,
        *queue_,
        *cookie_,
        [this] { return tasked_; },
        [this] { return bootFs_; },
        [this] { return nows_.at(nowCalls_++); },
        [this](const RunStatisticsInput& in) {
          ReportView view{queue_->isCurrent(), sink_->events().size(), in.wasInterrupted->load(),
                          in.periodStart, in.periodEnd};
          if (realReport_) reporter_.reportRunStatistics(in);
          view.guardPresentAfter = testing::PathExists(cookie_->path());
          std::lock_guard<std::mutex> lock(reportMu_);
          reports_.push_back(view);
          reportCv_.notify_all();
        },
    };
  }

  ReportingRunOutcome Run(std::optional<Error>* error = nullptr) {
    nowCalls_ = 0;
    return performReportingRun(activity_, Env(), error);
  }
  std::shared_ptr<ScriptedExtractor> Extractor() { return extractor_.lock(); }
  std::vector<std::string> Messages() { return capture_.log().messages(); }
  // Index of the first message equal to `text`, or the number of messages.
  size_t IndexOf(const std::string& text) {
    auto m = Messages();
    return static_cast<size_t>(std::find(m.begin(), m.end(), text) - m.begin());
  }

  testing::ScopedLogCapture capture_;
  testing::TempDir dir_;
  std::shared_ptr<RecordingDovetelSink> sink_ = std::make_shared<RecordingDovetelSink>();
  std::shared_ptr<DovetelEventSink> previousSink_;
  std::shared_ptr<InternalDiagnosticsCheck> previousCheck_;
  RecordingActivityScheduler scheduler_;
  ActivityScheduler* schedulerInUse_ = &scheduler_;
  std::shared_ptr<Activity> activity_ = std::make_shared<Activity>("test activity");
  KeepingTimerFactory timers_;
  FakeContinuousClock clock_;
  RecordingSleeper sleeper_{&clock_};
  ReportThrottle throttle_{clock_, sleeper_};
  RunStatisticsReporter reporter_{clock_, throttle_, [](Date) { return std::string("date"); }};
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
  bool realReport_ = false;
  std::weak_ptr<ScriptedExtractor> extractor_;
  int extractorsMade_ = 0;
  std::vector<ReportView> reports_;
  std::mutex reportMu_;
  std::condition_variable reportCv_;
};

TEST_F(ReportingRunTest, EndsEarlyWhenNotTaskedOrAGuardFileIsPresentOrCannotBeMade) {
  objects_ = {Make(Interval, "iv")};
  tasked_ = false;
  testing::WriteFile(guard_.path(), "");
  EXPECT_EQ(Run(), ReportingRunOutcome::NotTasked);
  EXPECT_TRUE(testing::PathExists(guard_.path())) << "an untasked run touched the guard file";
  // Not even the throttle's creation line: nothing was reported.
  EXPECT_TRUE(Messages().empty()) << ::testing::PrintToString(Messages());

  tasked_ = true;
  EXPECT_EQ(Run(), ReportingRunOutcome::BailedOnGuardFile);
  EXPECT_FALSE(testing::PathExists(guard_.path()));
  EXPECT_LT(IndexOf("Bailing due to cookie file"), IndexOf("Cleared cookie file"));
  EXPECT_EQ(IndexOf("Created cookie file"), Messages().size());
  EXPECT_EQ(IndexOf(kThrottleCreated), Messages().size());

  CookieFile unreachable(dir_.file("missing/lumvane_running"));
  cookie_ = &unreachable;
  EXPECT_EQ(Run(), ReportingRunOutcome::GuardFileNotCreated);
  EXPECT_EQ(capture_.log().count("Could not create cookie file"), 1u);
  EXPECT_EQ(extractorsMade_, 0);
  EXPECT_TRUE(reports_.empty());
  EXPECT_TRUE(timers_.manual.timers().empty());
  // Nothing of the failure is remembered: once the path can be created, the
  // next run tries again and proceeds.
  ASSERT_TRUE(std::filesystem::create_directory(dir_.file("missing")));
  EXPECT_EQ(Run(), ReportingRunOutcome::Processed);
  EXPECT_EQ(capture_.log().count("Created cookie file"), 1u);
  EXPECT_FALSE(testing::PathExists(unreachable.path()));

  cookie_ = &guard_;
  bootFs_.reset();
  EXPECT_EQ(Run(), ReportingRunOutcome::Processed) << "the run after a bail proceeds";
  EXPECT_FALSE(testing::PathExists(guard_.path()));
  auto events = sink_->events();
  ASSERT_EQ(events.size(), 4u);
  for (size_t i = 2; i < 4; ++i) {
    EXPECT_EQ(events[i].payload.keys().back(), "BootDiskType");
    EXPECT_FALSE(events[i].payload.contains("BootPartitionFS")) << "no filesystem type was found";
  }
}

TEST_F(ReportingRunTest, SendsEachAcceptedObjectOfTheLastDayTwiceWithBootKeysThenReports) {
  std::optional<std::pair<Date, Date>> asked;
  hook_ = [&](size_t) {
    auto e = Extractor();
    EXPECT_FALSE(e->lastPath()) << "the run must read the machine's own store";
    EXPECT_FALSE(e->buildAnimationCompositeIntervalTimelines());
    asked.emplace(e->lastStartDate(), e->lastEndDate());
  };
  objects_ = {Make(Interval, "iv"), Make(Interval, "off", /*enabled=*/false),
              Make(Animation, "anim"), Make(Event, "ev"), Make(Event, "neg", true, -1.0f),
              Make(Event, "ev2"), Make(Event, "ev3")};
  const auto firstHook = hook_;
  hook_ = [&](size_t i) {
    if (i == 0) firstHook(i);
    // A second passes between the run's start and its first object, then
    // 5 ms between objects: the first quantum (five accepted objects) lasts
    // 30 ms from the first reported event.
    clock_.advance(i == 0 ? 1'000'000'000 : 5'000'000);
  };
  EXPECT_EQ(Run(), ReportingRunOutcome::Processed);
  EXPECT_EQ(sleeper_.sleeps(), std::vector<uint32_t>{95000});
  auto events = sink_->events();
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"iv", "Interval"}, {"anim", "AnimationInterval"}, {"ev", "Event"}, {"ev2", "Event"},
      {"ev3", "Event"}};
  ASSERT_EQ(events.size(), 2 * expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    const auto& [name, type] = expected[i];
    const auto& general = events[2 * i];
    const auto& specific = events[2 * i + 1];
    EXPECT_EQ(general.name, kGeneralEvent);
    EXPECT_EQ(specific.name, "sp__com.orvel.test__cat__" + name);
    EXPECT_EQ(general.payload, specific.payload);
    EXPECT_EQ(StringAt(general.payload, "IntervalType"), type);
    // The run's own keys follow the object's payload, in this order.
    const auto keys = general.payload.keys();
    ASSERT_GE(keys.size(), 2u);
    EXPECT_EQ(std::vector<std::string>(keys.end() - 2, keys.end()),
              (std::vector<std::string>{"BootPartitionFS", "BootDiskType"}));
    EXPECT_EQ(StringAt(general.payload, "BootPartitionFS"), "ext4");
    EXPECT_EQ(StringAt(general.payload, "BootDiskType"), "SSD");
  }
  // The day before the first reading of the clock, up to the second.
  const Date dayBefore = nows_[0] - std::chrono::seconds(86400);
  EXPECT_EQ(nowCalls_, 2u);
  EXPECT_EQ(asked, std::make_pair(dayBefore, nows_[1]));
  ASSERT_EQ(reports_.size(), 1u);
  EXPECT_TRUE(reports_[0].onReportQueue);
  EXPECT_TRUE(reports_[0].guardPresentAfter) << "guard file removed before the report was done";
  EXPECT_EQ(reports_[0].sendsDelivered, events.size());
  EXPECT_EQ(reports_[0].periodStart, dayBefore);
  EXPECT_EQ(reports_[0].periodEnd, nows_[1]);
  EXPECT_LT(IndexOf("Boot disk type: SSD"), Messages().size());
  EXPECT_FALSE(Extractor()) << "the extractor outlived its run";
}

TEST_F(ReportingRunTest, FailedProcessingIsLoggedAndStillReportedAndCleared) {
  objects_ = {Make(Event, "ev")};
  fail_ = true;
  failure_ = Error("cannot open the log store");
  std::optional<Error> error;
  EXPECT_EQ(Run(&error), ReportingRunOutcome::ProcessingFailed);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->localizedDescription(), "cannot open the log store");
  EXPECT_EQ(capture_.log().count(
                "Failed to process signpost data due to error: cannot open the log store"),
            1u);
  ASSERT_EQ(reports_.size(), 1u);
  EXPECT_TRUE(reports_[0].guardPresentAfter) << "guard file removed before the report was done";
  EXPECT_FALSE(testing::PathExists(guard_.path()));

  failure_.reset();
  error.reset();
  EXPECT_EQ(Run(&error), ReportingRunOutcome::ProcessingFailed);
  EXPECT_FALSE(error);
  EXPECT_EQ(capture_.log().count("Failed to process signpost data due to error: (null)"), 1u);
  EXPECT_EQ(reports_.size(), 2u);
  EXPECT_FALSE(testing::PathExists(guard_.path()));
  EXPECT_TRUE(sink_->events().empty());
}

TEST_F(ReportingRunTest, DeferralRequestedMidProcessingStopsTheExtractorAndMarksTheReport) {
  objects_ = {Make(Event, "a"), Make(Event, "b"), Make(Event, "c")};
  realReport_ = true;
  hook_ = [&](size_t i) {
    if (i != 1) return;
    EXPECT_TRUE(testing::PathExists(guard_.path()));
    scheduler_.setShouldDefer(true);
    EXPECT_EQ(timers_.manual.fireAll(), 1);
    EXPECT_EQ(timers_.manual.fireAll(), 1);  // a poll that finds deferral again asks again
    EXPECT_EQ(Extractor()->stopRequestCount(), 2);
  };
  EXPECT_EQ(Run(), ReportingRunOutcome::Processed);

  // Polled at once, then every 10 s give or take 10 s, until processing ends.
  auto timers = timers_.manual.timers();
  ASSERT_EQ(timers.size(), 1u);
  using std::chrono::seconds;
  EXPECT_EQ(std::make_tuple(timers[0].startDelay, timers[0].period, timers[0].leeway),
            std::make_tuple(seconds(0), seconds(10), seconds(10)));
  EXPECT_TRUE(timers[0].started && timers[0].cancelled);

  EXPECT_LT(IndexOf("Trying to stop in-flight reporting work."),
            IndexOf("Concluding processing due to deferral request"));
  EXPECT_LT(IndexOf("Concluding processing due to deferral request"), Messages().size());
  ASSERT_EQ(reports_.size(), 1u);
  EXPECT_TRUE(reports_[0].wasInterrupted);
  EXPECT_TRUE(reports_[0].guardPresentAfter) << "guard file removed before the report was done";
  // Only the object before the stop is sent; the report's events follow.
  auto events = sink_->events();
  ASSERT_GE(events.size(), 3u);
  EXPECT_EQ(events[1].name, "sp__com.orvel.test__cat__a");
  EXPECT_NE(events[2].name, kGeneralEvent);
  EXPECT_EQ(events.back().name, "com.orvel.performance.signpost_reporting_stats");
  const Value* interrupted = events.back().payload.find("WasInterrupted");
  ASSERT_TRUE(interrupted && interrupted->asNumber());
  EXPECT_TRUE(interrupted->asNumber()->boolValue());
  EXPECT_FALSE(testing::PathExists(guard_.path()));
  EXPECT_EQ(scheduler_.calls(), (std::vector<std::string>{"shouldDefer", "shouldDefer"}))
      << "the run itself sets no activity state";
}

TEST_F(ReportingRunTest, PollWithoutDeferralContinuesAndHoldsTheExtractorOnlyWeakly) {
  objects_ = {Make(Event, "a"), Make(Event, "b")};
  hook_ = [&](size_t) { EXPECT_EQ(timers_.manual.fireAll(), 1); };
  EXPECT_EQ(Run(), ReportingRunOutcome::Processed);
  EXPECT_EQ(capture_.log().count("Deferral not requested, continuing."), 2u);
  EXPECT_EQ(capture_.log().count("Trying to stop in-flight reporting work."), 0u);
  ASSERT_EQ(reports_.size(), 1u);
  EXPECT_FALSE(reports_[0].wasInterrupted);
  EXPECT_EQ(sink_->events().size(), 4u);

  // A poll handler left over after the run must neither have kept the
  // extractor alive nor reach it now.
  EXPECT_EQ(timers_.manual.fireAll(), 0);
  ASSERT_EQ(timers_.kept.size(), 1u);
  EXPECT_TRUE(extractor_.expired()) << "the deferral poll kept the extractor alive";
  scheduler_.setShouldDefer(true);
  timers_.kept[0].handler();
  EXPECT_EQ(capture_.log().count("Concluding processing due to deferral request"), 1u);
  EXPECT_TRUE(extractor_.expired());
}

TEST_F(ReportingRunTest, APollUnderWayWhenProcessingEndsFinishesBeforeTheReport) {
  GatedScheduler gated;
  schedulerInUse_ = &gated;
  objects_ = {Make(Event, "a"), Make(Event, "b")};
  hook_ = [&](size_t i) {
    if (i != 1) return;
    // Start a poll on the timer's own queue and let processing end while
    // it is still asking the scheduler.
    timers_.kept.at(0).queue->async(timers_.kept.at(0).handler);
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

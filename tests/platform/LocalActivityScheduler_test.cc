#include "lumvane/platform/LocalActivityScheduler.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <thread>

#include "lumvane/platform/CountingSemaphore.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using std::chrono::seconds;
using States = std::vector<ActivityState>;

const Date kStart{seconds(1'800'000'000)};

// A scheduler over a temporary state directory (a day's interval, ten minutes' retry) and a wall clock that
// moves only when the test moves it. The handler records its state and does what `onRun` says during runs.
struct Fixture {
  testing::TempDir dir;
  Date now = kStart;
  std::vector<std::string> reports;
  States states;
  std::vector<int> exits;
  std::function<void(LocalActivityScheduler&, const Activity&)> onRun;

  std::unique_ptr<LocalActivityScheduler> make(bool exitWhenCleanEndsProcess = false) {
    LocalActivitySchedulerOptions options;
    options.stateDirectory = dir.path();
    options.exitWhenCleanEndsProcess = exitWhenCleanEndsProcess;
    options.now = [this] { return now; };
    options.exitProcess = [this](int status) { exits.push_back(status); };
    options.report = [this](const std::string& line) { reports.push_back(line); };
    auto scheduler = std::make_unique<LocalActivityScheduler>(options);
    LocalActivityScheduler* s = scheduler.get();
    s->registerActivity("com.orvel.signpost.lumvane_activity", ActivityCriteria::CheckIn,
                        [this, s](std::shared_ptr<Activity> activity) {
                          auto transaction = s->beginTransaction("t");
                          states.push_back(s->activityState(*activity));
                          if (states.back() == kActivityStateRun && onRun) onRun(*s, *activity);
                          s->exitWhenClean();
                        });
    return scheduler;
  }
  std::string record() { return testing::ReadFile(dir.file("activity-last-run")); }
};

TEST(LocalActivitySchedulerTest, ChecksInThenRunsAtOnceWithoutRecordAndAgainAfterTheInterval) {
  Fixture f;
  auto scheduler = f.make();
  EXPECT_EQ(scheduler->runDueActivities(), 2);
  EXPECT_EQ(f.states, (States{kActivityStateCheckIn, kActivityStateRun}));
  EXPECT_EQ(f.record(), "1800000000\n");

  // Restarted a minute later: the record stands, so only a check-in, and the run is due a day after it.
  f.now += seconds(60);
  scheduler = f.make();
  EXPECT_EQ(scheduler->runDueActivities(), 1);
  EXPECT_EQ(f.states, (States{kActivityStateCheckIn, kActivityStateRun, kActivityStateCheckIn}));
  EXPECT_EQ(scheduler->nextDueDate(), kStart + seconds(86400));
  f.now = kStart + seconds(86399);
  EXPECT_EQ(scheduler->runDueActivities(), 0);
  f.now += seconds(1);
  EXPECT_EQ(scheduler->runDueActivities(), 1);
  EXPECT_EQ(f.record(), "1800086400\n");
  EXPECT_TRUE(scheduler->isIdle());
  EXPECT_TRUE(f.exits.empty()) << "only marks idle unless told to end the process";
  EXPECT_TRUE(f.reports.empty());

  // An unreadable record is reported and counts as none: the scheduler's own thread runs at once.
  testing::WriteFile(f.dir.file("activity-last-run"), "yesterday\n");
  CountingSemaphore ran;
  std::thread::id caller;
  f.onRun = [&](LocalActivityScheduler&, const Activity&) {
    caller = std::this_thread::get_id();
    ran.signal();
  };
  scheduler = f.make();
  ASSERT_EQ(f.reports.size(), 1u);
  EXPECT_NE(f.reports[0].find(f.dir.file("activity-last-run")), std::string::npos);
  scheduler->start();
  ASSERT_TRUE(ran.waitFor(seconds(5)));
  EXPECT_NE(caller, std::this_thread::get_id());
}

TEST(LocalActivitySchedulerTest, AcceptedDeferWritesNoRecordAndRetriesLater) {
  Fixture f;
  std::vector<bool> answers;
  f.onRun = [&](LocalActivityScheduler& s, const Activity& a) {
    answers.push_back(s.shouldDefer(a));
    answers.push_back(s.setActivityState(a, kActivityStateDefer));
  };
  auto scheduler = f.make();
  testing::WriteFile(scheduler->deferFilePath(), "");
  ASSERT_EQ(scheduler->runDueActivities(), 2);
  EXPECT_EQ(answers, (std::vector<bool>{true, true}));
  EXPECT_FALSE(std::ifstream(scheduler->lastRunRecordPath()).good());
  EXPECT_EQ(scheduler->activityState(*std::make_shared<Activity>("other")), -1);

  f.now += seconds(599);
  EXPECT_EQ(scheduler->runDueActivities(), 0);
  f.now += seconds(1);
  std::remove(scheduler->deferFilePath().c_str());
  EXPECT_EQ(scheduler->runDueActivities(), 1);
  EXPECT_EQ(answers, (std::vector<bool>{true, true, false, false})) << "defer refused";
  EXPECT_EQ(f.record(), "1800000600\n");
}

TEST(LocalActivitySchedulerTest, EndsTheProcessOnlyWhenCleanAndAfterTheDueRun) {
  Fixture f;
  std::unique_ptr<Transaction> heldOpen;
  f.onRun = [&](LocalActivityScheduler& s, const Activity&) { heldOpen = s.beginTransaction("outlives"); };
  auto scheduler = f.make(/*exitWhenCleanEndsProcess=*/true);
  EXPECT_EQ(scheduler->runDueActivities(), 2);
  EXPECT_TRUE(f.exits.empty()) << "a transaction is still open";
  heldOpen.reset();
  EXPECT_EQ(scheduler->runDueActivities(), 0);
  EXPECT_EQ(f.exits, std::vector<int>{0});
  EXPECT_EQ(f.record(), "1800000000\n") << "the record is written before the process ends";
}

TEST(LocalActivitySchedulerTest, EnvironmentGivesTheScheduleAndBadValuesFallBack) {
  std::map<std::string, std::string> env{{"LUMVANE_STATE_DIR", "/srv/state"},
                                         {"LUMVANE_ACTIVITY_INTERVAL", "3600"},
                                         {"LUMVANE_DEFER_RETRY", "60"},
                                         {"LUMVANE_EXIT_WHEN_CLEAN", "1"}};
  std::vector<std::string> reports;
  auto schedule = [&] {
    auto o = LocalActivitySchedulerOptions::fromEnvironment(
        [&](const char* name) -> const char* {
          auto it = env.find(name);
          return it == env.end() ? nullptr : it->second.c_str();
        },
        [&](const std::string& line) { reports.push_back(line); });
    return std::make_tuple(o.stateDirectory, o.activityInterval, o.deferRetry, o.exitWhenCleanEndsProcess);
  };
  EXPECT_EQ(schedule(), std::make_tuple("/srv/state", seconds(3600), seconds(60), true));
  EXPECT_TRUE(reports.empty());

  env = {{"LUMVANE_ACTIVITY_INTERVAL", "-5"}, {"LUMVANE_DEFER_RETRY", "0"},
         {"LUMVANE_EXIT_WHEN_CLEAN", "yes"}};
  EXPECT_EQ(schedule(), std::make_tuple("/var/lib/lumvane", seconds(86400), seconds(600), false));
  ASSERT_EQ(reports.size(), 3u);
  EXPECT_EQ(reports[0],
            "lumvane: LUMVANE_ACTIVITY_INTERVAL=-5 is not a whole number of seconds from 1 to 3153600000; "
            "using 86400");
}

}  // namespace
}  // namespace lumvane

#include "lumvane/platform/ForegroundActivityScheduler.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

TEST(ForegroundActivitySchedulerTest, RunsOnceInTheRunStateAndDefersOnlyWhileTheFileExists) {
  testing::TempDir dir;
  ForegroundActivityScheduler scheduler(dir.path());
  EXPECT_FALSE(scheduler.runOnce()) << "nothing registered yet";

  std::vector<ActivityState> states;
  std::vector<bool> deferAccepted;
  scheduler.registerActivity("act", ActivityCriteria::CheckIn,
                             [&](std::shared_ptr<Activity> activity) {
                               ASSERT_TRUE(activity);
                               EXPECT_EQ(activity->identifier(), "act");
                               states.push_back(scheduler.activityState(*activity));
                               deferAccepted.push_back(
                                   scheduler.shouldDefer(*activity) &&
                                   scheduler.setActivityState(*activity, kActivityStateDefer));
                             });
  EXPECT_TRUE(scheduler.runOnce());
  EXPECT_FALSE(scheduler.deferred());

  testing::WriteFile(scheduler.deferFilePath(), "");
  EXPECT_TRUE(scheduler.runOnce());
  EXPECT_EQ(deferAccepted, (std::vector<bool>{false, true}));
  EXPECT_TRUE(scheduler.deferred());

  Activity other("act");
  EXPECT_FALSE(scheduler.setActivityState(other, kActivityStateRun)) << "only a defer is taken";
  ASSERT_EQ(::remove(scheduler.deferFilePath().c_str()), 0);
  EXPECT_FALSE(scheduler.setActivityState(other, kActivityStateDefer));
  EXPECT_TRUE(scheduler.runOnce());
  EXPECT_FALSE(scheduler.deferred()) << "a new run starts undeferred";
  EXPECT_EQ(states, std::vector<ActivityState>(3, kActivityStateRun));
  EXPECT_EQ(deferAccepted, (std::vector<bool>{false, true, false}));
}

}  // namespace
}  // namespace lumvane

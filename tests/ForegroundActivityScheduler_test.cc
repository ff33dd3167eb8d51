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
  std::vector<std::string> seen;  // identifier, state and whether a defer was taken, per run
  scheduler.registerActivity("act", ActivityCriteria::CheckIn, [&](std::shared_ptr<Activity> a) {
    const bool deferred = scheduler.shouldDefer(*a) && scheduler.setActivityState(*a, kActivityStateDefer);
    seen.push_back(a->identifier() + " " + std::to_string(scheduler.activityState(*a)) +
                   (deferred ? " deferred" : ""));
  });
  EXPECT_TRUE(scheduler.runOnce());
  EXPECT_FALSE(scheduler.deferred());
  testing::WriteFile(scheduler.deferFilePath(), "");
  EXPECT_TRUE(scheduler.runOnce());
  EXPECT_TRUE(scheduler.deferred());
  Activity other("act");
  EXPECT_FALSE(scheduler.setActivityState(other, kActivityStateRun)) << "only a defer is taken";
  ASSERT_EQ(::remove(scheduler.deferFilePath().c_str()), 0);
  EXPECT_FALSE(scheduler.setActivityState(other, kActivityStateDefer));
  EXPECT_TRUE(scheduler.runOnce());
  EXPECT_FALSE(scheduler.deferred()) << "a new run starts undeferred";
  EXPECT_EQ(seen, (std::vector<std::string>{"act 2", "act 2 deferred", "act 2"}));
}

}  // namespace
}  // namespace lumvane

#include "lumvane/ActivityHandler.h"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"
#include "tests/support/platform/RecordingActivityScheduler.h"

namespace lumvane {
namespace {

TEST(ActivityHandlerTest, CallsTheSchedulerInOrderInsideOneTransactionForEachState) {
  using Lines = std::vector<std::string>;
  struct Case {
    ActivityState state;
    bool shouldDefer, acceptsDefer;
    Lines between, messages;  // calls between reading the state and exitWhenClean; log
  };
  std::vector<Case> cases = {
      {kActivityStateRun, false, true, {"shouldDefer", "run"}, {}},
      // An accepted defer skips the run; a refused one runs all the same.
      {kActivityStateRun, true, true, {"shouldDefer", "setActivityState:3"}, {"Deferred lumvane\n"}},
      {kActivityStateRun, true, false, {"shouldDefer", "setActivityState:3", "run"}, {}},
      {kActivityStateCheckIn, true, true, {}, {"Checking in\n"}}};
  for (ActivityState other : {1L, 3L, 4L, 5L, -1L}) {
    cases.push_back({other, true, true, {}, {"Unknown state " + std::to_string(other) + "\n"}});
  }
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.state << " defer " << c.shouldDefer << c.acceptsDefer);
    testing::ScopedLogCapture capture;
    RecordingActivityScheduler scheduler;
    scheduler.registerActivity(kLumvaneActivityIdentifier, ActivityCriteria::CheckIn,
                               [](std::shared_ptr<Activity>) {});
    scheduler.clearCalls();
    scheduler.setState(c.state);
    scheduler.setShouldDefer(c.shouldDefer);
    scheduler.setAcceptsDefer(c.acceptsDefer);
    auto activity = scheduler.activity();
    long runAt = -1;  // how many scheduler calls came before the run
    handleActivity(scheduler, activity, [&](const std::shared_ptr<Activity>& given) {
      EXPECT_EQ(given, activity);
      EXPECT_EQ(runAt, -1) << "ran twice";
      runAt = static_cast<long>(scheduler.calls().size());
    });
    EXPECT_EQ(activity.use_count(), 2) << "the handler kept the activity handle";
    Lines calls = scheduler.calls();
    if (runAt >= 0) calls.insert(calls.begin() + runAt, "run");
    const std::string name = "com.orvel.signpost.lumvane_activity transaction";
    Lines expected{"beginTransaction:" + name, "activityState"};
    expected.insert(expected.end(), c.between.begin(), c.between.end());
    expected.insert(expected.end(), {"exitWhenClean", "endTransaction:" + name});
    EXPECT_EQ(calls, expected);
    EXPECT_EQ(capture.log().messages(), c.messages);
  }
}

}  // namespace
}  // namespace lumvane

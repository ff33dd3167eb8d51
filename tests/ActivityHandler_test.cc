#include "lumvane/ActivityHandler.h"

#include <gtest/gtest.h>

#include "lumvane/platform/RecordingActivityScheduler.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

const std::string kBegin = "beginTransaction:com.orvel.signpost.lumvane_activity transaction";
const std::string kEnd = "endTransaction:com.orvel.signpost.lumvane_activity transaction";

struct Outcome {
  std::vector<std::string> calls;  // scheduler calls, with "run" where the run took place
  std::vector<std::string> messages;
};

Outcome Handle(ActivityState state, bool shouldDefer = false, bool acceptsDefer = true) {
  testing::ScopedLogCapture capture;
  RecordingActivityScheduler scheduler;
  scheduler.registerActivity(kLumvaneActivityIdentifier, ActivityCriteria::CheckIn,
                             [](std::shared_ptr<Activity>) {});
  scheduler.clearCalls();
  scheduler.setState(state);
  scheduler.setShouldDefer(shouldDefer);
  scheduler.setAcceptsDefer(acceptsDefer);
  std::vector<size_t> runsAt;  // how many scheduler calls came before each run
  auto activity = scheduler.activity();
  handleActivity(scheduler, activity, [&](const std::shared_ptr<Activity>& given) {
    EXPECT_EQ(given, activity);
    runsAt.push_back(scheduler.calls().size());
  });
  EXPECT_EQ(activity.use_count(), 2) << "the handler kept the activity handle";
  Outcome outcome{scheduler.calls(), capture.log().messages()};
  for (auto at = runsAt.rbegin(); at != runsAt.rend(); ++at) {
    outcome.calls.insert(outcome.calls.begin() + static_cast<long>(*at), "run");
  }
  return outcome;
}

TEST(ActivityHandlerTest, RunsWhenDueAndNotDeferredInsideOneTransaction) {
  Outcome o = Handle(kActivityStateRun);
  EXPECT_EQ(o.calls, (std::vector<std::string>{kBegin, "activityState", "shouldDefer", "run",
                                               "exitWhenClean", kEnd}));
  EXPECT_TRUE(o.messages.empty());
}

TEST(ActivityHandlerTest, AcceptedDeferSkipsTheRunAndARefusedOneRunsAllTheSame) {
  Outcome deferred = Handle(kActivityStateRun, /*shouldDefer=*/true, /*acceptsDefer=*/true);
  EXPECT_EQ(deferred.calls,
            (std::vector<std::string>{kBegin, "activityState", "shouldDefer",
                                      "setActivityState:3", "exitWhenClean", kEnd}));
  EXPECT_EQ(deferred.messages, std::vector<std::string>{"Deferred lumvane\n"});

  Outcome refused = Handle(kActivityStateRun, /*shouldDefer=*/true, /*acceptsDefer=*/false);
  EXPECT_EQ(refused.calls,
            (std::vector<std::string>{kBegin, "activityState", "shouldDefer",
                                      "setActivityState:3", "run", "exitWhenClean", kEnd}));
  EXPECT_TRUE(refused.messages.empty());
}

TEST(ActivityHandlerTest, CheckInAndUnknownStatesOnlyLog) {
  Outcome checkIn = Handle(kActivityStateCheckIn, /*shouldDefer=*/true);
  EXPECT_EQ(checkIn.calls,
            (std::vector<std::string>{kBegin, "activityState", "exitWhenClean", kEnd}));
  EXPECT_EQ(checkIn.messages, std::vector<std::string>{"Checking in\n"});

  for (ActivityState state : {1L, 3L, 4L, 5L, -1L}) {
    Outcome other = Handle(state, /*shouldDefer=*/true);
    EXPECT_EQ(other.calls,
              (std::vector<std::string>{kBegin, "activityState", "exitWhenClean", kEnd}));
    EXPECT_EQ(other.messages,
              std::vector<std::string>{"Unknown state " + std::to_string(state) + "\n"});
  }
}

}  // namespace
}  // namespace lumvane

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

Outcome Handle(ActivityState state, bool shouldDefer, bool acceptsDefer) {
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

TEST(ActivityHandlerTest, CallsTheSchedulerInOrderInsideOneTransactionForEachState) {
  using Lines = std::vector<std::string>;
  struct Case {
    ActivityState state;
    bool shouldDefer, acceptsDefer;
    Lines between;  // the calls between reading the state and exitWhenClean
    Lines messages;
  };
  const Case cases[] = {
      {kActivityStateRun, false, true, {"shouldDefer", "run"}, {}},
      // An accepted defer skips the run; a refused one runs all the same.
      {kActivityStateRun, true, true, {"shouldDefer", "setActivityState:3"},
       {"Deferred lumvane\n"}},
      {kActivityStateRun, true, false, {"shouldDefer", "setActivityState:3", "run"}, {}},
      // Other states only log, whatever deferral would say.
      {kActivityStateCheckIn, true, true, {}, {"Checking in\n"}},
      {1, true, true, {}, {"Unknown state 1\n"}},
      {3, true, true, {}, {"Unknown state 3\n"}},
      {4, true, true, {}, {"Unknown state 4\n"}},
      {5, true, true, {}, {"Unknown state 5\n"}},
      {-1, true, true, {}, {"Unknown state -1\n"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "state " << c.state << " shouldDefer " << c.shouldDefer
                                      << " acceptsDefer " << c.acceptsDefer);
    Outcome o = Handle(c.state, c.shouldDefer, c.acceptsDefer);
    Lines expected{kBegin, "activityState"};
    expected.insert(expected.end(), c.between.begin(), c.between.end());
    expected.insert(expected.end(), {"exitWhenClean", kEnd});
    EXPECT_EQ(o.calls, expected);
    EXPECT_EQ(o.messages, c.messages);
  }
}

}  // namespace
}  // namespace lumvane

#include "lumvane/ActivityHandler.h"

#include "lumvane/filter/LVLog.h"

namespace lumvane {

void handleActivity(ActivityScheduler& scheduler, std::shared_ptr<Activity> activity,
                    const ReportingRunOperation& performRun) {
  std::unique_ptr<Transaction> transaction =
      scheduler.beginTransaction(kLumvaneActivityTransactionName);
  const ActivityState state = scheduler.activityState(*activity);
  if (state == kActivityStateRun) {
    // A refused deferral is no error: the run goes ahead as if none had
    // been asked for.
    if (scheduler.shouldDefer(*activity) &&
        scheduler.setActivityState(*activity, kActivityStateDefer)) {
      LVLogDebug("Deferred lumvane\n");
    } else {
      performRun(activity);
    }
  } else if (state == kActivityStateCheckIn) {
    LVLogDebug("Checking in\n");
  } else {
    LVLogDebug("Unknown state %ld\n", state);
  }
  // This order lets the platform end the process as soon as the transaction
  // is over, and keeps the handle alive until then.
  scheduler.exitWhenClean();
  transaction.reset();
  activity.reset();
}

}  // namespace lumvane

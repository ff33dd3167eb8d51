// What the daemon does each time the scheduler calls it about its activity:
// within one transaction it reads the activity's state, then checks in, runs
// (or gives way when the scheduler asks for a deferral and accepts it), or
// notes an unknown state; finally it tells the scheduler that the process may
// exit once clean. The run itself is passed in, so that the handling can be
// tried without one.
#pragma once

#include <functional>
#include <memory>

#include "lumvane/platform/ActivityScheduler.h"

namespace lumvane {

inline constexpr char kLumvaneActivityIdentifier[] = "com.orvel.signpost.lumvane_activity";
inline constexpr char kLumvaneActivityTransactionName[] =
    "com.orvel.signpost.lumvane_activity transaction";

using ReportingRunOperation = std::function<void(const std::shared_ptr<Activity>&)>;

// Runs on the scheduler's handler thread; returns after the run, if any.
// The handle is held until the very end, after the transaction has ended.
void handleActivity(ActivityScheduler& scheduler, std::shared_ptr<Activity> activity,
                    const ReportingRunOperation& performRun);

}  // namespace lumvane

// The reporting run: one pass over the last day of the signpost log, from
// the tasking gate to the end-of-run report. The activity handler calls it on
// the scheduler's thread when the activity is due and not deferred; it
// returns when the run is over.
#pragma once

#include <memory>

#include "lumvane/platform/ActivityScheduler.h"

namespace lumvane {

void performReportingRun(const std::shared_ptr<Activity>& activity);

}  // namespace lumvane

// The serial queue that carries every telemetry send and the end-of-run
// report. Process-wide, labelled "lumvane Dovetel reporting queue", created on
// first use (the daemon's start-up makes that first use) and kept for the
// life of the process.
#pragma once

#include "lumvane/platform/WorkQueue.h"

namespace lumvane {

WorkQueue& reportingQueue();

}  // namespace lumvane

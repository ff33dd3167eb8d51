// The daemon's processing queue, "lumvane processing queue": a process-wide
// serial queue that serves the interrupt source only. Created on first use
// (the daemon's first start-up step) and kept for the life of the process.
#pragma once

#include "lumvane/platform/WorkQueue.h"

namespace lumvane {

WorkQueue& processingQueue();

}  // namespace lumvane

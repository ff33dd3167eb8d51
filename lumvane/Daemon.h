// The daemon's start-up: its process-wide queues, the exit on SIGINT and the
// registration of its one activity. After it the main thread has nothing
// left to do and parks; all work happens in the activity handler, on the
// scheduler's thread.
#pragma once

#include <optional>

#include "lumvane/platform/ActivityScheduler.h"
#include "lumvane/platform/Error.h"

namespace lumvane {

// SIGINT must already be blocked in every thread (BlockSignalInProcess,
// first thing in main). `scheduler` lives for the rest of the process. Fails
// only when the interrupt source cannot be made; nothing is registered then.
[[nodiscard]] std::optional<Error> startDaemon(ActivityScheduler& scheduler);

}  // namespace lumvane

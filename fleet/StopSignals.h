// How the long-running fleet programs end: SIGTERM (systemd's stop) and
// SIGINT (a terminal's ^C) set one process-wide flag that their loops poll,
// so that a batch in flight is finished, committed or acknowledged before the
// program exits. SIGPIPE is ignored: a dropped connection is an error value,
// not a death.
#pragma once

#include <atomic>

namespace lumvane::fleet {

// Installs the handlers once, on the main thread before any other starts, and
// returns the flag they set. The flag lives for the whole process.
const std::atomic<bool>& InstallStopSignals();

}  // namespace lumvane::fleet

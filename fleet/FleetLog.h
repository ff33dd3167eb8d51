// The fleet programs' diagnostics: one line per message on standard error,
// "<program>: <message>", which the service manager files in the journal.
// Thread-safe; lines from different threads never interleave.
#pragma once

#include <string>

namespace lumvane::fleet {

void SetFleetProgramName(const std::string& name);
void FleetLog(const std::string& message);
// Turns the log off (tests that open many connections) or back on; returns
// the previous setting.
bool SetFleetLogEnabled(bool enabled);

}  // namespace lumvane::fleet

// The directory of the local telemetry service: events go to events.ndjson in
// it, tasking configurations come from configurations/<type>.json. Taken from
// LUMVANE_DOVETEL_DIR, default /var/lib/lumvane/dovetel; read on every call so
// that a command-line override made before the run takes effect.
#pragma once

#include <string>

namespace lumvane {

std::string DovetelDirectory();

}  // namespace lumvane

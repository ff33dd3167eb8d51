// The name this machine goes by on the fleet's subjects: the systemd
// machine ID hashed with lumvane's own application ID
// (sd_id128_get_machine_app_specific), as 32 lower-case hex digits. The raw
// /etc/machine-id never leaves the machine, and the key cannot be turned
// back into it nor matched with what other programs derive from it.
#pragma once

#include <optional>
#include <string>

#include "lumvane/platform/Error.h"

namespace lumvane::upload {

// The error names /etc/machine-id and the reason (missing, empty, garbled).
[[nodiscard]] std::optional<Error> MachineKey(std::string* key);

}  // namespace lumvane::upload

// The type of the file system the device boots from ("ext4", "xfs", ...),
// sent with every payload of a run as "BootPartitionFS". Probed once per run;
// an unknown type only leaves that key out.
#pragma once

#include <optional>
#include <string>

namespace lumvane {

// The type name of the file system mounted at "/", exactly as the system
// reports it, or absent (after "Could not determine filesystem type") when
// the query fails or the name is not valid UTF-8.
std::optional<std::string> bootFilesystemType();

// The same, reading the mount table from `mountInfoPath` instead of the
// process's own.
std::optional<std::string> bootFilesystemType(const std::string& mountInfoPath);

}  // namespace lumvane

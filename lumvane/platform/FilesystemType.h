// The short type name ("ext4", "xfs", "overlay", ...) of the file system
// mounted at a directory.
//
// Linux's statfs record carries only a numeric type, so the query is done in
// two steps: statfs must succeed for the mount point, and the name is then
// taken from the mount table (the "/proc/self/mountinfo" format) as the type
// field of the last entry mounted at that point, the one that is visible.
// Octal escapes of the table (\040 for a space, ...) are decoded; the name is
// otherwise returned byte for byte, without any check of its encoding.
//
// Thread-safety: no shared state; callable from any thread.
#pragma once

#include <optional>
#include <string>

#include "lumvane/platform/Error.h"

namespace lumvane {

constexpr const char* kProcessMountInfoPath = "/proc/self/mountinfo";

// Fills `nameOut` and returns no error, or returns why the type is unknown.
[[nodiscard]] std::optional<Error> FilesystemTypeName(const std::string& mountPoint,
                                                      const std::string& mountInfoPath,
                                                      std::string* nameOut);

}  // namespace lumvane

#include "lumvane/BootFilesystemProbe.h"

#include <simdjson.h>

#include "lumvane/filter/LVLog.h"
#include "lumvane/platform/FilesystemType.h"

namespace lumvane {

std::optional<std::string> bootFilesystemType() {
  return bootFilesystemType(kProcessMountInfoPath);
}

std::optional<std::string> bootFilesystemType(const std::string& mountInfoPath) {
  std::string name;
  std::optional<Error> error = FilesystemTypeName("/", mountInfoPath, &name);
  if (error || !simdjson::validate_utf8(name.data(), name.size())) {
    LVLogDebug("Could not determine filesystem type");
    return std::nullopt;
  }
  LVLogDebug("Filesystem for '/': %@", name);
  return name;
}

}  // namespace lumvane

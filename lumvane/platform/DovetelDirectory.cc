#include "lumvane/platform/DovetelDirectory.h"

#include <cstdlib>

namespace lumvane {

std::string DovetelDirectory() {
  const char* dir = std::getenv("LUMVANE_DOVETEL_DIR");
  return dir && *dir ? dir : "/var/lib/lumvane/dovetel";
}

}  // namespace lumvane

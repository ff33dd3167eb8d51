#include "lumvane/signpost/SignpostStoreRandom.h"

#include <cinttypes>
#include <cstdio>

namespace lumvane {

std::string SignpostStoreRandom::hex128() {
  char buf[33];
  std::snprintf(buf, sizeof buf, "%016" PRIx64 "%016" PRIx64, next(), next());
  return buf;
}

}  // namespace lumvane

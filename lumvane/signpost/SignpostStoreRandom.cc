#include "lumvane/signpost/SignpostStoreRandom.h"

#include <cinttypes>
#include <cstdio>

namespace lumvane {

std::string SignpostStoreRandom::hex128() {
  // Drawn in sequence: the order in which a call's arguments are evaluated
  // differs between compilers, and the digits must not.
  const uint64_t low = next();
  const uint64_t high = next();
  char buf[33];
  std::snprintf(buf, sizeof buf, "%016" PRIx64 "%016" PRIx64, high, low);
  return buf;
}

}  // namespace lumvane

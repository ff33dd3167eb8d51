// The operating-system variants the daemon is built for. The platform picks
// the string whitelist and the built-in subsystem/category/name filter; this
// build always reports as Cirros. Values above 5 are not platforms.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace lumvane {

enum LVPlatform : uint32_t {
  LVPlatformUnknown = 0,
  LVPlatformArdenos = 1,
  LVPlatformBelvos = 2,
  LVPlatformCirros = 3,
  LVPlatformDalvos = 4,
  LVPlatformElmos = 5,
};

LVPlatform LVCurrentPlatform();

// Exact, case-sensitive match of "Ardenos" ... "Elmos"; anything else,
// "Unknown" and an absent name included, is LVPlatformUnknown.
LVPlatform LVPlatformFromName(const std::optional<std::string>& name);

// "Unknown" for 0 and for every value above 5.
const char* LVPlatformName(LVPlatform platform);

}  // namespace lumvane

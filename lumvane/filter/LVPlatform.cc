#include "lumvane/filter/LVPlatform.h"

namespace lumvane {
namespace {

constexpr const char* kPlatformNames[] = {"Unknown", "Ardenos", "Belvos",
                                          "Cirros",  "Dalvos",  "Elmos"};

}  // namespace

LVPlatform LVCurrentPlatform() { return LVPlatformCirros; }

LVPlatform LVPlatformFromName(const std::optional<std::string>& name) {
  if (!name) return LVPlatformUnknown;
  for (uint32_t p = LVPlatformArdenos; p <= LVPlatformElmos; ++p) {
    if (*name == kPlatformNames[p]) return static_cast<LVPlatform>(p);
  }
  return LVPlatformUnknown;
}

const char* LVPlatformName(LVPlatform platform) {
  return platform <= LVPlatformElmos ? kPlatformNames[platform] : kPlatformNames[0];
}

}  // namespace lumvane

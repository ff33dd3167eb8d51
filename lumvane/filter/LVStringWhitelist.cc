#include "lumvane/filter/LVStringWhitelist.h"

#include <initializer_list>

#include "lumvane/filter/LVLog.h"
#include "lumvane/filter/LVStringLists.h"
#include "lumvane/platform/InternalDiagnostics.h"
#include "lumvane/platform/NoDestructor.h"
#include "lumvane/signpost/SignpostObject.h"

namespace lumvane {
namespace {

// A new set from the first list, then each further list added in order.
LVStringSet UnionOf(std::initializer_list<LVStringList> lists) {
  std::size_t capacity = 0;
  for (const LVStringList& list : lists) capacity += list.size();
  LVStringSet set;
  set.reserve(capacity);
  for (const LVStringList& list : lists) set.insert(list.begin(), list.end());
  return set;
}

// Builds a platform's set and reports its size; runs once per platform.
LVStringSet BuildPlatformSet(std::initializer_list<LVStringList> lists, const char* message) {
  LVStringSet set = UnionOf(lists);
  LVLogDebug(message, set.size());
  return set;
}

const LVStringSet& UnknownSet() {
  static NoDestructor<LVStringSet> set(
      BuildPlatformSet({}, "Using string whitelist with %lu elements for Unknown platform"));
  return *set;
}

const LVStringSet& ArdenosSet() {
  static NoDestructor<LVStringSet> set(BuildPlatformSet(
      {LVDesktopUIElementNames(), LVDesktopUIActionNames(), LVDesktopBundleIdentifiers(),
       LVFilesystemAndIndexScanTokens(), LVSharedStringValues()},
      "Using string whitelist with %lu elements for Ardenos platform"));
  return *set;
}

const LVStringSet& BelvosSet() {
  static NoDestructor<LVStringSet> set(BuildPlatformSet(
      {LVPhoneUILocationNames(), LVCameraEventValues(), LVShareActivityTypes(),
       LVPhoneExtensionBundleIdentifiers(), LVCalendarViewNames(), LVSizeNames(),
       LVMailAccountTypes(), LVGenerationSourceNames(), LVSharedStringValues()},
      "Using string whitelist with %lu elements for Belvos platform"));
  return *set;
}

const LVStringSet& CirrosSet() {
  static NoDestructor<LVStringSet> set(BuildPlatformSet(
      {LVSharedStringValues()}, "Using string whitelist with %lu elements for Cirros platform"));
  return *set;
}

const LVStringSet& DalvosSet() {
  static NoDestructor<LVStringSet> set(BuildPlatformSet(
      {LVSharedStringValues()}, "Using string whitelist with %lu elements for Dalvos platform"));
  return *set;
}

const LVStringSet& ElmosSet() {
  static NoDestructor<LVStringSet> set(
      BuildPlatformSet({}, "Using string whitelist with %lu elements for Elmos platform"));
  return *set;
}

const LVStringSet& NoPlatformSet() {
  static NoDestructor<LVStringSet> set;
  return *set;
}

bool Contains(const LVStringSet& set, const std::optional<std::string>& value) {
  return value.has_value() && set.find(*value) != set.end();
}

}  // namespace

bool LVStringWhitelistEnabled() {
  if (LVHasInternalDiagnostics("com.orvel.signpost")) {
    LVLogDebug("Not using string whitelist due to internal-diagnostics variant");
    return false;
  }
  LVLogDebug("Defaulting to using string whitelist");
  return true;
}

const LVStringSet& LVStringWhitelistForPlatform(LVPlatform platform) {
  switch (platform) {
    case LVPlatformUnknown:
      return UnknownSet();
    case LVPlatformArdenos:
      return ArdenosSet();
    case LVPlatformBelvos:
      return BelvosSet();
    case LVPlatformCirros:
      return CirrosSet();
    case LVPlatformDalvos:
      return DalvosSet();
    case LVPlatformElmos: {
      const LVStringSet& set = ElmosSet();
      LVLogDebug("Using string whitelist with %lu elements", set.size());
      return set;
    }
  }
  return NoPlatformSet();
}

bool LVPlatformWhitelistContains(const std::optional<std::string>& value, LVPlatform platform) {
  return Contains(LVStringWhitelistForPlatform(platform), value);
}

bool LVIsPerfLoggingOperation(const std::optional<std::string>& subsystem,
                              const std::optional<std::string>& category,
                              const std::optional<std::string>& name) {
  return subsystem == "com.orvel.Brackenfold" && category == "PerfLogging" &&
         name == "PerfLoggingOperation";
}

const LVStringSet& LVPerfLoggingString1Whitelist() {
  static NoDestructor<LVStringSet> set(UnionOf({LVDesktopUIElementNames()}));
  return *set;
}

const LVStringSet& LVPerfLoggingString2Whitelist() {
  static NoDestructor<LVStringSet> set(UnionOf({LVDesktopUIActionNames()}));
  return *set;
}

bool LVPerfLoggingValuesPass(const std::optional<std::string>& string1Value,
                             const std::optional<std::string>& string2Value) {
  if (!string1Value || !string2Value) return false;
  return Contains(LVPerfLoggingString1Whitelist(), string1Value) &&
         Contains(LVPerfLoggingString2Whitelist(), string2Value);
}

bool LVObjectPassesStringFilter(const SignpostObject& object, LVPlatform platform) {
  bool perfLoggingPassed = false;
  if (platform == LVPlatformArdenos &&
      LVIsPerfLoggingOperation(object.subsystem(), object.category(), object.name())) {
    if (!LVPerfLoggingValuesPass(object.string1Value(), object.string2Value())) return false;
    perfLoggingPassed = true;
  }
  if (!LVStringWhitelistEnabled()) return true;
  if (perfLoggingPassed) return true;
  if (object.string1Name() && !LVPlatformWhitelistContains(object.string1Value(), platform)) {
    return false;
  }
  if (object.string2Name()) return LVPlatformWhitelistContains(object.string2Value(), platform);
  return true;
}

}  // namespace lumvane

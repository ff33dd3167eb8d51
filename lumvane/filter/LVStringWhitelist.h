// The string whitelists: free-form string arguments of a signpost reach
// telemetry only when their values are known ones. Each platform has its own
// set (the union of some of the lists in LVStringLists.h); the desktop
// performance-logging signpost has a pair of sets of its own, checked even
// where the general whitelist is switched off (internal-diagnostics systems).
//
// Every set is built once per process on first use (thread-safe) and is
// read-only afterwards. Membership is exact, case-sensitive string equality;
// an absent value is never a member. Messages go to LVLog at debug level.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "lumvane/filter/LVPlatform.h"

namespace lumvane {

class SignpostObject;

// Entries view the compiled-in list data, which lives for the whole process.
using LVStringSet = std::unordered_set<std::string_view>;

// False on an internal-diagnostics system. Asks the check, and logs which
// way it went, on every call.
bool LVStringWhitelistEnabled();

// The platform's set, built and its size logged on the first lookup for that
// platform. Values above 5 are no platform: they get an empty set, so every
// named string argument fails for them.
const LVStringSet& LVStringWhitelistForPlatform(LVPlatform platform);

bool LVPlatformWhitelistContains(const std::optional<std::string>& value, LVPlatform platform);

// The desktop performance-logging signpost: subsystem
// "com.orvel.Brackenfold", category "PerfLogging", name "PerfLoggingOperation".
bool LVIsPerfLoggingOperation(const std::optional<std::string>& subsystem,
                              const std::optional<std::string>& category,
                              const std::optional<std::string>& name);

// The distinct desktop UI element names and UI action names.
const LVStringSet& LVPerfLoggingString1Whitelist();
const LVStringSet& LVPerfLoggingString2Whitelist();

// Both values present, the first in the element-name set and the second in
// the action-name set (the second is looked at only when the first passed).
bool LVPerfLoggingValuesPass(const std::optional<std::string>& string1Value,
                             const std::optional<std::string>& string2Value);

// The whole string check of one object for `platform`; the object filter's
// _objectPassesStringFilter. An argument is checked when its *name* is
// present, so a named argument without a value fails.
bool LVObjectPassesStringFilter(const SignpostObject& object, LVPlatform platform);

}  // namespace lumvane

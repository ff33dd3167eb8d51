#include "lumvane/filter/LVStringWhitelist.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>

#include "lumvane/filter/LVStringLists.h"
#include "lumvane/signpost/SignpostObject.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using Opt = std::optional<std::string>;
using Strings = std::vector<std::string>;

Strings Entries(LVStringList list) { return Strings(list.begin(), list.end()); }

TEST(LVStringListsTest, CountsGivenEntriesAndNoOverlap) {
  const std::vector<std::tuple<LVStringList, size_t, size_t>> all = {
      {LVDesktopUIElementNames(), 75, 70},   {LVDesktopUIActionNames(), 70, 69},
      {LVDesktopBundleIdentifiers(), 774, 774}, {LVFilesystemAndIndexScanTokens(), 25, 25},
      {LVSharedStringValues(), 2, 2},        {LVPhoneUILocationNames(), 32, 32},
      {LVCameraEventValues(), 28, 28},       {LVShareActivityTypes(), 27, 27},
      {LVPhoneExtensionBundleIdentifiers(), 214, 214}, {LVCalendarViewNames(), 6, 6},
      {LVSizeNames(), 4, 4}, {LVMailAccountTypes(), 10, 10}, {LVGenerationSourceNames(), 4, 4}};
  std::map<std::string, size_t> owner;
  for (size_t i = 0; i < all.size(); ++i) {
    auto [list, entries, distinct] = all[i];
    std::set<std::string> unique;
    for (std::string_view s : list) {
      ASSERT_FALSE(s.empty()) << "list " << i;
      EXPECT_TRUE(s.front() != ' ' && s.back() != ' ') << s;
      unique.insert(std::string(s));
    }
    EXPECT_EQ(list.size(), entries) << "list " << i;
    EXPECT_EQ(unique.size(), distinct) << "list " << i;
    for (const auto& s : unique) {
      EXPECT_TRUE(owner.emplace(s, i).second) << s << " in lists " << owner[s] << " and " << i;
    }
  }

  // The entries given verbatim, in their places. The six native-format
  // tokens are data; only how they recur is fixed.
  const std::vector<std::tuple<LVStringList, size_t, Strings>> given = {
      {LVFilesystemAndIndexScanTokens(), 2, {"fmtMSDOS", "fmtOTHER"}},
      {LVFilesystemAndIndexScanTokens(), 8,
       {"networkFSfmtMSDOS", "networkFSfmtOTHER", "Unknown", "ScanAvoided", "ScanShutdown",
        "ScanLastMountError", "ScanMount", "ScanMountError", "ScanShadow", "FullScanNew",
        "FullScanBrokenIndex", "FullScanReindexNoVersion", "FullScanReindexVersionMismatch",
        "FullScanUUIDMismatch", "FullScanBadBaseTime", "FullScanNoInitialScan", "Failure"}},
      {LVCameraEventValues(), 0,
       {"CameraLaunchIconTouch", "CameraLaunchWithoutPrewarm", "StillImageCaptureNow",
        "modeChange", "2,1,0,0", "2,1,0,1", "2,1,1,0", "2,1,1,1", "2,2,0,0", "2,2,0,1",
        "2,2,1,0", "2,2,1,1", "3,1,0,0", "3,1,0,1", "3,1,1,0", "3,1,1,1", "3,2,0,0", "3,2,0,1",
        "3,2,1,0", "3,2,1,1", "4,1,0,0", "4,1,0,1", "4,1,1,0", "4,1,1,1", "4,2,0,0", "4,2,0,1",
        "4,2,1,0", "4,2,1,1"}},
      {LVCalendarViewNames(), 0, {"day", "week", "month", "year", "list", "unknown"}},
      {LVSizeNames(), 0, {"small", "medium", "large", "none"}},
      {LVGenerationSourceNames(), 0, {"generationContext", "file", "generator", "cache"}},
      {LVSharedStringValues(), 0, {"Root", "Ext"}}};
  for (const auto& [list, from, expected] : given) {
    const Strings all = Entries(list);
    ASSERT_LE(from + expected.size(), all.size()) << expected.front();
    EXPECT_EQ(Strings(all.begin() + from, all.begin() + from + expected.size()), expected);
  }
  Strings tokens = Entries(LVFilesystemAndIndexScanTokens());
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(tokens[i].rfind("fmt", 0), 0u) << tokens[i];
    EXPECT_EQ(tokens[4 + i], "rootFS" + tokens[i]);
    EXPECT_EQ(tokens[6 + i], "networkFS" + tokens[i]);
  }
  Strings actions = Entries(LVDesktopUIActionNames());
  EXPECT_EQ(std::count(actions.begin(), actions.end(), "Close"), 2);
  auto vendor = [](std::string_view id) { return id.rfind("com.orvel.", 0) == 0; };
  LVStringList desktop = LVDesktopBundleIdentifiers(), phone = LVPhoneExtensionBundleIdentifiers();
  EXPECT_TRUE(std::all_of(desktop.begin(), desktop.end(), vendor));
  EXPECT_EQ(std::count_if(phone.begin(), phone.end(), vendor), 51);
}

// Looks every platform's set up twice in a process that has built none yet
// and exits 0 only when each size line came exactly once with its number.
[[noreturn]] void LookUpEveryPlatformTwiceInAFreshProcess() {
  testing::ScopedLogCapture capture;
  const size_t sizes[] = {0, 940, 327, 2, 2, 0};
  const char* names[] = {"Unknown", "Ardenos", "Belvos", "Cirros", "Dalvos", "Elmos"};
  bool ok = true;
  for (int round = 0; round < 2; ++round) {
    for (uint32_t p = 0; p <= 5; ++p) {
      const size_t size = LVStringWhitelistForPlatform(static_cast<LVPlatform>(p)).size();
      if (size != sizes[p]) ok = false, std::fprintf(stderr, "platform %u: %zu\n", p, size);
    }
  }
  for (uint32_t p = 0; p <= 5; ++p) {
    const std::string line = "Using string whitelist with " + std::to_string(sizes[p]) +
                             " elements for " + names[p] + " platform";
    const size_t seen = capture.log().count(line);
    if (seen != 1) ok = false, std::fprintf(stderr, "%s: %zu times\n", line.c_str(), seen);
  }
  // Elmos also writes the bare count at each of its two lookups.
  const size_t bare = capture.log().count("Using string whitelist with 0 elements");
  if (bare != 2) ok = false, std::fprintf(stderr, "bare Elmos line %zu times\n", bare);
  std::_Exit(ok ? 0 : 1);
}

TEST(LVStringWhitelistTest, SetSizesAndTheirMessages) {
  // "threadsafe" runs the check in a newly started copy of this program, so
  // no earlier test of this process has built a set already.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(LookUpEveryPlatformTwiceInAFreshProcess(), ::testing::ExitedWithCode(0), "");
  EXPECT_TRUE(LVStringWhitelistForPlatform(static_cast<LVPlatform>(6)).empty());
  EXPECT_EQ(LVPerfLoggingString1Whitelist().size(), 70u);
  EXPECT_EQ(LVPerfLoggingString2Whitelist().size(), 69u);
}

bool Passes(LVPlatform platform, Opt n1, Opt v1, Opt n2 = {}, Opt v2 = {}, bool perfOp = false) {
  SignpostObjectProperties p;
  p.subsystem = perfOp ? "com.orvel.Brackenfold" : "com.orvel.test";
  p.category = perfOp ? "PerfLogging" : "cat";
  p.name = perfOp ? "PerfLoggingOperation" : "op";
  p.string1Name = n1, p.string1Value = v1, p.string2Name = n2, p.string2Value = v2;
  return LVObjectPassesStringFilter(SignpostObject(p), platform);
}

TEST(StringFilterTest, NamedArgumentsAreCheckedAgainstThePlatformSet) {
  testing::ScopedInternalDiagnostics diagnostics(false);
  for (uint32_t p : {0u, 1u, 2u, 3u, 4u, 5u, 9u}) {  // unnamed values are never looked at
    EXPECT_TRUE(Passes(static_cast<LVPlatform>(p), {}, "secret", {}, "x"));
  }
  const auto cirros = LVPlatformCirros;
  EXPECT_TRUE(Passes(cirros, "k", "Ext", "k2", "Root"));
  EXPECT_FALSE(Passes(cirros, "k", "root"));
  EXPECT_FALSE(Passes(cirros, "k", "Root "));
  EXPECT_FALSE(Passes(cirros, "k", {}));
  EXPECT_FALSE(Passes(cirros, "k", "Root", "k2", "/home/user/x"));
  EXPECT_FALSE(Passes(cirros, {}, {}, "k2", {}));
  EXPECT_TRUE(Passes(LVPlatformDalvos, "k", "Root"));
  EXPECT_FALSE(Passes(LVPlatformElmos, "k", "Root"));
  EXPECT_FALSE(Passes(LVPlatformUnknown, "k", "Root"));

  std::string bundle(LVDesktopBundleIdentifiers()[5]);
  EXPECT_TRUE(Passes(LVPlatformArdenos, "b", bundle));
  EXPECT_FALSE(Passes(LVPlatformBelvos, "b", bundle));
  EXPECT_TRUE(Passes(LVPlatformBelvos, "c", "2,1,0,1", "s", "medium"));
  EXPECT_FALSE(Passes(LVPlatformArdenos, "c", "2,1,0,1"));

  // A failing first argument ends the check: Elmos logs once per set lookup.
  testing::ScopedLogCapture capture;
  EXPECT_FALSE(Passes(LVPlatformElmos, "a", "x", "b", "y"));
  EXPECT_EQ(capture.log().count("Using string whitelist with 0 elements"), 1u);
  EXPECT_EQ(capture.log().count("Defaulting to using string whitelist"), 1u);
}

TEST(StringFilterTest, InternalDiagnosticsSwitchAndPerformanceLoggingOperation) {
  testing::ScopedInternalDiagnostics diagnostics(false);
  const auto ardenos = LVPlatformArdenos, belvos = LVPlatformBelvos;
  EXPECT_TRUE(Passes(ardenos, "e", "GtkFlowBoxChild", "a", "Close", true));
  EXPECT_TRUE(Passes(ardenos, {}, "GtkFlowBoxChild", {}, "Close", true));
  // Both values are in the Ardenos set, but not each in its own perf set.
  EXPECT_FALSE(Passes(ardenos, "e", "Close", "a", "GtkFlowBoxChild", true));
  EXPECT_FALSE(Passes(ardenos, {}, "GtkFlowBoxChild", {}, {}, true));
  // Elsewhere the operation is an ordinary signpost.
  EXPECT_TRUE(Passes(belvos, {}, "GtkFlowBoxChild", {}, {}, true));
  EXPECT_FALSE(Passes(belvos, "e", "GtkFlowBoxChild", "a", "Close", true));

  diagnostics.check().setAnswer(true);
  testing::ScopedLogCapture capture;
  const int before = diagnostics.check().calls();
  EXPECT_TRUE(Passes(LVPlatformElmos, "k", "anything"));
  EXPECT_TRUE(Passes(belvos, "e", "GtkFlowBoxChild", "a", "Close", true));
  EXPECT_FALSE(Passes(ardenos, {}, "GtkFlowBoxChild", {}, {}, true));
  EXPECT_FALSE(Passes(ardenos, "e", "Close", "a", "GtkFlowBoxChild", true));
  // Asked (and logged) for every object that gets past the special case.
  EXPECT_EQ(diagnostics.check().calls() - before, 2);
  EXPECT_EQ(capture.log().count("Not using string whitelist due to internal-diagnostics variant"), 2u);
}

}  // namespace
}  // namespace lumvane

#include "lumvane/filter/LVStringWhitelist.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "lumvane/filter/LVStringLists.h"
#include "lumvane/platform/InternalDiagnostics.h"
#include "lumvane/signpost/SignpostObject.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using Opt = std::optional<std::string>;

std::vector<std::string> Entries(LVStringList list) {
  return std::vector<std::string>(list.begin(), list.end());
}

TEST(LVStringListsTest, CountsGivenEntriesAndNoOverlap) {
  struct Expect {
    const char* name;
    LVStringList list;
    size_t entries, distinct;
  };
  const std::vector<Expect> all = {
      {"LVDesktopUIElementNames", LVDesktopUIElementNames(), 75, 70},
      {"LVDesktopUIActionNames", LVDesktopUIActionNames(), 70, 69},
      {"LVDesktopBundleIdentifiers", LVDesktopBundleIdentifiers(), 774, 774},
      {"LVFilesystemAndIndexScanTokens", LVFilesystemAndIndexScanTokens(), 25, 25},
      {"LVSharedStringValues", LVSharedStringValues(), 2, 2},
      {"LVPhoneUILocationNames", LVPhoneUILocationNames(), 32, 32},
      {"LVCameraEventValues", LVCameraEventValues(), 28, 28},
      {"LVShareActivityTypes", LVShareActivityTypes(), 27, 27},
      {"LVPhoneExtensionBundleIdentifiers", LVPhoneExtensionBundleIdentifiers(), 214, 214},
      {"LVCalendarViewNames", LVCalendarViewNames(), 6, 6},
      {"LVSizeNames", LVSizeNames(), 4, 4},
      {"LVMailAccountTypes", LVMailAccountTypes(), 10, 10},
      {"LVGenerationSourceNames", LVGenerationSourceNames(), 4, 4},
  };
  std::map<std::string, std::string> owner;
  for (const auto& e : all) {
    std::set<std::string> distinct;
    for (std::string_view s : e.list) {
      ASSERT_FALSE(s.empty()) << e.name;
      EXPECT_TRUE(s.front() != ' ' && s.back() != ' ' && s.find('\r') == s.npos) << s;
      distinct.insert(std::string(s));
    }
    EXPECT_EQ(e.list.size(), e.entries) << e.name;
    EXPECT_EQ(distinct.size(), e.distinct) << e.name;
    for (const auto& s : distinct) {
      auto [it, fresh] = owner.emplace(s, e.name);
      EXPECT_TRUE(fresh) << s << " is in " << it->second << " and " << e.name;
    }
  }

  EXPECT_EQ(Entries(LVSharedStringValues()), (std::vector<std::string>{"Root", "Ext"}));
  EXPECT_EQ(Entries(LVCalendarViewNames()),
            (std::vector<std::string>{"day", "week", "month", "year", "list", "unknown"}));
  EXPECT_EQ(Entries(LVSizeNames()), (std::vector<std::string>{"small", "medium", "large", "none"}));
  EXPECT_EQ(Entries(LVGenerationSourceNames()),
            (std::vector<std::string>{"generationContext", "file", "generator", "cache"}));

  auto tokens = Entries(LVFilesystemAndIndexScanTokens());
  EXPECT_EQ(tokens[2], "fmtMSDOS");
  EXPECT_EQ(tokens[3], "fmtOTHER");
  EXPECT_EQ(tokens[8], "networkFSfmtMSDOS");
  EXPECT_EQ(tokens[9], "networkFSfmtOTHER");
  EXPECT_EQ(tokens[10], "Unknown");
  EXPECT_EQ(std::vector<std::string>(tokens.begin() + 11, tokens.end()),
            (std::vector<std::string>{"ScanAvoided", "ScanShutdown", "ScanLastMountError",
                                      "ScanMount", "ScanMountError", "ScanShadow", "FullScanNew",
                                      "FullScanBrokenIndex", "FullScanReindexNoVersion",
                                      "FullScanReindexVersionMismatch", "FullScanUUIDMismatch",
                                      "FullScanBadBaseTime", "FullScanNoInitialScan", "Failure"}));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(tokens[i].rfind("fmt", 0), 0u) << tokens[i];
  for (int i = 4; i < 6; ++i) EXPECT_EQ(tokens[i], "rootFS" + tokens[i - 4]);
  for (int i = 6; i < 10; ++i) EXPECT_EQ(tokens[i], "networkFS" + tokens[i - 6]);

  std::vector<std::string> camera = {"CameraLaunchIconTouch", "CameraLaunchWithoutPrewarm",
                                     "StillImageCaptureNow", "modeChange"};
  for (int a = 2; a <= 4; ++a)
    for (int b = 1; b <= 2; ++b)
      for (int c = 0; c <= 1; ++c)
        for (int d = 0; d <= 1; ++d)
          camera.push_back(std::to_string(a) + "," + std::to_string(b) + "," + std::to_string(c) +
                           "," + std::to_string(d));
  EXPECT_EQ(Entries(LVCameraEventValues()), camera);

  auto actions = Entries(LVDesktopUIActionNames());
  EXPECT_EQ(std::count(actions.begin(), actions.end(), "Close"), 2);
  for (std::string_view id : LVDesktopBundleIdentifiers()) {
    EXPECT_EQ(id.rfind("com.orvel.", 0), 0u) << id;
  }
  size_t vendorExtensions = 0;
  for (std::string_view id : LVPhoneExtensionBundleIdentifiers()) {
    vendorExtensions += id.rfind("com.orvel.", 0) == 0;
  }
  EXPECT_EQ(vendorExtensions, 51u);
}

TEST(LVStringWhitelistTest, SetSizesAndTheirMessages) {
  testing::ScopedLogCapture capture;
  const size_t sizes[] = {0, 940, 327, 2, 2, 0};
  const char* names[] = {"Unknown", "Ardenos", "Belvos", "Cirros", "Dalvos", "Elmos"};
  for (int round = 0; round < 2; ++round) {
    for (uint32_t p = 0; p <= 5; ++p) {
      const LVStringSet& set = LVStringWhitelistForPlatform(static_cast<LVPlatform>(p));
      EXPECT_EQ(set.size(), sizes[p]) << names[p];
      EXPECT_EQ(&set, &LVStringWhitelistForPlatform(static_cast<LVPlatform>(p)));
    }
  }
  for (uint32_t p = 0; p <= 5; ++p) {
    // Each size line is written on a platform's first lookup only.
    EXPECT_LE(capture.log().count("Using string whitelist with " + std::to_string(sizes[p]) +
                                  " elements for " + names[p] + " platform"),
              1u);
  }
  // Elmos also logs on every lookup (four in the loops above).
  EXPECT_EQ(capture.log().count("Using string whitelist with 0 elements"), 4u);
  EXPECT_TRUE(LVStringWhitelistForPlatform(static_cast<LVPlatform>(6)).empty());
  EXPECT_EQ(LVPerfLoggingString1Whitelist().size(), 70u);
  EXPECT_EQ(LVPerfLoggingString2Whitelist().size(), 69u);
}

class StringFilterTest : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = ExchangeInternalDiagnosticsCheck(check_); }
  void TearDown() override { ExchangeInternalDiagnosticsCheck(previous_); }

  static SignpostObject Object(Opt n1, Opt v1, Opt n2 = std::nullopt, Opt v2 = std::nullopt,
                               Opt subsystem = "com.orvel.test", Opt category = "cat",
                               Opt name = "op") {
    SignpostObjectProperties p;
    p.subsystem = subsystem;
    p.category = category;
    p.name = name;
    p.string1Name = n1;
    p.string1Value = v1;
    p.string2Name = n2;
    p.string2Value = v2;
    return SignpostObject(p);
  }
  static SignpostObject PerfOp(Opt n1, Opt v1, Opt n2, Opt v2) {
    return Object(n1, v1, n2, v2, "com.orvel.Brackenfold", "PerfLogging", "PerfLoggingOperation");
  }

  std::shared_ptr<FakeInternalDiagnosticsCheck> check_ =
      std::make_shared<FakeInternalDiagnosticsCheck>(false);
  std::shared_ptr<InternalDiagnosticsCheck> previous_;
};

TEST_F(StringFilterTest, NamedArgumentsAreCheckedAgainstThePlatformSet) {
  const auto cirros = LVPlatformCirros;
  for (uint32_t p : {0u, 1u, 2u, 3u, 4u, 5u, 9u}) {
    // Unnamed values are never looked at.
    EXPECT_TRUE(LVObjectPassesStringFilter(Object(std::nullopt, "secret", std::nullopt, "x"),
                                           static_cast<LVPlatform>(p)));
  }
  EXPECT_TRUE(LVObjectPassesStringFilter(Object("kind", "Root"), cirros));
  EXPECT_TRUE(LVObjectPassesStringFilter(Object("kind", "Ext", "k2", "Root"), cirros));
  EXPECT_FALSE(LVObjectPassesStringFilter(Object("kind", "root"), cirros));
  EXPECT_FALSE(LVObjectPassesStringFilter(Object("kind", "Root "), cirros));
  EXPECT_FALSE(LVObjectPassesStringFilter(Object("kind", std::nullopt), cirros));
  EXPECT_FALSE(LVObjectPassesStringFilter(Object("kind", "Root", "k2", "/Users/x"), cirros));
  EXPECT_FALSE(LVObjectPassesStringFilter(Object(std::nullopt, std::nullopt, "k2", std::nullopt),
                                          cirros));
  EXPECT_TRUE(LVObjectPassesStringFilter(Object("kind", "Root"), LVPlatformDalvos));
  EXPECT_FALSE(LVObjectPassesStringFilter(Object("kind", "Root"), LVPlatformElmos));
  EXPECT_FALSE(LVObjectPassesStringFilter(Object("kind", "Root"), LVPlatformUnknown));
  EXPECT_FALSE(LVObjectPassesStringFilter(Object("kind", "Root"), static_cast<LVPlatform>(6)));

  std::string bundle(LVDesktopBundleIdentifiers()[5]);
  EXPECT_TRUE(LVObjectPassesStringFilter(Object("b", bundle), LVPlatformArdenos));
  EXPECT_FALSE(LVObjectPassesStringFilter(Object("b", bundle), LVPlatformBelvos));
  EXPECT_TRUE(LVObjectPassesStringFilter(Object("c", "2,1,0,1", "s", "medium"), LVPlatformBelvos));
  EXPECT_FALSE(LVObjectPassesStringFilter(Object("c", "2,1,0,1"), LVPlatformArdenos));

  // A failing first argument ends the check: Elmos logs once per set lookup.
  testing::ScopedLogCapture capture;
  EXPECT_FALSE(LVObjectPassesStringFilter(Object("a", "x", "b", "y"), LVPlatformElmos));
  EXPECT_EQ(capture.log().count("Using string whitelist with 0 elements"), 1u);
  EXPECT_EQ(capture.log().count("Defaulting to using string whitelist"), 1u);
}

TEST_F(StringFilterTest, InternalDiagnosticsSwitchAndPerformanceLoggingOperation) {
  const SignpostObject good = PerfOp("e", "OrvTileView", "a", "Close");
  const SignpostObject unnamedGood = PerfOp(std::nullopt, "OrvTileView", std::nullopt, "Close");
  const SignpostObject swapped = PerfOp("e", "Close", "a", "OrvTileView");
  const SignpostObject missing = PerfOp(std::nullopt, "OrvTileView", std::nullopt, std::nullopt);

  EXPECT_TRUE(LVIsPerfLoggingOperation("com.orvel.Brackenfold", "PerfLogging",
                                       "PerfLoggingOperation"));
  EXPECT_FALSE(LVIsPerfLoggingOperation("com.orvel.Brackenfold", "PerfLogging", std::nullopt));
  EXPECT_TRUE(LVObjectPassesStringFilter(good, LVPlatformArdenos));
  EXPECT_TRUE(LVObjectPassesStringFilter(unnamedGood, LVPlatformArdenos));
  // Both values are in the Ardenos set, but not each in its own perf set.
  EXPECT_FALSE(LVObjectPassesStringFilter(swapped, LVPlatformArdenos));
  EXPECT_FALSE(LVObjectPassesStringFilter(missing, LVPlatformArdenos));
  // Elsewhere the operation is an ordinary signpost.
  EXPECT_TRUE(LVObjectPassesStringFilter(missing, LVPlatformBelvos));
  EXPECT_FALSE(LVObjectPassesStringFilter(good, LVPlatformBelvos));

  check_->setAnswer(true);
  testing::ScopedLogCapture capture;
  int before = check_->calls();
  EXPECT_TRUE(LVObjectPassesStringFilter(Object("k", "anything"), LVPlatformElmos));
  EXPECT_TRUE(LVObjectPassesStringFilter(good, LVPlatformBelvos));
  EXPECT_TRUE(LVObjectPassesStringFilter(missing, LVPlatformBelvos));
  EXPECT_FALSE(LVObjectPassesStringFilter(missing, LVPlatformArdenos));
  EXPECT_FALSE(LVObjectPassesStringFilter(swapped, LVPlatformArdenos));
  // The check runs (and logs) for every object that gets past the special case.
  EXPECT_EQ(check_->calls() - before, 3);
  EXPECT_EQ(capture.log().count("Not using string whitelist due to os_variant"), 3u);
  EXPECT_FALSE(LVStringWhitelistEnabled());
  check_->setAnswer(false);
  EXPECT_TRUE(LVStringWhitelistEnabled());
}

}  // namespace
}  // namespace lumvane

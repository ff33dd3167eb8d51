#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "lumvane/signpost/SignpostAnimationInterval.h"
#include "lumvane/telemetry/BundleIdentifierCache.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using testing::ScopedLogCapture;

class CountingLookup final : public BundleLookup {
 public:
  BundleInfo bundleAtPath(const std::string& directory) const override {
    asked.push_back(directory);
    return {true, directory == "/opt/Foo.AppDir" ? std::optional<std::string>("org.example.Foo")
                                                 : std::nullopt};
  }
  mutable std::vector<std::string> asked;
};

TEST(BundleIdentifierCacheTest, WalksWithThePrefixRuleAndCachesMisses) {
  CountingLookup lookup;
  BundleIdentifierCache cache(lookup);
  ScopedLogCapture capture;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(cache.bundleIdentifierForImagePath("/opt/Foo.AppDir/Foo"), "org.example.Foo");
    EXPECT_EQ(cache.bundleIdentifierForImagePath("/home/user/Foo.d/x/Foo"), std::nullopt);
  }
  EXPECT_EQ(cache.bundleIdentifierForImagePath("/opt/tools/foo"), std::nullopt);
  EXPECT_EQ(lookup.asked, (std::vector<std::string>{"/opt/Foo.AppDir", "/home/user/Foo.d"}));
  EXPECT_EQ(cache.size(), 3u);
  EXPECT_EQ(capture.log().messages(),  // a miss is not logged
            std::vector<std::string>{"Found bundle ID: \"org.example.Foo\" for path:\"/opt/Foo.AppDir/Foo\""});

  std::string nested = "/opt/Foo.AppDir";
  for (int i = 0; i < 99; ++i) nested += "/d";
  const std::pair<std::string, std::optional<std::string>> walks[] = {
      {"/opt/Foobar.AppDir/Foo", std::nullopt},  // "Foo." is the prefix, not "Foo"
      {"/opt/Foo/Foo", std::nullopt}, {"/Foo.AppDir/Foo", "/Foo.AppDir"},
      {"Foo.AppDir/Foo", "Foo.AppDir"}, {"Foo", std::nullopt}, {"/Foo", std::nullopt},
      {nested + "/Foo", "/opt/Foo.AppDir"},  // the 100th directory examined
      {nested + "/d/Foo", std::nullopt}};
  for (const auto& [path, directory] : walks) {
    EXPECT_EQ(BundleIdentifierCache::bundleDirectoryForImagePath(path), directory) << path;
  }
}

SignpostObjectProperties Props() {
  SignpostObjectProperties p;
  p.subsystem = "com.example.net", p.category = "fetch", p.name = "Request";
  p.durationSeconds = 1.5f;
  return p;
}

std::shared_ptr<const SignpostEvent> Side(std::optional<std::string> process,
                                          std::optional<std::string> path = std::nullopt) {
  return std::make_shared<SignpostEvent>(Props(), std::move(process), std::move(path));
}

TEST(DovetelPayloadTest, EventCarriesArgumentsInOrderWithTheirKinds) {
  SignpostObjectProperties p = Props();
  p.name.reset();
  p.string1Name = "s1", p.string1Value = "v1";
  p.string2Name = "s2";  // no value: the name alone
  p.number1Name = "n1", p.number1Value = Number::fromInt64(-3);
  p.number2Value = Number::fromDouble(2.5);  // no name: neither key
  // Dictionaries compare key order and number kinds too.
  EXPECT_EQ(SignpostEvent(p, std::nullopt, std::nullopt).dovetelPayload(),
            (Dictionary{{"Subsystem", "com.example.net"}, {"Category", "fetch"},
                        {"Name", "Unknown"}, {"String1Name", "s1"}, {"String1Value", "v1"},
                        {"String2Name", "s2"}, {"Number1Name", "n1"},
                        {"Number1Value", Number::fromInt64(-3)}, {"IntervalType", "Event"},
                        {"DurationInSeconds", Number::fromFloat(1.5f)},
                        {"StartProcessName", "Unknown"}}));
  p.subsystem.reset();
  EXPECT_FALSE(SignpostEvent(p, "proc", std::nullopt).dovetelPayload()->contains("Subsystem"));
  EXPECT_EQ(*SignpostEvent(p, "proc", "/no/such/proc").dovetelPayload()->find("StartProcessName"),
            Value("proc"));
}

// Each side is named by its real bundle (found once, then remembered), and
// only one subsystem's intervals may override both names.
TEST(DovetelPayloadTest, IntervalsNameEachSideAndHonourTheOverrideForOneSubsystem) {
  testing::TempDir dir;
  for (const char* bundle : {"Foo.AppDir/usr/bin", "Bar.AppDir/usr/bin"}) {
    std::filesystem::create_directories(dir.file(bundle));
  }
  testing::WriteFile(dir.file("Foo.AppDir/com.example.foo.desktop"), testing::DesktopEntry("Application"));
  testing::WriteFile(dir.file("Bar.AppDir/com.example.bar.desktop"), testing::DesktopEntry("Application"));
  const std::string foo = dir.file("Foo.AppDir/Foo"), bar = dir.file("Bar.AppDir/usr/bin/Bar");
  SignpostInterval interval(Props(), Side("begin", foo), Side("end", bar),
                            Dictionary{{"BundleIdOverride", "com.other"}});
  Dictionary expected{{"Subsystem", "com.example.net"}, {"Category", "fetch"},
                      {"Name", "Request"}, {"IntervalType", "Interval"},
                      {"DurationInSeconds", Number::fromFloat(1.5f)},
                      {"StartProcessName", "com.example.foo"}, {"EndProcessName", "com.example.bar"}};
  ScopedLogCapture capture;
  EXPECT_EQ(interval.dovetelPayload(), expected);
  std::filesystem::remove_all(dir.path());  // only the cache can answer now
  EXPECT_EQ(interval.dovetelPayload(), expected);

  SignpostObjectProperties halvenrod = Props();
  halvenrod.subsystem = "com.orvel.halvenrod";
  SignpostAnimationInterval animation(halvenrod, Side("begin"), Side("end"),
                                      Dictionary{{"BundleIdOverride", "com.override"}}, 59.5f);
  expected.set("Subsystem", "com.orvel.halvenrod");
  expected.set("IntervalType", "AnimationInterval");
  expected.set("StartProcessName", "com.override");
  expected.set("EndProcessName", "com.override");
  expected.set("FrameRate", Number::fromFloat(59.5f));
  EXPECT_EQ(animation.dovetelPayload(), expected);
  EXPECT_EQ(capture.log().messages(),
            (std::vector<std::string>{
                "Found bundle ID: \"com.example.foo\" for path:\"" + foo + "\"",
                "Found bundle ID: \"com.example.bar\" for path:\"" + bar + "\"",
                "com.orvel.halvenrod/fetch/Request: Overriding bundle ID to com.override"}));
}

}  // namespace
}  // namespace lumvane

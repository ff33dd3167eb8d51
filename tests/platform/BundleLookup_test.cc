#include "lumvane/platform/BundleLookup.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "lumvane/telemetry/BundleIdentifierCache.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using testing::DesktopEntry;
using testing::TempDir;
using testing::WriteFile;

// Each case builds an application directory Mailbox.AppDir with the files listed (a name ending in "/" is
// a directory, contents "@target" a symbolic link) and asks for the identifier of its executable, through
// the walk up from usr/bin and a fresh cache over the real lookup.
TEST(BundleLookupTest, ApplicationDirectoriesAreNamedByTheirOneApplicationEntry) {
  const std::string app = DesktopEntry("Application");
  std::string huge = app;
  while (huge.size() <= (1u << 20)) huge += "# padding to push the entry over one mebibyte\n";
  const struct {
    const char* what;
    std::vector<std::pair<std::string, std::string>> files;
    std::optional<std::string> identifier;
  } cases[] = {
      {"one entry", {{"org.example.Mailbox.desktop", app}}, "org.example.Mailbox"},
      {"none", {{"Mailbox", "#!/bin/sh\n"}, {"README", "x"}}, std::nullopt},
      {"two", {{"org.example.Mailbox.desktop", app}, {"org.example.Other.desktop", app}}, std::nullopt},
      {"a link entry beside the application",
       {{"org.example.Help.desktop", DesktopEntry("Link")}, {"org.example.Mailbox.desktop", app}},
       "org.example.Mailbox"},
      {"an entry with no Type beside the application",
       {{"org.example.Mailbox.desktop", app}, {"a.b.desktop", "[Other Group]\nKey=1\n"}},
       "org.example.Mailbox"},
      {"invalid ID", {{"org.2mail.Mailbox.desktop", app}}, std::nullopt},
      {"malformed entry beside the application",
       {{"org.example.Mailbox.desktop", app}, {"org.example.Broken.desktop", "Type=Application\n"}},
       std::nullopt},
      {"entry over 1 MiB", {{"org.example.Mailbox.desktop", huge}}, std::nullopt},
      {"not regular: directory and link",
       {{"org.example.Dir.desktop/", ""}, {"org.example.Link.desktop", "@org.example.Mailbox.desktop"},
        {"org.example.Mailbox.desktop", app}},
       "org.example.Mailbox"},
      {"entry below the top only", {{"share/", ""}, {"share/org.example.Mailbox.desktop", app}},
       std::nullopt},
      {"other suffix", {{"org.example.Mailbox.desktop~", app}}, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    TempDir dir;
    const std::string bundle = dir.file("Mailbox.AppDir");
    std::filesystem::create_directories(bundle + "/usr/bin");
    for (const auto& [name, contents] : c.files) {
      const std::string path = bundle + "/" + name;
      if (name.back() == '/') {
        std::filesystem::create_directory(path);
      } else if (!contents.empty() && contents[0] == '@') {
        std::filesystem::create_symlink(contents.substr(1), path);
      } else {
        WriteFile(path, contents);
      }
    }
    BundleIdentifierCache cache(DefaultBundleLookup());
    testing::ScopedLogCapture quiet;
    EXPECT_EQ(cache.bundleIdentifierForImagePath(bundle + "/Mailbox"), c.identifier);
    EXPECT_EQ(cache.bundleIdentifierForImagePath(bundle + "/usr/bin/Mailbox"), c.identifier);
    EXPECT_TRUE(DefaultBundleLookup().bundleAtPath(bundle).found);
    // Once looked up, a path is answered from the cache alone.
    std::filesystem::remove_all(bundle);
    EXPECT_EQ(cache.bundleIdentifierForImagePath(bundle + "/Mailbox"), c.identifier);
    EXPECT_FALSE(DefaultBundleLookup().bundleAtPath(bundle).found);
  }
}

TEST(BundleLookupTest, ApplicationIdRules) {
  const std::string longest = "org." + std::string(251, 'a');
  const struct {
    std::string id;
    bool valid;
  } cases[] = {
      {"org.example.Mailbox", true}, {"a.b", true},   {"org.ex-ample_1.X2", true}, {"_a.-b", true},
      {longest, true},               {longest + "a", false}, {"Mailbox", false},   {"", false},
      {".a.b", false},               {"a.b.", false}, {"a..b", false},             {"org.2mail", false},
      {"org.ex ample", false},       {"org.ex/ample", false}, {"org.ex\xc3\xa4mple", false},
  };
  for (const auto& c : cases) EXPECT_EQ(IsValidApplicationId(c.id), c.valid) << c.id;
}

}  // namespace
}  // namespace lumvane

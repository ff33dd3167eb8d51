// What lumvane-upload is told: its own keys and flags on top of the shared
// connection settings, and the machine key it goes by.
#include <gtest/gtest.h>

#include <cctype>

#include "tests/support/TestSupport.h"
#include "upload/MachineKey.h"
#include "upload/UploadSettings.h"

namespace lumvane::upload {
namespace {

using namespace std::chrono_literals;
using lumvane::testing::ReadFile;
using lumvane::testing::TempDir;
using lumvane::testing::WriteFile;

TEST(UploadSettingsTest, FlagsOverrideTheKeyFileAndBadInputIsNamed) {
  TempDir dir;
  const std::string conf = dir.file("upload.conf");
  WriteFile(conf, "[Upload]\nSpoolDirectory=/spool\nWindow=8\nUnsentCapBytes=4096\n[Collect]\nWindow=9\n");
  UploadSettings s;
  ASSERT_FALSE(ParseUploadSettings({"--config", conf, "--window", "16", "--server", "tls://h:1"}, &s));
  EXPECT_EQ(s.spoolDirectory, "/spool");
  EXPECT_EQ(s.window, 16);
  EXPECT_EQ(s.unsentCapBytes, 4096);
  EXPECT_EQ(s.connection.serverList(), "tls://h:1");

  WriteFile(dir.file("zero.conf"), "[Upload]\nWindow=0\n");
  const struct {
    std::vector<std::string> args;
    std::string mentions;
  } bad[] = {
      {{"--config", dir.file("zero.conf")}, dir.file("zero.conf")},
      {{"--config", conf, "--window", "0"}, "--window"},
      {{"--config", conf, "--ack-wait-ms", "soon"}, "--ack-wait-ms"},
      {{"--config", conf, "--frobnicate"}, "--frobnicate"},
      {{"--config", conf, "--server"}, "--server"},
      {{"--config", conf, "--server", "http://h"}, "http://h"},
  };
  for (const auto& c : bad) {
    UploadSettings t;
    std::optional<Error> error = ParseUploadSettings(c.args, &t);
    ASSERT_TRUE(error) << c.mentions;
    EXPECT_NE(error->description().find(c.mentions), std::string::npos) << error->description();
  }
}

TEST(MachineKeyTest, IsDerivedNeverTheRawIdAndMissingIdNamesTheFile) {
  std::string key;
  if (std::optional<Error> error = MachineKey(&key)) GTEST_SKIP() << error->description();
  std::string raw = ReadFile("/etc/machine-id");
  raw.erase(raw.find_last_not_of("\n") + 1);
  EXPECT_EQ(key.size(), 32u);
  for (char c : key) EXPECT_TRUE(std::isxdigit(static_cast<unsigned char>(c)) && !std::isupper(c)) << key;
  EXPECT_NE(key, raw);
  std::string again;
  ASSERT_FALSE(MachineKey(&again));
  EXPECT_EQ(again, key);

  // An empty machine ID, in a private mount namespace.
  TempDir dir;
  lumvane::testing::ChildProcess child(
      {"/usr/bin/unshare", "--user", "--map-root-user", "--mount", "sh", "-c",
       "mount --bind /dev/null /etc/machine-id || exit 77; exec " LUMVANE_BINARY_DIR
       "/lumvane-upload --config /nonexistent --spool-dir " + dir.path()},
      {}, dir.file("child"));
  std::optional<int> status = child.wait(10s);
  if (status == 77 || child.err().find("unshare") != std::string::npos) {
    GTEST_SKIP() << "no private mount namespace here: " << child.err();
  }
  EXPECT_EQ(status, 1);
  EXPECT_NE(child.err().find("/etc/machine-id"), std::string::npos) << child.err();
}

}  // namespace
}  // namespace lumvane::upload

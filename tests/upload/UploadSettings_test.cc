// What lumvane-upload is told: the key file's [Upload] group (shared connection keys and its own), flags on top,
// and the machine key it goes by.
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

// servers|CA|reconnect initial-maximum ms|replicas|create|spool|window|unsent cap
std::string Describe(const UploadSettings& s) {
  const fleet::ConnectionSettings& c = s.connection;
  return c.serverList() + "|" + c.caFile + "|" + std::to_string(c.backoff.initial.count()) + "-" +
         std::to_string(c.backoff.maximum.count()) + "|" + std::to_string(c.stream.replicas) + "|" +
         std::to_string(c.stream.create) + "|" + s.spoolDirectory + "|" + std::to_string(s.window) + "|" +
         std::to_string(s.unsentCapBytes);
}

// Each row: the arguments, and the settings they give or the start of the error they are refused with.
TEST(UploadSettingsTest, FlagsOverrideTheKeyFileAndBadInputIsNamed) {
  TempDir dir;
  const std::string conf = dir.file("upload.conf"), bad = dir.file("bad.conf"), zero = dir.file("zero.conf"),
                    replicas = dir.file("replicas.conf");
  WriteFile(conf, "[Upload]\nServers=tls://a:1;tls://b:2;\nCAFile=/ca.pem\nReconnectInitialMs=5\nStreamReplicas=3\n"
                  "SpoolDirectory=/spool\nWindow=8\nUnsentCapBytes=4096\n[Collect]\nWindow=9\nStreamReplicas=many\n");
  WriteFile(bad, "[Upload\nServers=x\n");
  WriteFile(zero, "[Upload]\nWindow=0\n");
  WriteFile(replicas, "[Upload]\nStreamReplicas=many\n");
  const struct {
    std::vector<std::string> args;
    std::string expected;
  } cases[] = {
      {{"--config", conf}, "tls://a:1, tls://b:2|/ca.pem|5-30000|3|0|/spool|8|4096"},
      {{"--config", conf, "--window", "16", "--server", "nats://d:4", "--server", "nats://e:5", "--create-stream",
        "--reconnect-max-ms", "900", "--spool-dir", "/s"},
       "nats://d:4, nats://e:5|/ca.pem|5-900|3|1|/s|16|4096"},
      {{"--config", dir.file("missing.conf"), "--spool-dir", "/s"},
       "nats://127.0.0.1:4222||100-30000|1|0|/s|1024|268435456"},
      {{"--config", bad}, "cannot read settings from " + bad + ": "},
      {{"--config", zero}, zero + ": [Upload] Window must be at least 1"},
      {{"--config", replicas}, replicas + ": [Upload] StreamReplicas must be an integer"},
      {{"--config", conf, "--window", "0"}, "--window needs an integer of at least 1, not '0'"},
      {{"--config", conf, "--ack-wait-ms", "soon"}, "--ack-wait-ms needs an integer of at least 1, not 'soon'"},
      {{"--config", conf, "--reconnect-max-ms", "soon"}, "--reconnect-max-ms needs an integer, not 'soon'"},
      {{"--config", conf, "--frobnicate", "x"}, "unknown option --frobnicate (see --help)"},
      {{"--config", conf, "--server"}, "--server needs a value"},
      {{"--config", conf, "--server", "http://h"}, "server URL http://h must start with nats:// or tls://"},
  };
  for (const auto& c : cases) {
    UploadSettings s;
    std::optional<Error> error = ParseUploadSettings(c.args, &s);
    const std::string got = error ? error->description() : Describe(s);
    EXPECT_EQ(got.substr(0, c.expected.size()), c.expected) << got;
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

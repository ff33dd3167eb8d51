// The fleet connection library: subject tokens, backoff, settings, and
// connections to a real nats-server (plain, TLS, credentials, the stream).
#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "fleet/Backoff.h"
#include "fleet/ConnectionSettings.h"
#include "fleet/FleetConnection.h"
#include "fleet/KeyFile.h"
#include "fleet/SubjectToken.h"
#include "tests/support/NatsTestServer.h"
#include "tests/support/TestSupport.h"

namespace lumvane::fleet {
namespace {

using lumvane::testing::NatsTestServer;
using lumvane::testing::NatsTestServerOptions;
using lumvane::testing::TempDir;
using lumvane::testing::WriteFile;

TEST(SubjectTokenTest, EscapesEveryByteOutsideTheSafeSet) {
  const struct {
    std::string in, out;
  } cases[] = {
      {"com.orvel.performance.signpost", "com%2Eorvel%2Eperformance%2Esignpost"},
      {"sp__a-b__C9", "sp__a-b__C9"},
      {"a b*>%", "a%20b%2A%3E%25"},
      {"", "%"},
      {std::string("\x00\xff\x7f", 3), "%00%FF%7F"},
      {"\xc3\xa9", "%C3%A9"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(EscapeSubjectToken(c.in), c.out) << c.in;
    EXPECT_EQ(UnescapeSubjectToken(c.out), c.in) << c.out;
  }
}

TEST(BackoffTest, DoublesFromInitialToMaximumWithinJitter) {
  Backoff exact({std::chrono::milliseconds(100), std::chrono::milliseconds(30000), 0.0});
  const std::pair<int, int64_t> steps[] = {{1, 100}, {2, 200}, {3, 400}, {9, 25600}, {10, 30000}, {40, 30000}};
  for (auto [failures, ms] : steps) EXPECT_EQ(exact.delay(failures).count(), ms) << failures;

  Backoff jittered({std::chrono::milliseconds(1000), std::chrono::milliseconds(30000), 0.2}, 7);
  std::set<int64_t> seen;
  for (int i = 0; i < 200; ++i) {
    const int64_t ms = jittered.delay(1).count();
    EXPECT_GE(ms, 800);
    EXPECT_LE(ms, 1200);
    seen.insert(ms);
  }
  EXPECT_GT(seen.size(), 50u) << "the jitter does not spread the waits";
}

TEST(ConnectionSettingsTest, KeyFileThenFlagsWithErrorsNamingThePath) {
  TempDir dir;
  std::unique_ptr<KeyFile> file;
  ASSERT_FALSE(KeyFile::Load(dir.file("missing.conf"), &file));
  ConnectionSettings defaults;
  ASSERT_FALSE(defaults.readKeyFile(*file, "Upload"));
  EXPECT_EQ(defaults.serverList(), "nats://127.0.0.1:4222");
  EXPECT_EQ(defaults.backoff.initial.count(), 100);
  EXPECT_EQ(defaults.backoff.maximum.count(), 30000);

  WriteFile(dir.file("bad.conf"), "[Upload\nServers=x\n");
  std::optional<Error> error = KeyFile::Load(dir.file("bad.conf"), &file);
  ASSERT_TRUE(error);
  EXPECT_NE(error->description().find(dir.file("bad.conf")), std::string::npos) << error->description();

  WriteFile(dir.file("upload.conf"),
            "[Upload]\nServers=tls://a:1;tls://b:2;\nCAFile=/ca.pem\nReconnectInitialMs=5\n"
            "StreamReplicas=3\n[Collect]\nServers=nats://c:3\nStreamReplicas=many\n");
  ASSERT_FALSE(KeyFile::Load(dir.file("upload.conf"), &file));
  ConnectionSettings upload;
  ASSERT_FALSE(upload.readKeyFile(*file, "Upload"));
  EXPECT_EQ(upload.serverList(), "tls://a:1, tls://b:2");
  EXPECT_EQ(upload.caFile, "/ca.pem");
  EXPECT_EQ(upload.backoff.initial.count(), 5);
  EXPECT_EQ(upload.stream.replicas, 3);
  std::optional<Error> flagError;
  EXPECT_TRUE(upload.applyFlag("--server", "nats://d:4", &flagError));
  EXPECT_TRUE(upload.applyFlag("--server", "nats://e:5", &flagError));
  EXPECT_TRUE(upload.applyFlag("--create-stream", "", &flagError));
  EXPECT_FALSE(upload.applyFlag("--db", "x", &flagError));
  EXPECT_FALSE(flagError);
  EXPECT_EQ(upload.serverList(), "nats://d:4, nats://e:5");
  EXPECT_TRUE(upload.stream.create);
  EXPECT_TRUE(upload.applyFlag("--reconnect-max-ms", "soon", &flagError));
  EXPECT_TRUE(flagError);

  ConnectionSettings collect;
  error = collect.readKeyFile(*file, "Collect");
  ASSERT_TRUE(error);
  EXPECT_NE(error->description().find("StreamReplicas"), std::string::npos) << error->description();
  EXPECT_NE(error->description().find(dir.file("upload.conf")), std::string::npos);

  collect.servers = {"http://x"};
  EXPECT_TRUE(collect.validate());
}

// One server per case; each row says how the client is set up and whether it
// must get through. A refusal must name the server and the reason.
TEST(FleetConnectionTest, ConnectsOnlyWithTheRightCredentialsAndCa) {
  if (NatsTestServer::Binary().empty()) GTEST_SKIP() << "nats-server is not installed";
  struct Case {
    const char* what;
    NatsTestServerOptions server;
    std::function<void(ConnectionSettings&, const NatsTestServer&, const TempDir&)> client;
    bool connects;
    const char* reason;  // part of the refusal
  };
  auto password = [](const char* text) {
    return [text](ConnectionSettings& s, const NatsTestServer&, const TempDir& dir) {
      WriteFile(dir.file("password"), std::string(text) + "\n");
      s.user = "machine";
      s.passwordFile = dir.file("password");
    };
  };
  NatsTestServerOptions tls;
  tls.tls = true;
  NatsTestServerOptions mutual = tls;
  mutual.verifyClients = true;
  NatsTestServerOptions users;
  users.user = "machine";
  users.password = "s3cret";
  const Case cases[] = {
      {"plain", {}, [](auto&, auto&, auto&) {}, true, ""},
      {"right password", users, password("s3cret"), true, ""},
      {"wrong password", users, password("guess"), false, "Authorization"},
      {"right CA", tls, [](auto& s, auto& server, auto&) { s.caFile = server.caFile(); }, true, ""},
      {"wrong CA", tls, [](auto& s, auto& server, auto&) { s.caFile = server.wrongCaFile(); }, false, "SSL"},
      {"client certificate", mutual,
       [](auto& s, auto& server, auto&) {
         s.caFile = server.caFile();
         s.certFile = server.clientCertFile();
         s.keyFile = server.clientKeyFile();
       },
       true, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::unique_ptr<NatsTestServer> server;
    std::optional<Error> error = NatsTestServer::Start(c.server, &server);
    ASSERT_FALSE(error) << error->description();
    TempDir dir;
    ConnectionSettings settings;
    settings.servers = {server->url()};
    settings.stream.create = true;
    c.client(settings, *server, dir);
    std::unique_ptr<FleetConnection> connection;
    error = FleetConnection::Open(settings, std::make_shared<Backoff>(settings.backoff), nullptr, &connection);
    if (c.connects) {
      ASSERT_FALSE(error) << error->description();
      EXPECT_EQ(connection->state(), ConnectionState::Connected);
    } else {
      ASSERT_TRUE(error);
      EXPECT_NE(error->description().find(server->url()), std::string::npos) << error->description();
      EXPECT_NE(error->description().find(c.reason), std::string::npos) << error->description();
    }
  }
}

TEST(FleetConnectionTest, StreamMustExistUnlessCreatedAndCreatingTwiceIsAccepted) {
  if (NatsTestServer::Binary().empty()) GTEST_SKIP() << "nats-server is not installed";
  std::unique_ptr<NatsTestServer> server;
  std::optional<Error> error = NatsTestServer::Start({}, &server);
  ASSERT_FALSE(error) << error->description();
  ConnectionSettings settings;
  settings.servers = {server->url()};
  auto backoff = std::make_shared<Backoff>(settings.backoff);
  std::unique_ptr<FleetConnection> connection;
  error = FleetConnection::Open(settings, backoff, nullptr, &connection);
  ASSERT_TRUE(error);
  EXPECT_NE(error->description().find("--create-stream"), std::string::npos) << error->description();
  settings.stream.create = true;
  for (int i = 0; i < 2; ++i) {
    error = FleetConnection::Open(settings, backoff, nullptr, &connection);
    EXPECT_FALSE(error) << error->description();
  }
  // Killed and restarted on the same port and storage, the stream is still there.
  server->kill();
  ASSERT_FALSE(server->start());
  settings.stream.create = false;
  error = FleetConnection::Open(settings, backoff, nullptr, &connection);
  EXPECT_FALSE(error) << error->description();
}

}  // namespace
}  // namespace lumvane::fleet

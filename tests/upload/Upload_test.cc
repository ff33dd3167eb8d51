// lumvane-upload against a real nats-server: every event the daemon's sink spooled reaches the LUMVANE stream
// exactly once (re-sends are dropped by the stream through their message IDs), whatever happens to either side.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <random>
#include <set>
#include <thread>

#include "lumvane/platform/DovetelEventReader.h"
#include "lumvane/platform/DovetelEventSink.h"
#include "tests/support/JetStreamContents.h"
#include "tests/support/NatsTestServer.h"
#include "tests/support/TestSupport.h"

namespace lumvane::upload {
namespace {

using namespace std::chrono_literals;
using lumvane::testing::ChildProcess;
using lumvane::testing::NatsTestServer;
using lumvane::testing::NatsTestServerOptions;
using lumvane::testing::ReadFile;
using lumvane::testing::StoredMessage;
using lumvane::testing::WriteFile;

constexpr const char* kKey = "0123456789abcdef0123456789abcdef";
// The subject token of each name: every byte outside [A-Za-z0-9_-] as upper-case %XX.
const char* const kNames[][2] = {{"com.orvel.performance.signpost", "com%2Eorvel%2Eperformance%2Esignpost"},
                                 {"sp__com.example.net__fetch__Request", "sp__com%2Eexample%2Enet__fetch__Request"}};

// Whether `what` shows in `text` exactly once.
bool Once(const std::string& text, const std::string& what) {
  return text.find(what) != std::string::npos && text.find(what) == text.rfind(what);
}

class UploadTest : public ::testing::Test {
 protected:
  void SetUp() override { prepare({}); }

  void prepare(const NatsTestServerOptions& options) {
    if (NatsTestServer::Binary().empty()) GTEST_SKIP() << "nats-server is not installed";
    server_.reset();
    std::optional<Error> error = NatsTestServer::Prepare(options, &server_);
    ASSERT_FALSE(error) << error->description();
    reader_ = {};
    reader_.servers = {server_->url()};
    reader_.caFile = server_->caFile();
  }

  // Appends events seq [from, from + count) through the daemon's own sink, seqs zero-padded so that every line
  // has the same length (the odd seqs' name is 5 bytes longer).
  void append(int from, int count) {
    auto sink = NewFileDovetelEventSink({/*syncEachEvent=*/false});
    for (int i = from; i < from + count; ++i) {
      std::string seq = std::to_string(i);
      seq.insert(0, (i % 2 ? 6 : 11) - seq.size(), '0');
      sink->sendEvent(kNames[i % 2][0], Dictionary{{"seq", Value(seq)}});
    }
  }

  std::unique_ptr<ChildProcess> uploader(const std::vector<std::string>& extra, const std::string& output) {
    std::vector<std::string> argv = {LUMVANE_BINARY_DIR "/lumvane-upload", "--config", dir_.file("none.conf"),
                                     "--spool-dir", spool_, "--machine-key", kKey, "--server", server_->url(),
                                     "--create-stream", "--reconnect-initial-ms", "20", "--reconnect-max-ms",
                                     "200", "--ack-wait-ms", "1000", "--poll-ms", "20", "--idle-rotate-ms", "50"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    return std::make_unique<ChildProcess>(argv, std::vector<std::string>{}, dir_.file(output));
  }
  void startUploader(const std::vector<std::string>& extra = {}) {
    uploader_ = uploader(extra, "upload" + std::to_string(++runs_));
  }
  std::string status() {
    std::unique_ptr<ChildProcess> child = uploader({"--status"}, "status");
    EXPECT_EQ(child->wait(10s), 0) << child->err();
    return child->out();
  }

  // The stream's messages once it holds `count`, or whatever it holds after `limit`.
  std::vector<StoredMessage> waitForStream(std::size_t count, std::chrono::seconds limit = 30s) {
    std::vector<StoredMessage> messages;
    for (const auto deadline = std::chrono::steady_clock::now() + limit;
         (ReadLumvaneStream(reader_, &messages, count) || messages.size() < count) &&
         std::chrono::steady_clock::now() < deadline;) {
      std::this_thread::sleep_for(50ms);
    }
    if (messages.size() < count) (void)ReadLumvaneStream(reader_, &messages);
    return messages;
  }

  // Seqs [from, to) each once in the stream, on its subject, with a message ID of its own, and nothing else.
  void expectExactly(const std::vector<StoredMessage>& messages, int from, int to) {
    std::string lines;
    std::set<std::string> ids;
    for (const StoredMessage& m : messages) {
      lines += m.data + "\n";
      EXPECT_TRUE(ids.insert(m.msgId).second) << "message ID used twice: " << m.msgId;
      EXPECT_EQ(m.msgId.rfind(std::string(kKey) + "-", 0), 0u) << m.msgId;
    }
    WriteFile(dir_.file("stream.ndjson"), lines);
    DovetelEventFile file = ReadDovetelEvents(dir_.file("stream.ndjson"));
    ASSERT_EQ(file.events.size(), messages.size()) << "a message is not an event line";
    std::multiset<int> seen;
    for (std::size_t i = 0; i < file.events.size(); ++i) {
      const int seq = std::atoi(file.events[i].payload.find("seq")->asString()->c_str());
      seen.insert(seq);
      EXPECT_EQ(file.events[i].name, kNames[seq % 2][0]);
      EXPECT_EQ(messages[i].subject, std::string("lumvane.") + kKey + "." + kNames[seq % 2][1]);
    }
    std::multiset<int> expected;
    for (int i = from; i < to; ++i) expected.insert(i);
    EXPECT_EQ(seen, expected) << "lost or doubled events";
  }

  lumvane::testing::TempDir dir_;
  std::string spool_ = dir_.file("spool");
  lumvane::testing::ScopedEnv env_{"LUMVANE_DOVETEL_DIR", spool_.c_str()};
  std::unique_ptr<NatsTestServer> server_;
  fleet::ConnectionSettings reader_;
  std::unique_ptr<ChildProcess> uploader_;
  int runs_ = 0;
};

TEST_F(UploadTest, ServerDownAtStartEventsWaitThenAllArriveOnce) {
  append(0, 300);
  startUploader({"--rotate-bytes", "4096"});  // the spool rotates by size while no line can be published
  ASSERT_TRUE(uploader_->waitForError("cannot connect to " + server_->url(), 10s)) << uploader_->err();
  std::this_thread::sleep_for(500ms);  // many retries
  const std::string before = status();
  EXPECT_NE(before.find("Backlog: 300 lines"), std::string::npos) << before;
  EXPECT_NE(before.find("Connection: disconnected"), std::string::npos) << before;
  ASSERT_FALSE(server_->start());
  append(300, 50);
  expectExactly(waitForStream(350), 0, 350);
  std::this_thread::sleep_for(300ms);  // idle rotation reclaims the spool
  const std::string after = status();
  EXPECT_NE(after.find("Backlog: 0 lines, 0 bytes"), std::string::npos) << after;
  EXPECT_FALSE(lumvane::testing::PathExists(spool_ + "/events.ndjson")) << after;
}

TEST_F(UploadTest, ServerKilledAndRestartedMidUpload) {
  ASSERT_FALSE(server_->start());
  startUploader();
  std::thread appender([&] {
    for (int i = 0; i < 30; ++i, std::this_thread::sleep_for(10ms)) append(i * 100, 100);
  });
  EXPECT_LT(waitForStream(800).size(), 3000u) << "the upload had finished before the server was killed";
  server_->kill();
  std::this_thread::sleep_for(300ms);
  ASSERT_FALSE(server_->start());
  appender.join();
  expectExactly(waitForStream(3000, 60s), 0, 3000);
}

TEST_F(UploadTest, UploaderKilledAtRandomPointsResumesWithoutLossOrDuplicates) {
  const char* fixed = std::getenv("LUMVANE_TEST_SEED");
  const uint64_t seed = fixed ? std::strtoull(fixed, nullptr, 10) : std::random_device{}();
  std::cout << "seed " << seed << " (set LUMVANE_TEST_SEED to repeat)\n";
  RecordProperty("seed", std::to_string(seed));
  std::mt19937_64 random(seed);
  ASSERT_FALSE(server_->start());
  append(0, 6000);
  // Small files rotate often, so kills land in rotations too; a window of two keeps the upload slow enough.
  const std::vector<std::string> args = {"--rotate-bytes", "32768", "--window", "2"};
  std::size_t firstCount = 0;
  for (int round = 0; round < 5; ++round) {
    startUploader(args);
    std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution<int>(20, 300)(random)));
    // Every other round the server goes first: what was in flight then lives only in the uploader's memory.
    if (round % 2) {
      server_->kill();
      std::this_thread::sleep_for(400ms);
    }
    uploader_->signal(SIGKILL);
    EXPECT_FALSE(uploader_->wait(5s));
    ASSERT_FALSE(server_->start());
    if (round == 0) firstCount = waitForStream(0).size();
    append(6000 + round * 100, 100);
  }
  EXPECT_LT(firstCount, 6000u) << "the first kill came after the upload had finished";
  startUploader(args);
  expectExactly(waitForStream(6500, 60s), 0, 6500);
}

TEST_F(UploadTest, AppendsWhileRotatingLoseAndDoubleNothing) {
  ASSERT_FALSE(server_->start());
  startUploader({"--rotate-bytes", "4096", "--idle-rotate-ms", "0"});
  std::thread a([&] { append(0, 1500); });
  append(1500, 1500);
  a.join();
  expectExactly(waitForStream(3000, 60s), 0, 3000);
  EXPECT_NE(status().find("Torn bytes not published: 0"), std::string::npos);
}

TEST_F(UploadTest, TornLastLineIsNeverPublished) {
  ASSERT_FALSE(server_->start());
  append(0, 10);
  const std::string torn = R"({"name": "com.orvel.performance.signpost", "payload": {"seq": "9)";
  std::ofstream(spool_ + "/events.ndjson", std::ios::app) << torn;
  startUploader();
  expectExactly(waitForStream(10), 0, 10);
  std::this_thread::sleep_for(500ms);
  append(10, 1);
  expectExactly(waitForStream(11), 0, 11);
  const std::string text = status();
  EXPECT_NE(text.find("Torn bytes not published: " + std::to_string(torn.size())), std::string::npos) << text;
}

TEST_F(UploadTest, OldestUnsentEventsAreDroppedPastTheCap) {
  append(0, 100);
  const std::string spooled = ReadFile(spool_ + "/events.ndjson");
  const std::size_t length = spooled.find('\n') + 1;
  ASSERT_EQ(spooled.size(), 100 * length) << "the lines differ in length";
  startUploader({"--unsent-cap-bytes", std::to_string(30 * length + length / 2)});
  const std::string dropped = "Dropped over the unsent cap: 70 events, " + std::to_string(70 * length) + " bytes";
  std::string text;
  for (int i = 0; i < 100 && text.find(dropped) == std::string::npos; ++i, std::this_thread::sleep_for(50ms)) {
    text = status();
  }
  EXPECT_NE(text.find(dropped), std::string::npos) << text << uploader_->err();
  EXPECT_NE(text.find("Backlog: 30 lines"), std::string::npos) << text;
  ASSERT_FALSE(server_->start());
  expectExactly(waitForStream(30), 70, 100);
}

// A wrong password, or a wrong CA on a server that wants client certificates: the error names the server, the
// uploader keeps retrying, and once the file is corrected (replaced in one step) everything arrives.
TEST_F(UploadTest, WrongCredentialsOrCaRetryUntilFixed) {
  NatsTestServerOptions users, tls;
  users.user = "machine";
  users.password = "s3cret";
  tls.tls = tls.verifyClients = true;
  const struct {
    const char* what;
    NatsTestServerOptions server;
    const char* reason;
  } cases[] = {{"password", users, "Authorization"}, {"CA", tls, "SSL"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    prepare(c.server);
    ASSERT_FALSE(server_->start());
    const std::string secret = dir_.file("secret");
    std::vector<std::string> args;
    std::string right;
    if (c.server.tls) {
      reader_.certFile = server_->file("client.pem");
      reader_.keyFile = server_->file("client.key");
      args = {"--ca-file", secret, "--cert-file", reader_.certFile, "--key-file", reader_.keyFile};
      WriteFile(secret, ReadFile(server_->file("wrong-ca.pem")));
      right = ReadFile(server_->caFile());
    } else {
      reader_.user = "machine";
      WriteFile(reader_.passwordFile = dir_.file("right"), right = "s3cret\n");
      args = {"--user", "machine", "--password-file", secret};
      WriteFile(secret, "guess\n");
    }
    const int from = runs_ * 20;
    append(from, 20);
    startUploader(args);
    ASSERT_TRUE(uploader_->waitForError("cannot connect to " + server_->url(), 10s)) << uploader_->err();
    EXPECT_NE(uploader_->err().find(c.reason), std::string::npos) << uploader_->err();
    std::this_thread::sleep_for(300ms);
    EXPECT_TRUE(waitForStream(1, 0s).empty());
    WriteFile(secret + ".new", right);
    ASSERT_EQ(std::rename((secret + ".new").c_str(), secret.c_str()), 0);
    expectExactly(waitForStream(20), from, from + 20);
    EXPECT_TRUE(Once(uploader_->err(), "cannot connect")) << uploader_->err();
    uploader_->signal(SIGTERM);
    EXPECT_EQ(uploader_->wait(10s), 0);
  }
}

}  // namespace
}  // namespace lumvane::upload

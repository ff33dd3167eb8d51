// The collector against a real nats-server: whatever happens between commit and acknowledgement, or to the
// server, the database ends with exactly the published events, each once.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "collect/Collector.h"
#include "collect/EventStore.h"
#include "collect/SqliteStatement.h"
#include "fleet/FleetConnection.h"
#include "tests/support/NatsTestServer.h"
#include "tests/support/TestSupport.h"

namespace lumvane::collect {
namespace {

using lumvane::testing::NatsTestServer;

// The first column of the first row of `sql`, as text.
std::string Query(EventStore& store, const std::string& sql) {
  std::unique_ptr<SqliteStatement> stmt;
  std::optional<Error> error = store.database().prepare(sql, &stmt);
  EXPECT_FALSE(error) << sql;
  return !error && stmt->step(&error) ? stmt->text(0) : "";
}

class CollectorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (NatsTestServer::Binary().empty()) GTEST_SKIP() << "nats-server is not installed";
    ASSERT_FALSE(NatsTestServer::Start({}, &server_));
    settings_.servers = {server_->url()};
    settings_.backoff = {std::chrono::milliseconds(20), std::chrono::milliseconds(200), 0.2};
    // The stream must exist unless it is to be created; creating an existing one (publish, the collector) is fine.
    std::unique_ptr<fleet::FleetConnection> none;
    std::optional<Error> error = fleet::FleetConnection::Open(settings_, backoff_, nullptr, &none);
    ASSERT_TRUE(error);
    EXPECT_NE(error->description().find("--create-stream"), std::string::npos) << error->description();
    settings_.stream.create = true;
    ASSERT_FALSE(EventStore::Open(dir_.file("fleet.db"), false, &store_));
  }

  // Publishes events [first, first + count) of machine "m1", payload {"N": i}, each with its own message ID,
  // sent now (so that the collector's pruning keeps them).
  void publish(int first, int count) {
    std::unique_ptr<fleet::FleetConnection> connection;
    ASSERT_FALSE(fleet::FleetConnection::Open(settings_, backoff_, nullptr, &connection));
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const int64_t sent = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    for (int i = first; i < first + count; ++i) {
      const std::string id = "m1:1:" + std::to_string(i), n = std::to_string(i);
      const std::string line = "{\"name\": \"e.x\", \"payload\": {\"N\": " + n + "}, \"sent\": " +
                               std::to_string(sent) + "}";
      jsPubOptions options;
      jsPubOptions_Init(&options);
      options.MsgId = id.c_str();
      jsPubAck* ack = nullptr;
      ASSERT_EQ(js_Publish(&ack, connection->jetStream(), "lumvane.m1.e%2Ex", line.data(),
                           static_cast<int>(line.size()), &options, nullptr),
                NATS_OK);
      jsPubAck_Destroy(ack);
    }
  }

  // Rows, distinct payload numbers, lowest and highest: events 0 .. count-1, each once.
  void expectEachOnce(int count) {
    EXPECT_EQ(Query(*store_, "SELECT count(*) || '|' || count(DISTINCT json_extract(payload, '$.N')) || '|' || "
                             "min(json_extract(payload, '$.N')) || '|' || max(json_extract(payload, '$.N')) "
                             "FROM events"),
              std::to_string(count) + "|" + std::to_string(count) + "|0|" + std::to_string(count - 1));
  }

  lumvane::testing::TempDir dir_;
  std::unique_ptr<NatsTestServer> server_;
  fleet::ConnectionSettings settings_;
  std::shared_ptr<fleet::Backoff> backoff_ = std::make_shared<fleet::Backoff>(fleet::BackoffPolicy{});
  std::unique_ptr<EventStore> store_;
};

TEST_F(CollectorTest, KilledBetweenCommitAndAckLeavesEachEventOnce) {
  constexpr int kEvents = 300;
  publish(0, kEvents);
  CollectorOptions options;
  options.batch = 40;
  options.fetchWaitMs = 200;
  options.ackWaitMs = 500;  // redelivery of the abandoned batch comes soon
  options.drain = true;
  std::atomic<bool> stop{false};
  // Three collectors in turn, each dying after its n-th commit unacknowledged; the fourth runs to the end.
  int received = 0;
  for (int dieAfter : {2, 1, 3, 0}) {
    int commits = 0;
    options.afterCommit = [&commits, dieAfter] { return dieAfter == 0 || ++commits < dieAfter; };
    Collector collector(settings_, options, store_.get());
    ASSERT_FALSE(collector.run(stop));
    received += collector.counts().received;
  }
  expectEachOnce(kEvents);
  EXPECT_GE(received, kEvents + 3) << "the abandoned batches were never delivered again";
}

TEST_F(CollectorTest, ServerKilledAndRestartedMidwayLosesAndDoublesNothing) {
  constexpr int kBefore = 400, kAfter = 100;
  publish(0, kBefore);
  CollectorOptions options;
  options.batch = 50;
  options.fetchWaitMs = 200;
  options.ackWaitMs = 1000;
  std::atomic<bool> killed{false}, stop{false};
  int commits = 0;
  // After the third commit the server dies before the acknowledgements go out; the test restarts it while the
  // collector retries.
  options.afterCommit = [&] {
    if (++commits == 3) {
      server_->kill();
      killed.store(true);
    }
    return true;
  };
  Collector collector(settings_, options, store_.get());
  std::optional<Error> result;
  std::thread thread([&] { result = collector.run(stop); });
  while (!killed.load()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  ASSERT_FALSE(server_->start());
  publish(kBefore, kAfter);
  std::unique_ptr<EventStore> reader;
  ASSERT_FALSE(EventStore::Open(dir_.file("fleet.db"), true, &reader));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (Query(*reader, "SELECT count(*) >= " + std::to_string(kBefore + kAfter) + " FROM events") != "1" &&
         std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  stop.store(true);
  thread.join();
  EXPECT_FALSE(result);
  expectEachOnce(kBefore + kAfter);
}

}  // namespace
}  // namespace lumvane::collect

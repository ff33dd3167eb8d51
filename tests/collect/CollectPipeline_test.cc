// The collector's pipeline and what feeds it: acknowledgement only after the commit, schema upgrades that keep
// events, one decoder giving each event its own day.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "collect/Collector.h"
#include "collect/EventStore.h"
#include "collect/FleetEventDecoder.h"
#include "collect/SqliteStatement.h"
#include "fleet/FleetConnection.h"
#include "tests/support/NatsTestServer.h"
#include "tests/support/TestSupport.h"

namespace lumvane::collect {
namespace {

using lumvane::testing::NatsTestServer;
using lumvane::testing::TempDir;

int64_t CountRows(SqliteDatabase& db, const std::string& sql) {
  std::unique_ptr<SqliteStatement> stmt;
  if (db.prepare(sql, &stmt)) return -1;
  std::optional<Error> error;
  return stmt->step(&error) ? stmt->int64(0) : -1;
}

// Sees each acknowledgement the server receives (a plain subscriber sees those subjects too) and counts, as
// it arrives, the events a separate reader finds committed.
struct AckWatch {
  std::mutex mutex;
  std::unique_ptr<EventStore> reader;
  int acks = 0;
  int ahead = 0;  // acknowledgements seen while fewer events were committed

  static void OnMessage(natsConnection*, natsSubscription*, natsMsg* msg, void* closure) {
    auto* self = static_cast<AckWatch*>(closure);
    const std::string body(natsMsg_GetData(msg), static_cast<std::size_t>(natsMsg_GetDataLength(msg)));
    natsMsg_Destroy(msg);
    if (body != "+ACK") return;
    std::lock_guard<std::mutex> lock(self->mutex);
    ++self->acks;
    if (CountRows(self->reader->database(), "SELECT count(*) FROM events") < self->acks) ++self->ahead;
  }
};

TEST(CollectPipelineTest, AcknowledgesNothingBeforeItsCommit) {
  if (NatsTestServer::Binary().empty()) GTEST_SKIP() << "nats-server is not installed";
  std::unique_ptr<NatsTestServer> server;
  ASSERT_FALSE(NatsTestServer::Start({}, &server));
  fleet::ConnectionSettings settings;
  settings.servers = {server->url()};
  settings.stream.create = true;
  std::unique_ptr<fleet::FleetConnection> connection;
  ASSERT_FALSE(fleet::FleetConnection::Open(settings, std::make_shared<fleet::Backoff>(settings.backoff), nullptr,
                                            &connection));
  constexpr int kEvents = 120;
  const int64_t sent = std::chrono::duration_cast<std::chrono::microseconds>(
                           std::chrono::system_clock::now().time_since_epoch())
                           .count();
  for (int i = 0; i < kEvents; ++i) {
    const std::string id = "m1:1:" + std::to_string(i);
    const std::string line = "{\"name\": \"e\", \"payload\": {\"N\": " + std::to_string(i) +
                             "}, \"sent\": " + std::to_string(sent) + "}";
    jsPubOptions options;
    jsPubOptions_Init(&options);
    options.MsgId = id.c_str();
    ASSERT_EQ(js_Publish(nullptr, connection->jetStream(), "lumvane.m1.e", line.data(),
                         static_cast<int>(line.size()), &options, nullptr),
              NATS_OK);
  }

  // One batch per event, batches that leave a remainder, one batch for all.
  const struct {
    int batch;
    const char* consumer;
  } cases[] = {{1, "single"}, {7, "seven"}, {500, "all"}};
  TempDir dir;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.consumer);
    const std::string path = dir.file(std::string(c.consumer) + ".db");
    std::unique_ptr<EventStore> store;
    ASSERT_FALSE(EventStore::Open(path, false, &store));
    AckWatch watch;
    ASSERT_FALSE(EventStore::Open(path, true, &watch.reader));
    natsSubscription* raw = nullptr;
    ASSERT_EQ(natsConnection_Subscribe(&raw, connection->connection(),
                                       (std::string("$JS.ACK.LUMVANE.") + c.consumer + ".>").c_str(),
                                       &AckWatch::OnMessage, &watch),
              NATS_OK);
    fleet::NatsSubscriptionPtr subscription(raw);
    ASSERT_EQ(natsConnection_Flush(connection->connection()), NATS_OK);

    CollectorOptions options;
    options.consumer = c.consumer;
    options.batch = c.batch;
    options.fetchWaitMs = 100;
    options.drain = true;
    std::atomic<bool> stop{false};
    Collector collector(settings, options, store.get());
    ASSERT_FALSE(collector.run(stop));
    EXPECT_EQ(collector.counts().stored, kEvents);
    // The acknowledgements are flushed; a drain hands the handler every copy routed to it, then returns.
    ASSERT_EQ(natsSubscription_Drain(subscription.get()), NATS_OK);
    ASSERT_EQ(natsSubscription_WaitForDrainCompletion(subscription.get(), 10000), NATS_OK);
    std::lock_guard<std::mutex> lock(watch.mutex);
    EXPECT_EQ(watch.acks, kEvents);
    EXPECT_EQ(watch.ahead, 0) << "acknowledged before the commit";
  }
}

// A file in the first schema: the event ID as the key, a second index by day.
constexpr const char* kVersion1 = R"sql(
CREATE TABLE events (event_id TEXT NOT NULL PRIMARY KEY, machine TEXT NOT NULL, name TEXT NOT NULL,
                     sent_us INTEGER NOT NULL, day TEXT NOT NULL, payload TEXT NOT NULL);
CREATE INDEX events_day_name_machine ON events(day, name, machine);
CREATE TABLE rejected (event_id TEXT NOT NULL PRIMARY KEY, subject TEXT NOT NULL, data BLOB NOT NULL,
                       reason TEXT NOT NULL, received_us INTEGER NOT NULL);
INSERT INTO events VALUES ('k:1:0', 'k', 'e', 1714521600000000, '2024-05-01', '{"N": 1}'),
                          ('k:1:9', 'k', 'e', 1714521600000001, '2024-05-01', '{"N": 2}');
INSERT INTO rejected VALUES ('k:1:5', 'lumvane.k.e', 'x', 'not a JSON object', 7);
PRAGMA user_version = 1;
)sql";

TEST(EventStoreSchemaTest, UpgradesOlderFilesAndRefusesNewerOnes) {
  const struct {
    const char* name;
    std::string setup;  // run on the file before the store opens it
    int64_t events;     // then stored, or -1 for a refused file
  } cases[] = {
      {"new", "", 0},
      {"version1", kVersion1, 2},
      {"newer", "CREATE TABLE events (x); PRAGMA user_version = 3;", -1},
  };
  TempDir dir;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = dir.file(std::string(c.name) + ".db");
    {
      std::unique_ptr<SqliteDatabase> db;
      ASSERT_FALSE(SqliteDatabase::Open(path, true, &db));
      ASSERT_FALSE(db->exec(c.setup));
    }
    std::unique_ptr<EventStore> store;
    std::optional<Error> error = EventStore::Open(path, false, &store);
    if (c.events < 0) {
      ASSERT_TRUE(error);
      EXPECT_NE(error->description().find(path + ": schema version 3 is newer"), std::string::npos)
          << error->description();
      continue;
    }
    ASSERT_FALSE(error) << error->description();
    SqliteDatabase& db = store->database();
    EXPECT_EQ(CountRows(db, "PRAGMA user_version"), 2);
    EXPECT_EQ(CountRows(db, "SELECT count(*) FROM events"), c.events);
    EXPECT_EQ(CountRows(db, "SELECT count(*) FROM sqlite_schema WHERE type = 'index' AND tbl_name = 'events'"), 1);
    // A re-sent event of the old file is still recognised; a new one is not.
    int64_t inserted = -1;
    ASSERT_FALSE(store->insertBatch({FleetEvent{"k:1:9", "k", "e", 1714521600000001, "2024-05-01", "{\"N\": 2}"},
                                     FleetEvent{"k:1:10", "k", "e", 1714521600000002, "2024-05-01", "{}"}},
                                    {}, 0, &inserted));
    EXPECT_EQ(inserted, c.events == 2 ? 1 : 2);
    if (c.events == 2) {
      EXPECT_EQ(CountRows(db, "SELECT json_extract(payload, '$.N') FROM events WHERE event_id = 'k:1:9'"), 2);
      EXPECT_EQ(CountRows(db, "SELECT received_us FROM rejected WHERE event_id = 'k:1:5'"), 7);
    }
  }
}

TEST(FleetEventDecoderDayTest, FollowsTheSendTimeAcrossDaysInOneDecoder) {
  // One decoder, send times going forwards and backwards over midnights.
  const std::pair<int64_t, const char*> cases[] = {
      {1714521600000000, "2024-05-01"}, {1714607999999999, "2024-05-01"}, {1714608000000000, "2024-05-02"},
      {1714521599999999, "2024-04-30"}, {1714521600000000, "2024-05-01"}, {0, "1970-01-01"},
      {-1, "1969-12-31"},               {-86400000000, "1969-12-31"},     {-86400000001, "1969-12-30"},
  };
  FleetEventDecoder decoder;
  for (auto [sent, day] : cases) {
    FleetEvent event;
    const std::string line = "{\"name\": \"e\", \"payload\": {}, \"sent\": " + std::to_string(sent) + "}";
    ASSERT_FALSE(decoder.decode("lumvane.k.e", "k:1:0", line, &event));
    EXPECT_EQ(event.day, day) << sent;
  }
}

}  // namespace
}  // namespace lumvane::collect

// The collector's database: decoding of stream messages, the store's duplicate handling, pruning and sharing.
#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "collect/EventStore.h"
#include "collect/FleetEventDecoder.h"
#include "collect/SqliteStatement.h"
#include "tests/support/TestSupport.h"

namespace lumvane::collect {
namespace {

using lumvane::testing::TempDir;

FleetEvent Event(const std::string& id, int64_t sent) {
  return FleetEvent{id, "m1", "e", sent, UtcDay(sent), "{\"Name\": \"" + id + "\"}"};
}

// The first column of the first row of `sql`, as text.
std::string Query(EventStore& store, const std::string& sql) {
  std::unique_ptr<SqliteStatement> stmt;
  std::optional<Error> error = store.database().prepare(sql, &stmt);
  EXPECT_FALSE(error) << sql;
  return !error && stmt->step(&error) ? stmt->text(0) : "";
}

TEST(FleetEventDecoderTest, AcceptsEventLinesAndNamesWhatIsWrongWithOthers) {
  const std::string ok = R"({"name": "x", "payload": {}, "sent": 1})";
  const std::string shape = "subject is not lumvane.<machine>.<event>";
  const struct {
    std::string subject, id, data;
    std::string error;  // "" for an event
  } cases[] = {
      {"lumvane.k1.com%2Eorvel%2Eperformance%2Esignpost", "k1:0:0",
       R"({"name": "com.orvel.performance.signpost", "payload": {"Name": "A\"b", "DurationInSeconds": 0.5}, "sent": 1714521600000000})",
       ""},
      {"lumvane.k1.x", "k1:0:1", R"({"sent": 1, "payload": {}, "name": "x", "extra": [1, {"a": 2}]})", ""},
      {"other.k1.x", "id", ok, "subject outside lumvane.>"},
      {"lumvane.k1", "id", ok, shape},
      {"lumvane..x", "id", ok, shape},
      {"lumvane.k1.x.y", "id", ok, shape},
      {"lumvane.k1.x", "", ok, "message has no ID"},
      {"lumvane.k1.x", "id", R"({"name": "x", "payload": {}, "sent": 1)", "not a JSON object"},
      {"lumvane.k1.x", "id", R"({"name": "x", "payload": [], "sent": 1})", "\"payload\" is not an object"},
      {"lumvane.k1.x", "id", R"({"name": "x", "payload": {}, "sent": 1.5})", "\"sent\" is not an integer"},
      {"lumvane.k1.x", "id", R"({"name": "x", "payload": {}})", "missing \"name\", \"payload\" or \"sent\""},
      {"lumvane.k1.x", "id", R"({"name": "", "payload": {}, "sent": 1})", "empty event name"},
  };
  FleetEventDecoder decoder;
  for (const auto& c : cases) {
    FleetEvent event;
    EXPECT_EQ(decoder.decode(c.subject, c.id, c.data, &event).value_or(""), c.error) << c.data;
  }
  FleetEvent e;
  ASSERT_FALSE(decoder.decode(cases[0].subject, cases[0].id, cases[0].data, &e));
  EXPECT_EQ(e.machine + "|" + e.name + "|" + std::to_string(e.sentMicroseconds) + "|" + e.day,
            "k1|com.orvel.performance.signpost|1714521600000000|2024-05-01");
  EXPECT_EQ(e.payload, R"({"Name": "A\"b", "DurationInSeconds": 0.5})");
}

TEST(FleetEventDecoderTest, DayIsTheUtcDayOfTheSendTime) {
  const std::pair<int64_t, const char*> cases[] = {
      {1714521600000000, "2024-05-01"}, {1714521599999999, "2024-04-30"}, {1714607999999999, "2024-05-01"},
      {0, "1970-01-01"},                {-1, "1969-12-31"},                {951782400000000, "2000-02-29"},
  };
  for (auto [us, day] : cases) EXPECT_EQ(UtcDay(us), day) << us;
}

TEST(EventStoreTest, IgnoresDuplicatesKeepsRejectedAndPrunesByDay) {
  TempDir dir;
  std::unique_ptr<EventStore> store;
  ASSERT_FALSE(EventStore::Open(dir.file("fleet.db"), false, &store));
  EXPECT_EQ(Query(*store, "PRAGMA journal_mode"), "wal");
  EXPECT_EQ(Query(*store, "PRAGMA synchronous"), "2");  // FULL
  int64_t inserted = -1;
  ASSERT_FALSE(store->insertBatch({Event("a", 100), Event("b", 200), Event("a", 100)}, {}, 0, &inserted));
  EXPECT_EQ(inserted, 2);
  // A redelivered batch that overlaps the first: only "c" is new.
  ASSERT_FALSE(store->insertBatch({Event("b", 200), Event("c", 300)},
                                  {RejectedMessage{"r1", "lumvane.k.x", "not json", "not JSON"}}, 7, &inserted));
  EXPECT_EQ(inserted, 1);
  EXPECT_EQ(Query(*store, "SELECT group_concat(n, ',') FROM "
                          "(SELECT json_extract(payload, '$.Name') AS n FROM events ORDER BY 1)"),
            "a,b,c");
  EXPECT_EQ(Query(*store, "SELECT reason || '@' || received_us FROM rejected"), "not JSON@7");
  // Pruning goes by whole UTC days: the last µs of the day before goes, the first of the day stays.
  constexpr int64_t kMay1 = 1714521600000000;
  ASSERT_FALSE(store->insertBatch({Event("d", kMay1 - 1), Event("e", kMay1)}, {}, 0, nullptr));
  int64_t deleted = -1;
  ASSERT_FALSE(store->deleteDaysBefore("2024-04-30", &deleted));
  EXPECT_EQ(deleted, 3);  // a, b and c, sent in 1970
  ASSERT_FALSE(store->deleteDaysBefore("2024-05-01", &deleted));
  EXPECT_EQ(deleted, 1);
  EXPECT_EQ(Query(*store, "SELECT group_concat(event_id, ',') FROM events"), "e");

  std::unique_ptr<EventStore> missing;
  std::optional<Error> error = EventStore::Open(dir.file("none.db"), true, &missing);
  ASSERT_TRUE(error);
  EXPECT_NE(error->description().find(dir.file("none.db")), std::string::npos) << error->description();
}

TEST(EventStoreTest, TwoWritersOnOneFileLoseNothing) {
  TempDir dir;
  std::unique_ptr<EventStore> stores[2];
  for (auto& store : stores) ASSERT_FALSE(EventStore::Open(dir.file("shared.db"), false, &store));
  constexpr int kBatches = 40, kPerBatch = 25;
  bool failed[2] = {false, false};
  auto write = [&](int w) {
    for (int b = 0; b < kBatches; ++b) {
      std::vector<FleetEvent> batch;
      for (int i = 0; i < kPerBatch; ++i) batch.push_back(Event(std::to_string(w) + ":" + std::to_string(b) + ":" +
                                                                std::to_string(i), i));
      if (stores[w]->insertBatch(batch, {}, 0, nullptr)) failed[w] = true;
    }
  };
  std::thread other(write, 1);
  write(0);
  other.join();
  EXPECT_FALSE(failed[0] || failed[1]);
  EXPECT_EQ(Query(*stores[0], "SELECT count(*) FROM events"), std::to_string(2 * kBatches * kPerBatch));
}

}  // namespace
}  // namespace lumvane::collect

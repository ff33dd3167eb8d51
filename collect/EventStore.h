// The collector's SQLite database of fleet events.
//
// Schema (version 2, in PRAGMA user_version):
//   events(event_id TEXT,              -- the message ID, stable across re-sends
//          machine TEXT, name TEXT,
//          sent_us INTEGER,            -- send time, µs since the Unix epoch
//          day TEXT,                   -- UTC day of sent_us, YYYY-MM-DD
//          payload TEXT)               -- the payload object as JSON (json_extract works on it)
//   UNIQUE INDEX events_key(day, name, machine, event_id)
//     -- a re-sent event is ignored; the report and the pruning read by day
//   rejected(event_id TEXT PRIMARY KEY, subject TEXT, data BLOB, reason TEXT, received_us INTEGER)
//     messages that were not event lines, kept rather than dropped
// The unique key is also the report's index, so each insert writes two
// B-trees (the rows and the key), not three. Opening a version 1 file for
// writing moves its rows into this schema once, in one transaction.
//
// The file is in WAL mode, so a report can read while a collector writes,
// with a busy timeout so that collectors on one host that share the file
// wait for each other instead of failing. synchronous=FULL: a batch is
// acknowledged to JetStream as soon as its transaction commits, and after
// the acknowledgement the server will not deliver it again; FULL syncs the
// WAL at every commit, so a committed batch survives a power cut as well as
// a crash. The sync is paid once per batch, not once per event.
//
// Thread-safety: one thread at a time. Several processes may open the same
// file at once.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "collect/FleetEvent.h"
#include "collect/SqliteDatabase.h"
#include "collect/SqliteStatement.h"
#include "lumvane/platform/Error.h"

namespace lumvane::collect {

class EventStore final {
 public:
  static constexpr int kBusyTimeoutMs = 10000;

  // Opens `path` (created with its schema unless `mustExist`).
  [[nodiscard]] static std::optional<Error> Open(const std::string& path, bool mustExist,
                                                 std::unique_ptr<EventStore>* out);

  // Writes the events and rejected messages in one transaction; an event
  // whose ID is already stored is skipped. `inserted` (may be null) gets
  // the number of new events. On an error nothing of the batch is kept.
  [[nodiscard]] std::optional<Error> insertBatch(const std::vector<FleetEvent>& events,
                                                 const std::vector<RejectedMessage>& rejected,
                                                 int64_t receivedMicroseconds, int64_t* inserted);

  // Deletes the events of the UTC days before `day` (YYYY-MM-DD).
  [[nodiscard]] std::optional<Error> deleteDaysBefore(const std::string& day, int64_t* deleted);

  SqliteDatabase& database() { return *db_; }

 private:
  EventStore() = default;
  [[nodiscard]] std::optional<Error> rollback(Error error);

  std::unique_ptr<SqliteDatabase> db_;
  std::unique_ptr<SqliteStatement> insertEvent_, insertRejected_, begin_, commit_;
};

}  // namespace lumvane::collect

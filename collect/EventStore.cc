#include "collect/EventStore.h"

#include <sys/stat.h>

#include <string>

namespace lumvane::collect {
namespace {

constexpr int kSchemaVersion = 2;

// The events table has one B-tree besides its rowid: the unique key leads
// with what the report and the pruning select by. The event ID decides the
// rest of the key (a re-sent or redelivered message carries the same line
// on the same subject), so a key that is already stored is that event.
constexpr const char* kEventsTable = R"sql(
CREATE TABLE events (
  event_id TEXT NOT NULL,
  machine  TEXT NOT NULL,
  name     TEXT NOT NULL,
  sent_us  INTEGER NOT NULL,
  day      TEXT NOT NULL,
  payload  TEXT NOT NULL
);
CREATE UNIQUE INDEX events_key ON events(day, name, machine, event_id);
)sql";

constexpr const char* kRejectedTable = R"sql(
CREATE TABLE IF NOT EXISTS rejected (
  event_id    TEXT NOT NULL PRIMARY KEY,
  subject     TEXT NOT NULL,
  data        BLOB NOT NULL,
  reason      TEXT NOT NULL,
  received_us INTEGER NOT NULL
);
)sql";

// Version 1 keyed the table on event_id alone and had a second index on
// (day, name, machine): its rows move into the version 2 table in their
// arrival order, and its indexes go with it.
constexpr const char* kRenameVersion1 = "ALTER TABLE events RENAME TO events_version1;";
constexpr const char* kCopyVersion1 = R"sql(
INSERT OR IGNORE INTO events(event_id, machine, name, sent_us, day, payload)
  SELECT event_id, machine, name, sent_us, day, payload FROM events_version1 ORDER BY rowid;
DROP TABLE events_version1;
)sql";

int64_t UserVersion(SqliteDatabase& db, std::optional<Error>* error) {
  std::unique_ptr<SqliteStatement> stmt;
  if ((*error = db.prepare("PRAGMA user_version", &stmt))) return -1;
  return stmt->step(error) ? stmt->int64(0) : -1;
}

// Brings the file to kSchemaVersion inside the caller's transaction.
std::optional<Error> MakeSchema(SqliteDatabase& db) {
  std::optional<Error> error;
  const int64_t version = UserVersion(db, &error);
  if (error) return error;
  if (version == kSchemaVersion) return std::nullopt;
  if (version > kSchemaVersion) {
    return Error(db.path() + ": schema version " + std::to_string(version) + " is newer than this collector's " +
                 std::to_string(kSchemaVersion));
  }
  if (version == 1) {
    if ((error = db.exec(std::string(kRenameVersion1) + kEventsTable + kCopyVersion1))) return error;
  } else if ((error = db.exec(kEventsTable))) {
    return error;
  }
  if ((error = db.exec(kRejectedTable))) return error;
  return db.exec("PRAGMA user_version = " + std::to_string(kSchemaVersion) + ";");
}

}  // namespace

std::optional<Error> EventStore::Open(const std::string& path, bool mustExist, std::unique_ptr<EventStore>* out) {
  struct stat st {};
  if (mustExist && stat(path.c_str(), &st) != 0) return Error::fromErrno("cannot open database " + path, errno);
  std::unique_ptr<EventStore> store(new EventStore);
  if (auto error = SqliteDatabase::Open(path, !mustExist, &store->db_)) return error;
  SqliteDatabase& db = *store->db_;
  sqlite3_busy_timeout(db.handle(), kBusyTimeoutMs);
  // WAL first: the schema below is then written through the WAL as well.
  if (auto error = db.exec("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;")) return error;
  if (!mustExist) {
    // In one transaction, taken before the version is read: two
    // collectors that open a new or old file at once make or upgrade it once.
    if (auto error = db.exec("BEGIN IMMEDIATE;")) return error;
    if (auto error = MakeSchema(db)) {
      (void)db.exec("ROLLBACK;");
      return error;
    }
    if (auto error = db.exec("COMMIT;")) {
      (void)db.exec("ROLLBACK;");
      return error;
    }
  }
  if (auto error = db.prepare("INSERT OR IGNORE INTO events(event_id, machine, name, sent_us, day, payload) "
                              "VALUES (?1, ?2, ?3, ?4, ?5, ?6)",
                              &store->insertEvent_)) {
    return error;
  }
  if (auto error = db.prepare("INSERT OR IGNORE INTO rejected(event_id, subject, data, reason, received_us) "
                              "VALUES (?1, ?2, ?3, ?4, ?5)",
                              &store->insertRejected_)) {
    return error;
  }
  if (auto error = db.prepare("BEGIN IMMEDIATE", &store->begin_)) return error;
  if (auto error = db.prepare("COMMIT", &store->commit_)) return error;
  *out = std::move(store);
  return std::nullopt;
}

std::optional<Error> EventStore::rollback(Error error) {
  if (sqlite3_get_autocommit(db_->handle()) == 0) (void)db_->exec("ROLLBACK;");
  return error;
}

std::optional<Error> EventStore::insertBatch(const std::vector<FleetEvent>& events,
                                             const std::vector<RejectedMessage>& rejected,
                                             int64_t receivedMicroseconds, int64_t* inserted) {
  // BEGIN IMMEDIATE takes the write lock up front, so a second collector
  // on the file waits (busy timeout) here rather than failing at COMMIT.
  if (auto error = begin_->run()) return rollback(*error);
  int64_t count = 0;
  for (const FleetEvent& e : events) {
    insertEvent_->bindText(1, e.eventId);
    insertEvent_->bindText(2, e.machine);
    insertEvent_->bindText(3, e.name);
    insertEvent_->bindInt64(4, e.sentMicroseconds);
    insertEvent_->bindText(5, e.day);
    insertEvent_->bindText(6, e.payload);
    if (auto error = insertEvent_->run()) return rollback(*error);
    count += sqlite3_changes(db_->handle());
  }
  for (const RejectedMessage& r : rejected) {
    insertRejected_->bindText(1, r.eventId);
    insertRejected_->bindText(2, r.subject);
    insertRejected_->bindText(3, r.data);
    insertRejected_->bindText(4, r.reason);
    insertRejected_->bindInt64(5, receivedMicroseconds);
    if (auto error = insertRejected_->run()) return rollback(*error);
  }
  if (auto error = commit_->run()) return rollback(*error);
  if (inserted) *inserted = count;
  return std::nullopt;
}

std::optional<Error> EventStore::deleteDaysBefore(const std::string& day, int64_t* deleted) {
  std::unique_ptr<SqliteStatement> stmt;
  if (auto error = db_->prepare("DELETE FROM events WHERE day < ?1", &stmt)) return error;
  stmt->bindText(1, day);
  if (auto error = stmt->run()) return error;
  if (deleted) *deleted = sqlite3_changes(db_->handle());
  return std::nullopt;
}

}  // namespace lumvane::collect

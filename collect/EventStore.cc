#include "collect/EventStore.h"

#include <sys/stat.h>

namespace lumvane::collect {
namespace {

constexpr const char* kSchema = R"sql(
CREATE TABLE IF NOT EXISTS events (
  event_id TEXT NOT NULL PRIMARY KEY,
  machine  TEXT NOT NULL,
  name     TEXT NOT NULL,
  sent_us  INTEGER NOT NULL,
  day      TEXT NOT NULL,
  payload  TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS events_day_name_machine ON events(day, name, machine);
CREATE TABLE IF NOT EXISTS rejected (
  event_id    TEXT NOT NULL PRIMARY KEY,
  subject     TEXT NOT NULL,
  data        BLOB NOT NULL,
  reason      TEXT NOT NULL,
  received_us INTEGER NOT NULL
);
PRAGMA user_version = 1;
)sql";

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
    if (auto error = db.exec(std::string("BEGIN IMMEDIATE;") + kSchema + "COMMIT;")) {
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

#include "collect/SqliteDatabase.h"

#include "collect/SqliteStatement.h"

namespace lumvane::collect {

std::optional<Error> SqliteDatabase::Open(const std::string& path, bool create,
                                          std::unique_ptr<SqliteDatabase>* out) {
  sqlite3* db = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0) | SQLITE_OPEN_NOMUTEX;
  const int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
  if (rc != SQLITE_OK) {
    std::string reason = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    sqlite3_close(db);
    return Error("cannot open database " + path + ": " + reason);
  }
  sqlite3_extended_result_codes(db, 1);
  out->reset(new SqliteDatabase(path, db));
  return std::nullopt;
}

SqliteDatabase::~SqliteDatabase() { sqlite3_close(db_); }

std::optional<Error> SqliteDatabase::exec(const std::string& sql) {
  char* message = nullptr;
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
    std::string reason = message ? message : sqlite3_errmsg(db_);
    sqlite3_free(message);
    return Error(path_ + ": " + reason);
  }
  return std::nullopt;
}

std::optional<Error> SqliteDatabase::prepare(const std::string& sql, std::unique_ptr<SqliteStatement>* out) {
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &stmt, nullptr) != SQLITE_OK) {
    return error("cannot prepare a statement");
  }
  *out = std::make_unique<SqliteStatement>(this, stmt);
  return std::nullopt;
}

Error SqliteDatabase::error(const std::string& what) const {
  return Error(path_ + ": " + what + ": " + sqlite3_errmsg(db_));
}

}  // namespace lumvane::collect

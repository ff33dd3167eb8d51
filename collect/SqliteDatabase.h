// One open SQLite database file: owns the sqlite3 handle and closes it when
// it goes. Statements made from it (SqliteStatement) must go first.
//
// Thread-safety: one thread at a time (the handle is opened in SQLite's
// multi-thread mode, so separate SqliteDatabase objects may be used on
// separate threads, also on the same file).
#pragma once

#include <sqlite3.h>

#include <memory>
#include <optional>
#include <string>

#include "lumvane/platform/Error.h"

namespace lumvane::collect {

class SqliteStatement;

class SqliteDatabase final {
 public:
  // Opens (or with `create`, creates) the file at `path`. Errors name it.
  [[nodiscard]] static std::optional<Error> Open(const std::string& path, bool create,
                                                 std::unique_ptr<SqliteDatabase>* out);

  ~SqliteDatabase();
  SqliteDatabase(const SqliteDatabase&) = delete;
  SqliteDatabase& operator=(const SqliteDatabase&) = delete;

  // Runs one or more statements that return no rows.
  [[nodiscard]] std::optional<Error> exec(const std::string& sql);
  [[nodiscard]] std::optional<Error> prepare(const std::string& sql, std::unique_ptr<SqliteStatement>* out);

  // "<path>: <what>: <SQLite's message>".
  Error error(const std::string& what) const;

  sqlite3* handle() const { return db_; }
  const std::string& path() const { return path_; }

 private:
  SqliteDatabase(std::string path, sqlite3* db) : path_(std::move(path)), db_(db) {}

  std::string path_;
  sqlite3* db_;  // owned
};

}  // namespace lumvane::collect

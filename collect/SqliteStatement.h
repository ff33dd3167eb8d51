// One prepared SQLite statement: owns the sqlite3_stmt and finalizes it when
// it goes. Bind (1-based, as SQLite counts), step through the rows, reset to
// run it again. Must not outlive the SqliteDatabase it was prepared on.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "lumvane/platform/Error.h"

namespace lumvane::collect {

class SqliteDatabase;

class SqliteStatement final {
 public:
  SqliteStatement(SqliteDatabase* db, sqlite3_stmt* stmt) : db_(db), stmt_(stmt) {}
  ~SqliteStatement() { sqlite3_finalize(stmt_); }
  SqliteStatement(const SqliteStatement&) = delete;
  SqliteStatement& operator=(const SqliteStatement&) = delete;

  // The text is copied by SQLite only when `transient`; otherwise it must
  // stay alive until the next reset().
  void bindText(int index, std::string_view text, bool transient = false);
  void bindInt64(int index, int64_t value);

  // Steps once: true with a row, false when done (or on an error, which
  // `error` then holds).
  [[nodiscard]] bool step(std::optional<Error>* error);
  // Runs a statement that returns no rows.
  [[nodiscard]] std::optional<Error> run();
  void reset();

  bool isNull(int column) const { return sqlite3_column_type(stmt_, column) == SQLITE_NULL; }
  int64_t int64(int column) const { return sqlite3_column_int64(stmt_, column); }
  double real(int column) const { return sqlite3_column_double(stmt_, column); }
  std::string text(int column) const;

 private:
  SqliteDatabase* db_;
  sqlite3_stmt* stmt_;  // owned
};

}  // namespace lumvane::collect

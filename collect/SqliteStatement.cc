#include "collect/SqliteStatement.h"

#include "collect/SqliteDatabase.h"

namespace lumvane::collect {

void SqliteStatement::bindText(int index, std::string_view text, bool transient) {
  sqlite3_bind_text64(stmt_, index, text.data(), text.size(), transient ? SQLITE_TRANSIENT : SQLITE_STATIC,
                      SQLITE_UTF8);
}

void SqliteStatement::bindInt64(int index, int64_t value) { sqlite3_bind_int64(stmt_, index, value); }

bool SqliteStatement::step(std::optional<Error>* error) {
  const int rc = sqlite3_step(stmt_);
  if (rc == SQLITE_ROW) return true;
  if (rc != SQLITE_DONE) *error = db_->error("statement failed");
  return false;
}

std::optional<Error> SqliteStatement::run() {
  std::optional<Error> error;
  while (step(&error)) {
  }
  reset();
  return error;
}

void SqliteStatement::reset() {
  sqlite3_reset(stmt_);
  sqlite3_clear_bindings(stmt_);
}

std::string SqliteStatement::text(int column) const {
  const unsigned char* p = sqlite3_column_text(stmt_, column);
  if (!p) return {};
  return std::string(reinterpret_cast<const char*>(p), static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column)));
}

}  // namespace lumvane::collect

// Reads one line of journalctl's JSON output (one entry as one JSON object)
// into a record of a SignpostRecordBatch: the values of the fields that
// SignpostEntryBuilder reads, unescaped, left for it to decode. In that form every field value is a string, a
// field the entry holds more than once is an array of its values, a value
// that is not valid text is an array of byte numbers, and null stands for a
// value journalctl left out (over its size limit): an absent value.
//
// Keys are compared as they stand in the line; only a key that holds an
// escape is unescaped. Not thread-safe; one parser per reading thread.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "lumvane/signpost/SignpostRecordBatch.h"

namespace lumvane {

class JournalJsonLineParser final {
 public:
  JournalJsonLineParser();
  ~JournalJsonLineParser();
  JournalJsonLineParser(const JournalJsonLineParser&) = delete;
  JournalJsonLineParser& operator=(const JournalJsonLineParser&) = delete;

  // `line` must be followed by `padding` readable bytes (at least 64).
  // Adds a record with the line's fields to `batch`; false, adding none,
  // when the line is not a JSON object or one of its values has none of the
  // shapes above.
  [[nodiscard]] bool parse(std::string_view line, size_t padding, SignpostRecordBatch* batch);

 private:
  bool parseFields(std::string_view line, size_t padding, SignpostRecordBatch* batch);

  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace lumvane

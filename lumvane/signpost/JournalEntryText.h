// One journal entry written out the way journalctl prints it: as a line of
// its JSON output ("-o json") or as a block of its export format ("-o
// export", the stream that systemd-journal-remote turns into .journal
// files). The generator of synthetic stores and the tests build entries with
// it; the daemon itself only reads them.
//
// A field name may repeat (the journal keeps every value). Not thread-safe;
// one object per writer.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace lumvane {

class JournalEntryText final {
 public:
  // Values longer than this are printed as null in the JSON form, as
  // journalctl does unless given --all.
  static constexpr size_t kJsonValueLimit = 4096;

  void clear() { fields_.clear(); }
  void add(std::string_view name, std::string_view value);
  bool empty() const { return fields_.empty(); }
  const std::vector<std::pair<std::string, std::string>>& fields() const { return fields_; }

  // Appends one JSON object and a newline: every value a string, the values
  // of a repeated name an array of strings, a value that is not printable
  // UTF-8 an array of its byte numbers, an over-long value null. Names come
  // in an order shuffled by `orderSeed` (journalctl's order follows the
  // journal file's layout, not the order the sender used); 0 keeps the
  // order of first appearance.
  void appendJson(std::string* out, uint64_t orderSeed) const;

  // Appends the export form: "NAME=value\n" per field, or for a value that
  // holds a control character or is not UTF-8, "NAME\n", its length as a
  // little-endian 64-bit number, the bytes and "\n"; then the empty line
  // that ends the entry. Fields in the order they were added.
  void appendExport(std::string* out) const;

 private:
  std::vector<std::pair<std::string, std::string>> fields_;
};

}  // namespace lumvane

// The few distinct texts that open begins share (subsystem, category, name,
// process name and path, boot ID), held once per reading pass: an open begin
// refers to the table's copy instead of owning one, and the pairing key is
// made of such references, so that opening and closing a begin copies no
// text once its strings have been seen.
//
// A string is retained by each holder and released when the holder is done;
// strings no one holds stay for reuse until the unheld ones pass a limit,
// when they are swept. bytes() is what the table takes, held or not, and is
// counted by the pairing tables against their budget.
//
// Lifetime: a pointer from retain() or find() is valid while the string is
// retained, and never past the table. The table belongs to one pass; a
// later pass makes its own. Not thread-safe.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace lumvane {

class SignpostStringTable final {
 public:
  // Bytes of unheld strings kept before a sweep, at least.
  static constexpr size_t kMinSweepBytes = size_t{1} << 20;

  SignpostStringTable() = default;
  SignpostStringTable(const SignpostStringTable&) = delete;
  SignpostStringTable& operator=(const SignpostStringTable&) = delete;

  // The table's copy of `text`, or nullptr when it holds none: a string
  // that is not in the table is held by no open begin.
  const std::string* find(std::string_view text) const;
  // The table's copy of `text`, made if need be, with one more holder.
  const std::string* retain(std::string_view text);
  // One holder fewer of a string that retain() gave; nullptr is ignored.
  void release(const std::string* text);

  // Forgets the strings no one holds now.
  void trim();

  size_t size() const { return strings_.size(); }
  size_t bytes() const { return bytes_; }
  // Of bytes(), what the strings no one holds take.
  size_t unheldBytes() const { return unheld_; }

 private:
  struct Interned {
    std::string text;
    size_t holders = 0;
  };
  static size_t cost(const std::string& text);

  // Keys view the bytes of their own Interned, which never move.
  std::unordered_map<std::string_view, std::unique_ptr<Interned>> strings_;
  size_t bytes_ = 0;
  size_t unheld_ = 0;
  size_t sweepAt_ = kMinSweepBytes;
};

}  // namespace lumvane

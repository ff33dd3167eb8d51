// A run of store records as the reading thread found them: for each record,
// the raw values of the fields SignpostEntryBuilder reads, or the record's
// whole data items for the taking thread to sort, copied into the batch
// (a source's own bytes are valid only until its next step), and what the
// source knows of the record without fields. Decoding is left
// to the thread that takes the batch, so that the reading thread does no
// more than walk the store and copy bytes.
//
// A record is written with startRecord(), addField() or addItem() and either
// kept (the next startRecord() or nothing) or taken back with dropRecord(). Once
// warm, writing allocates nothing: clear() keeps the buffers, unless a
// giant record made them larger than kRetainedBytes.
//
// Not thread-safe: one thread writes a batch, then hands it over whole.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumvane {

class SignpostRecordBatch final {
 public:
  static constexpr size_t kRetainedBytes = size_t{4} << 20;

  struct Record {
    // Known from the store's own index, not from a field; take precedence.
    std::optional<uint64_t> realtimeUsec;
    std::optional<uint64_t> monotonicUsec;
    std::array<char, 32> bootID{};  // lowercase hex, when hasBootID
    bool hasBootID = false;
    bool unreadable = false;  // a value the source would not hold
    size_t firstField = 0;
    size_t fieldCount = 0;
    size_t firstByte = 0;      // of the record's field values
    size_t firstItemByte = 0;  // and of its items
    size_t itemEnd = 0;
  };

  // A field of a record: SignpostEntryBuilder's index and the value's bytes.
  struct Field {
    int index;
    size_t offset;
    size_t size;
  };

  // Starts a record at the end of the batch and gives it for its header;
  // the reference holds while the record's fields are added.
  Record& startRecord();
  // One value of one field of the record started last.
  void addField(int index, std::string_view value);
  // One whole "NAME=value" data item of the record started last, for the
  // taking thread to look up: a source whose walk is the slower side
  // leaves even the name lookup to the other thread.
  void addItem(std::string_view item);
  // Takes back the record started last with its fields and items.
  void dropRecord();

  size_t size() const { return records_.size(); }
  size_t bytes() const { return bytes_.size() + items_.size(); }
  const Record& record(size_t i) const { return records_[i]; }
  const Field& field(const Record& r, size_t k) const { return fields_[r.firstField + k]; }
  // Valid until the batch is cleared or written to.
  std::string_view value(const Field& f) const {
    return std::string_view(bytes_.data() + f.offset, f.size);
  }
  // The record's items in the order they were added: `*at` starts at
  // r.firstItemByte; false past the last one.
  bool nextItem(const Record& r, size_t* at, std::string_view* item) const;

  void clear();

 private:
  std::vector<Record> records_;
  std::vector<Field> fields_;
  std::string bytes_;
  std::string items_;  // each a 32-bit length and the bytes
};

}  // namespace lumvane

// One file of the signpost log store, read front to back in large chunks and
// cut into records in place: one record per line, or, for a file whose first
// non-blank character is "[", one record per element of the JSON array it
// holds. Records are handed out as views into the read buffer, each followed
// by at least kPadding readable bytes, so that a JSON parser that reads ahead
// in blocks can work on them without a copy.
//
// Only a regular file is read at a path; it is opened without blocking, so a
// FIFO or a device put in its place is refused at once, with an error naming
// the path. The one exception is "-", standard input, which may be a pipe or
// a terminal: it is waited on in short polls, never in a read that cannot be
// interrupted.
//
// Memory stays bounded by the chunk size and the record limit: a record over
// maxRecordBytes (1,048,576 by default, line feed not counted) is passed over
// as Oversized while it is read, never held whole. A stop flag, when given,
// is looked at before every read and every poll, so a stop takes effect
// within a fraction of a second even inside one endless line (/dev/zero on
// standard input).
//
// Not thread-safe; one reader per thread. The stop flag may be set from any
// thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lumvane/platform/Error.h"
#include "lumvane/platform/UniqueFd.h"

namespace lumvane {

class LogStoreFile final {
 public:
  enum class Framing { Lines, JsonArray };
  enum class Next { Record, Oversized, End, Failed, Stopped };

  static constexpr size_t kPadding = 64;
  static constexpr size_t kDefaultChunkBytes = size_t{1} << 20;
  static constexpr size_t kDefaultMaxRecordBytes = size_t{1} << 20;
  static constexpr const char* kStandardInput = "-";
  // How long one wait for standard input lasts before the stop flag is
  // looked at again.
  static constexpr int kPollMilliseconds = 100;

  // `stopRequested`, when not null, must outlive the reader.
  explicit LogStoreFile(size_t chunkBytes = kDefaultChunkBytes,
                        size_t maxRecordBytes = kDefaultMaxRecordBytes,
                        const std::atomic<bool>* stopRequested = nullptr);
  ~LogStoreFile();
  LogStoreFile(const LogStoreFile&) = delete;
  LogStoreFile& operator=(const LogStoreFile&) = delete;

  // Opens `path` (kStandardInput: a copy of standard input) and reads its
  // first chunk to tell the framing. An error names the path and the reason.
  [[nodiscard]] std::optional<Error> open(const std::string& path);

  // The next record, trimmed of surrounding blanks (blank lines are never
  // handed out). The view stays valid until the next call. After Failed,
  // readError() says why; End, Failed and Stopped are final.
  Next next(std::string_view* record);

  Framing framing() const { return framing_; }
  // Whether reading may wait for a writer (standard input that is not a
  // regular file): records should then be passed on as soon as they come.
  bool mayWait() const { return !regular_; }
  const std::optional<Error>& readError() const { return readError_; }

 private:
  [[nodiscard]] bool fill();  // false on a read error or a stop
  [[nodiscard]] bool waitReadable();  // false on a poll error or a stop
  bool stopRequested() const {
    return stopRequested_ && stopRequested_->load(std::memory_order_relaxed);
  }
  Next halted() const { return stopped_ ? Next::Stopped : Next::Failed; }
  Next nextLine(std::string_view* record);
  Next nextArrayElement(std::string_view* record);
  Next emit(size_t start, size_t end, std::string_view* record);

  const size_t maxRecordBytes_;
  const std::atomic<bool>* const stopRequested_;
  std::string path_;
  UniqueFd fd_;
  bool regular_ = true;  // false: standard input of another kind, polled
  bool stopped_ = false;
  std::vector<char> buf_;  // capacity_ bytes of data, then kPadding spare bytes
  size_t capacity_;
  size_t holdLimit_;  // the buffer never grows past this (a whole record and its end)
  size_t begin_ = 0;  // first byte not yet handed out
  size_t scan_ = 0;   // first byte not yet looked at
  size_t end_ = 0;    // end of the data read
  bool eof_ = false;
  bool oversized_ = false;  // bytes of the current record were dropped
  Framing framing_ = Framing::Lines;
  std::optional<Error> readError_;

  // JSON-array framing: nesting depth (1 inside the outer array), string
  // state and where the current element began.
  int depth_ = 0;
  bool inString_ = false;
  bool escape_ = false;
  bool inElement_ = false;
  bool scalarElement_ = false;
  bool arrayDone_ = false;
};

}  // namespace lumvane

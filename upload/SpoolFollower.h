// Reads the event spool line by line for the uploader, across rotations.
//
// The lines of one generation live in one file: the live event file
// (events.ndjson) until the uploader rotates it to events.ndjson.<g>, under
// the lock that every append takes (see DovetelSpoolLock.h); after that the
// daemon's next append starts a new live file, which becomes generation g+1
// once the rotated file is fully acknowledged, the cursor saved and the
// rotated file removed. A line's (generation, offset) therefore never
// changes, and names the line on every re-send.
//
// Only complete lines (ending in a line feed) are handed out; bytes after
// the last line feed of the live file may still be completed or cut by the
// daemon, and in a rotated file they are a torn line that nobody will finish.
//
// Thread-safety: none; the uploader's main thread owns it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lumvane/platform/Error.h"
#include "upload/UploadCursor.h"

namespace lumvane::upload {

class SpoolFollower final {
 public:
  explicit SpoolFollower(SpoolPaths paths);
  ~SpoolFollower();
  SpoolFollower(const SpoolFollower&) = delete;
  SpoolFollower& operator=(const SpoolFollower&) = delete;

  // Positions at the cursor: removes rotated files of older generations and
  // opens this generation's file. When the file cannot hold the cursor's
  // offset (shorter, or the offset not at a line start) the spool was
  // replaced behind the uploader's back: the cursor moves on to a new
  // generation at offset 0 and `*replaced` is set.
  [[nodiscard]] std::optional<Error> start(UploadCursor* cursor, bool* replaced);

  struct Line {
    uint64_t offset;      // of the line's first byte
    const char* data;     // without the line feed; valid until the next call
    std::size_t length;
    std::size_t capacity; // readable bytes from data on (>= length + padding)
  };
  // The next complete line, or nullopt when there is none yet.
  std::optional<Line> next();
  // Whether next() would hand out a line now.
  bool hasLine();
  // The bytes of an earlier line, for a re-send.
  [[nodiscard]] std::optional<Error> readAt(uint64_t offset, std::size_t length, std::string* out) const;

  uint64_t generation() const { return generation_; }
  uint64_t readOffset() const { return readOffset_; }
  // Whether the current file gets no more appends (rotated away by us, or
  // the live file was replaced by someone else). Looks at the file system.
  bool sealed();
  // Bytes not read yet: the rest of the current file, plus the live file
  // when the current one is sealed.
  uint64_t unreadBytes();
  // Size of the current file (0 when none is open yet).
  uint64_t fileSize() const;

  // Renames the live file away under the spool lock. No-op when sealed.
  [[nodiscard]] std::optional<Error> rotate();
  // For a sealed file read to its end: the bytes after its last line.
  uint64_t tornTail() const { return fileSize() - readOffset_; }
  // After the caller saved the cursor (generation + 1, offset 0): removes
  // the sealed file and follows the live one as the next generation.
  [[nodiscard]] std::optional<Error> nextGeneration();

 private:
  void openLive();
  bool refill();
  void reset(uint64_t offset);

  const SpoolPaths paths_;
  uint64_t generation_ = 1;
  int fd_ = -1;
  bool rotated_ = false;  // fd_ is the rotated file of generation_
  bool replaced_ = false; // the live path no longer names fd_
  uint64_t readOffset_ = 0;
  std::vector<char> buffer_;
  uint64_t bufferStart_ = 0;  // file offset of buffer_[0]
  std::size_t bufferLength_ = 0;
};

}  // namespace lumvane::upload

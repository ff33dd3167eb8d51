// The uploader's durable position, kept beside the spool in upload.cursor
// (a key file, group [Cursor]):
//   Generation  which incarnation of the event file Offset belongs to; it
//               grows by one each time a rotated file is fully acknowledged
//   Offset      every line before this byte is acknowledged (or dropped)
//   DroppedEvents, DroppedBytes  unsent events dropped over the unsent cap
//   MalformedLines  complete lines that were not an event, skipped
//   TornBytes   a torn last line left in a rotated file, never published
//   Connection, Server  the running uploader's connection state
// It is replaced atomically (written to a temporary file, synced, renamed
// over, directory synced), so a crash leaves the old or the new cursor.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "lumvane/platform/Error.h"

namespace lumvane::upload {

struct UploadCursor {
  uint64_t generation = 1;
  uint64_t offset = 0;
  uint64_t droppedEvents = 0;
  uint64_t droppedBytes = 0;
  uint64_t malformedLines = 0;
  uint64_t tornBytes = 0;
  std::string connection = "not running";
  std::string server;
};

// The files of one spool directory.
struct SpoolPaths {
  explicit SpoolPaths(std::string directory);
  std::string directory;
  std::string events;  // the event file the daemon appends to
  std::string cursor;
  std::string lock;    // held by the running uploader
  // The event file once rotated away in `generation`.
  std::string rotated(uint64_t generation) const;
};

// A missing cursor file reads as the default cursor (generation 1, offset 0).
[[nodiscard]] std::optional<Error> ReadUploadCursor(const SpoolPaths& paths, UploadCursor* cursor);
[[nodiscard]] std::optional<Error> WriteUploadCursor(const SpoolPaths& paths, const UploadCursor& cursor);

// fsync of a directory, so that a rename or unlink in it is on disk.
[[nodiscard]] std::optional<Error> SyncDirectory(const std::string& directory);

}  // namespace lumvane::upload

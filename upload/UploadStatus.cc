#include "upload/UploadStatus.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace lumvane::upload {
namespace {

// Counts the complete lines of `path` from `offset` on, and their bytes.
void CountLines(const std::string& path, uint64_t offset, UploadStatus* status) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  char buffer[1 << 16];
  uint64_t pending = 0;  // bytes since the last line feed
  ssize_t n;
  while ((n = ::pread(fd, buffer, sizeof buffer, static_cast<off_t>(offset))) > 0) {
    for (ssize_t i = 0; i < n; ++i) {
      ++pending;
      if (buffer[i] == '\n') {
        ++status->backlogLines;
        status->backlogBytes += pending;
        pending = 0;
      }
    }
    offset += static_cast<uint64_t>(n);
  }
  ::close(fd);
}

}  // namespace

std::optional<Error> ReadUploadStatus(const SpoolPaths& paths, UploadStatus* status) {
  *status = UploadStatus{};
  if (auto error = ReadUploadCursor(paths, &status->cursor)) return error;
  int fd = ::open(paths.lock.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    status->running = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd);
  }
  if (!status->running) status->cursor.connection = "not running";
  const std::string rotated = paths.rotated(status->cursor.generation);
  if (::access(rotated.c_str(), F_OK) == 0) {
    CountLines(rotated, status->cursor.offset, status);
    CountLines(paths.events, 0, status);
  } else {
    CountLines(paths.events, status->cursor.offset, status);
  }
  return std::nullopt;
}

std::string FormatUploadStatus(const SpoolPaths& paths, const UploadStatus& s) {
  const UploadCursor& c = s.cursor;
  std::string out;
  out += "Spool: " + paths.events + "\n";
  out += "Uploader: " + std::string(s.running ? "running" : "not running") + "\n";
  out += "Connection: " + c.connection + (s.running && !c.server.empty() ? " (" + c.server + ")" : "") + "\n";
  out += "Backlog: " + std::to_string(s.backlogLines) + " lines, " + std::to_string(s.backlogBytes) + " bytes\n";
  out += "Acknowledged up to: generation " + std::to_string(c.generation) + ", byte " + std::to_string(c.offset) + "\n";
  out += "Dropped over the unsent cap: " + std::to_string(c.droppedEvents) + " events, " +
         std::to_string(c.droppedBytes) + " bytes\n";
  out += "Skipped malformed lines: " + std::to_string(c.malformedLines) + "\n";
  out += "Torn bytes not published: " + std::to_string(c.tornBytes) + "\n";
  return out;
}

}  // namespace lumvane::upload

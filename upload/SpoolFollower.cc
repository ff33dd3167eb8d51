#include "upload/SpoolFollower.h"

#include <dirent.h>
#include <fcntl.h>
#include <simdjson.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "lumvane/platform/DovetelSpoolLock.h"

namespace lumvane::upload {
namespace {

constexpr std::size_t kChunk = 1 << 20;

bool SameFile(int fd, const std::string& path) {
  struct stat a, b;
  return ::fstat(fd, &a) == 0 && ::stat(path.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
         a.st_ino == b.st_ino;
}

uint64_t SizeOf(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

// The generations of the rotated files in `directory` named "<events>.<n>".
std::vector<uint64_t> RotatedGenerations(const SpoolPaths& paths) {
  std::vector<uint64_t> found;
  DIR* dir = ::opendir(paths.directory.c_str());
  if (!dir) return found;
  const std::string prefix = paths.events.substr(paths.directory.size() + 1) + ".";
  while (dirent* entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name.size() <= prefix.size() || name.compare(0, prefix.size(), prefix) != 0) continue;
    const std::string digits = name.substr(prefix.size());
    if (digits.find_first_not_of("0123456789") != std::string::npos) continue;
    found.push_back(std::strtoull(digits.c_str(), nullptr, 10));
  }
  ::closedir(dir);
  return found;
}

}  // namespace

SpoolFollower::SpoolFollower(SpoolPaths paths)
    : paths_(std::move(paths)), buffer_(kChunk + simdjson::SIMDJSON_PADDING) {}

SpoolFollower::~SpoolFollower() {
  if (fd_ >= 0) ::close(fd_);
}

std::optional<Error> SpoolFollower::start(UploadCursor* cursor, bool* replaced) {
  *replaced = false;
  generation_ = cursor->generation;
  for (uint64_t g : RotatedGenerations(paths_)) {
    if (g < generation_ && ::unlink(paths_.rotated(g).c_str()) != 0 && errno != ENOENT) {
      return Error::fromErrno("cannot remove " + paths_.rotated(g), errno);
    }
  }
  if (fd_ >= 0) ::close(fd_);
  fd_ = ::open(paths_.rotated(generation_).c_str(), O_RDONLY | O_CLOEXEC);
  rotated_ = fd_ >= 0;
  replaced_ = false;
  if (!rotated_) openLive();
  reset(cursor->offset);

  bool fits = cursor->offset == 0 || fileSize() >= cursor->offset;
  if (fits && cursor->offset > 0) {
    char before = 0;
    fits = ::pread(fd_, &before, 1, static_cast<off_t>(cursor->offset - 1)) == 1 && before == '\n';
  }
  if (!fits) {
    *replaced = true;
    if (rotated_) {
      (void)!::unlink(paths_.rotated(generation_).c_str());
      ::close(fd_);
      fd_ = -1;
      rotated_ = false;
      openLive();
    }
    cursor->generation = ++generation_;
    cursor->offset = 0;
    reset(0);
  }
  return std::nullopt;
}

void SpoolFollower::openLive() {
  fd_ = ::open(paths_.events.c_str(), O_RDONLY | O_CLOEXEC);
}

void SpoolFollower::reset(uint64_t offset) {
  readOffset_ = offset;
  bufferStart_ = offset;
  bufferLength_ = 0;
}

uint64_t SpoolFollower::fileSize() const {
  struct stat st;
  return fd_ >= 0 && ::fstat(fd_, &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

bool SpoolFollower::refill() {
  if (fd_ < 0) {
    openLive();
    if (fd_ < 0) return false;
  }
  const std::size_t used = static_cast<std::size_t>(readOffset_ - bufferStart_);
  const std::size_t kept = bufferLength_ - used;
  std::memmove(buffer_.data(), buffer_.data() + used, kept);
  bufferStart_ = readOffset_;
  bufferLength_ = kept;
  const std::size_t capacity = buffer_.size() - simdjson::SIMDJSON_PADDING;
  if (kept == capacity) buffer_.resize(capacity * 2 + simdjson::SIMDJSON_PADDING);  // one very long line
  const std::size_t room = buffer_.size() - simdjson::SIMDJSON_PADDING - kept;
  ssize_t n;
  do {
    n = ::pread(fd_, buffer_.data() + kept, room, static_cast<off_t>(bufferStart_ + kept));
  } while (n < 0 && errno == EINTR);
  if (n <= 0) return false;
  bufferLength_ += static_cast<std::size_t>(n);
  return true;
}

std::optional<SpoolFollower::Line> SpoolFollower::next() {
  for (;;) {
    const std::size_t pos = static_cast<std::size_t>(readOffset_ - bufferStart_);
    const char* begin = buffer_.data() + pos;
    if (const void* nl = std::memchr(begin, '\n', bufferLength_ - pos)) {
      const std::size_t length = static_cast<const char*>(nl) - begin;
      Line line{readOffset_, begin, length, buffer_.size() - pos};
      readOffset_ += length + 1;
      return line;
    }
    if (!refill()) return std::nullopt;
  }
}

bool SpoolFollower::hasLine() {
  for (;;) {
    const std::size_t pos = static_cast<std::size_t>(readOffset_ - bufferStart_);
    if (std::memchr(buffer_.data() + pos, '\n', bufferLength_ - pos)) return true;
    if (!refill()) return false;
  }
}

std::optional<Error> SpoolFollower::readAt(uint64_t offset, std::size_t length, std::string* out) const {
  out->assign(length, '\0');
  ssize_t n = ::pread(fd_, out->data(), length, static_cast<off_t>(offset));
  if (n != static_cast<ssize_t>(length)) {
    return Error::fromErrno("cannot re-read " + std::to_string(length) + " bytes at " + std::to_string(offset) +
                                " of the event file",
                            n < 0 ? errno : EIO);
  }
  return std::nullopt;
}

bool SpoolFollower::sealed() {
  if (rotated_ || replaced_) return true;
  if (fd_ < 0) return false;
  replaced_ = !SameFile(fd_, paths_.events);
  return replaced_;
}

uint64_t SpoolFollower::unreadBytes() {
  uint64_t unread = fileSize() - readOffset_;
  if (sealed()) unread += SizeOf(paths_.events);
  return unread;
}

std::optional<Error> SpoolFollower::rotate() {
  if (sealed() || fd_ < 0) return std::nullopt;
  int lockFd = -1;
  if (auto error = OpenLockedDovetelSpool(paths_.events, O_RDONLY, &lockFd)) return error;
  std::optional<Error> error;
  if (!SameFile(fd_, paths_.events)) {
    replaced_ = true;  // someone else replaced it; nothing of ours to rename
  } else if (::rename(paths_.events.c_str(), paths_.rotated(generation_).c_str()) != 0) {
    error = Error::fromErrno("cannot rotate " + paths_.events, errno);
  } else {
    rotated_ = true;
    error = SyncDirectory(paths_.directory);
  }
  ::close(lockFd);  // unlocks: appends go on, into a new live file
  return error;
}

std::optional<Error> SpoolFollower::nextGeneration() {
  if (rotated_ && ::unlink(paths_.rotated(generation_).c_str()) != 0 && errno != ENOENT) {
    return Error::fromErrno("cannot remove " + paths_.rotated(generation_), errno);
  }
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  rotated_ = false;
  replaced_ = false;
  ++generation_;
  openLive();
  reset(0);
  return std::nullopt;
}

}  // namespace lumvane::upload

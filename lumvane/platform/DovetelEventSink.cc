#include "lumvane/platform/DovetelEventSink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "lumvane/filter/LVLog.h"
#include "lumvane/platform/DovetelDirectory.h"
#include "lumvane/platform/DovetelEventJson.h"
#include "lumvane/platform/DovetelSpoolLock.h"
#include "lumvane/platform/Error.h"
#include "lumvane/platform/NoDestructor.h"
#include "lumvane/platform/UniqueFd.h"

namespace lumvane {
namespace {

// Creates `directory` and any missing parents ("mkdir -p").
[[nodiscard]] std::optional<Error> MakeDirectories(const std::string& directory) {
  struct stat st;
  if (::stat(directory.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return std::nullopt;
    return Error::fromErrno("cannot use " + directory + " as a directory", ENOTDIR);
  }
  std::size_t slash = directory.find_last_of('/');
  if (slash != std::string::npos && slash > 0) {
    if (auto error = MakeDirectories(directory.substr(0, slash))) return error;
  }
  if (::mkdir(directory.c_str(), 0755) != 0 && errno != EEXIST) {
    return Error::fromErrno("cannot create directory " + directory, errno);
  }
  return std::nullopt;
}

// The length of the file up to and including its last line feed: what is
// left once a partial last line is cut away. Reads backwards from the end in
// blocks, so a whole file is read only when it holds no line feed at all.
[[nodiscard]] std::optional<Error> WholeLinesLength(int fd, const std::string& path, off_t size,
                                                    off_t* length) {
  constexpr off_t kBlock = 4096;
  char block[kBlock];
  off_t end = size;
  while (end > 0) {
    const off_t start = end > kBlock ? end - kBlock : 0;
    const size_t want = static_cast<size_t>(end - start);
    ssize_t n;
    do {
      n = ::pread(fd, block, want, start);
    } while (n < 0 && errno == EINTR);
    if (n < 0) return Error::fromErrno("cannot read " + path, errno);
    if (static_cast<size_t>(n) != want) return Error("cannot read " + path + ": it shrank");
    for (size_t i = want; i > 0; --i) {
      if (block[i - 1] == '\n') {
        *length = start + static_cast<off_t>(i);
        return std::nullopt;
      }
    }
    end = start;
  }
  *length = 0;
  return std::nullopt;
}

class FileDovetelEventSink final : public DovetelEventSink {
 public:
  explicit FileDovetelEventSink(FileDovetelEventSinkOptions options) : options_(options) {}

  void sendEvent(const std::string& name, const Dictionary& payload) override {
    const auto sent = std::chrono::duration_cast<std::chrono::microseconds>(
                          std::chrono::system_clock::now().time_since_epoch())
                          .count();
    const std::string line = EncodeDovetelEventLine(name, payload, sent);
    const std::string directory = DovetelDirectory();
    std::lock_guard<std::mutex> lock(mu_);
    if (std::optional<Error> error = append(directory, line)) {
      LVLogError("Could not send telemetry event %@: %@", name, error->localizedDescription());
    }
  }

 private:
  [[nodiscard]] std::optional<Error> append(const std::string& directory,
                                            const std::string& line) {
    if (auto error = MakeDirectories(directory)) return error;
    const std::string path = directory + "/events.ndjson";
    // O_NOFOLLOW: a link planted at the path must not redirect the events
    // into another file. O_NONBLOCK: a FIFO there must not hang the open; it
    // is refused below, and on a regular file the flag does nothing. The
    // file is locked against the uploader's rotation (DovetelSpoolLock.h)
    // until it is closed, the cut of a partial last line included.
    int raw = -1;
    if (auto error = OpenLockedDovetelSpool(path, O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK,
                                            &raw)) {
      return error;
    }
    UniqueFd fd(raw);
    struct stat st;
    if (::fstat(fd.get(), &st) != 0) return Error::fromErrno("cannot inspect " + path, errno);
    if (!S_ISREG(st.st_mode)) return Error("cannot append to " + path + ": not a regular file");
    if (repaired_.count(path) == 0) {
      if (auto error = cutPartialLastLine(fd.get(), path, st.st_size)) return error;
      repaired_.insert(path);
    }
    std::optional<Error> error = writeLine(fd.get(), path, line);
    if (!error && options_.syncEachEvent && ::fdatasync(fd.get()) != 0) {
      // The line may or may not be on disk: take it back, since the send is
      // reported as failed.
      error = Error::fromErrno("cannot sync " + path, errno);
      cutBack(fd.get(), path, line.size());
    }
    if (fd.close() != 0 && !error) error = Error::fromErrno("cannot close " + path, errno);
    return error;
  }

  // A process that died in the middle of an append (power loss, SIGKILL
  // between a short write and its repair) leaves a line without its line
  // feed; the next line would be glued onto it and both would be lost. Run
  // once per path and process, before the first append.
  [[nodiscard]] std::optional<Error> cutPartialLastLine(int fd, const std::string& path,
                                                        off_t size) const {
    off_t length = 0;
    if (auto error = WholeLinesLength(fd, path, size, &length)) return error;
    if (length == size) return std::nullopt;
    if (::ftruncate(fd, length) != 0) {
      return Error::fromErrno("cannot cut a partial last line from " + path, errno);
    }
    if (options_.syncEachEvent) (void)::fdatasync(fd);
    LVLogError("Removed a partial last line of %lld bytes from %@",
               static_cast<long long>(size - length), path);
    return std::nullopt;
  }

  // One whole line or, on failure, none of it: a write cut short (a full
  // disk) is retried for the rest, which brings out the system's reason, and
  // whatever part did reach the file is cut back off.
  [[nodiscard]] std::optional<Error> writeLine(int fd, const std::string& path,
                                               const std::string& line) {
    size_t written = 0;
    while (written < line.size()) {
      const ssize_t n = ::write(fd, line.data() + written, line.size() - written);
      if (n > 0) {
        written += static_cast<size_t>(n);
        continue;
      }
      if (n < 0 && errno == EINTR) continue;
      Error error = Error::fromErrno("cannot write to " + path, n < 0 ? errno : EIO);
      if (written > 0) cutBack(fd, path, written);
      return error;
    }
    return std::nullopt;
  }

  // Removes the last `bytes` bytes that this process wrote through `fd` (an
  // O_APPEND descriptor, so its offset is the end of that write). When that
  // fails the file is left with a partial line, which the next append to the
  // path cuts away.
  void cutBack(int fd, const std::string& path, size_t bytes) {
    const off_t end = ::lseek(fd, 0, SEEK_CUR);
    if (end >= static_cast<off_t>(bytes) && ::ftruncate(fd, end - static_cast<off_t>(bytes)) == 0) {
      return;
    }
    repaired_.erase(path);
  }

  const FileDovetelEventSinkOptions options_;
  std::mutex mu_;  // one append at a time, so a cut never meets a neighbour
  std::set<std::string> repaired_;  // paths already freed of a partial last line
};

std::shared_ptr<DovetelEventSink>& SinkSlot() {
  static NoDestructor<std::shared_ptr<DovetelEventSink>> slot(NewFileDovetelEventSink());
  return *slot;
}

}  // namespace

std::shared_ptr<DovetelEventSink> NewFileDovetelEventSink(FileDovetelEventSinkOptions options) {
  return std::make_shared<FileDovetelEventSink>(options);
}

std::shared_ptr<DovetelEventSink> ExchangeDovetelEventSink(std::shared_ptr<DovetelEventSink> sink) {
  return std::atomic_exchange(&SinkSlot(), std::move(sink));
}

void DovetelSendEvent(const std::string& name, const Dictionary& payload) {
  std::shared_ptr<DovetelEventSink> sink = std::atomic_load(&SinkSlot());
  if (sink) sink->sendEvent(name, payload);
}

}  // namespace lumvane

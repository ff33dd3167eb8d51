#include "lumvane/platform/DovetelEventSink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>

#include "lumvane/filter/LVLog.h"
#include "lumvane/platform/DovetelDirectory.h"
#include "lumvane/platform/DovetelEventJson.h"
#include "lumvane/platform/Error.h"
#include "lumvane/platform/NoDestructor.h"

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
                                            const std::string& line) const {
    if (auto error = MakeDirectories(directory)) return error;
    const std::string path = directory + "/events.ndjson";
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return Error::fromErrno("cannot open " + path, errno);
    std::optional<Error> error = writeLine(fd, path, line);
    if (!error && options_.syncEachEvent && ::fdatasync(fd) != 0) {
      error = Error::fromErrno("cannot sync " + path, errno);
    }
    if (::close(fd) != 0 && !error) error = Error::fromErrno("cannot close " + path, errno);
    return error;
  }

  // One write(2) of the whole line. A short write (a full disk) is cut back
  // off the file so that the next event does not land behind a torn line.
  [[nodiscard]] static std::optional<Error> writeLine(int fd, const std::string& path,
                                                      const std::string& line) {
    ssize_t n;
    do {
      n = ::write(fd, line.data(), line.size());
    } while (n < 0 && errno == EINTR);
    if (n < 0) return Error::fromErrno("cannot write to " + path, errno);
    if (static_cast<std::size_t>(n) == line.size()) return std::nullopt;
    struct stat st;
    if (::fstat(fd, &st) == 0 && st.st_size >= n) {
      (void)!::ftruncate(fd, st.st_size - n);
    }
    return Error("cannot write a whole line to " + path + ": " + std::to_string(n) + " of " +
                 std::to_string(line.size()) + " bytes written");
  }

  const FileDovetelEventSinkOptions options_;
  std::mutex mu_;  // one append at a time, so a cut-back never meets a neighbour
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

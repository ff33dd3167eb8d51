#include "lumvane/platform/DovetelConfigurationObserver.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <set>
#include <thread>
#include <utility>

#include "lumvane/filter/LVLog.h"
#include "lumvane/platform/DovetelDirectory.h"
#include "lumvane/platform/JsonValue.h"
#include "lumvane/platform/UniqueFd.h"

namespace lumvane {

void DovetelConfigurationObserver::setConfigurationObserverDelegate(
    std::shared_ptr<DovetelConfigurationObserverDelegate> delegate,
    std::shared_ptr<WorkQueue> queue) {
  std::lock_guard<std::mutex> lock(mu_);
  delegate_ = std::move(delegate);
  queue_ = std::move(queue);
}

void DovetelConfigurationObserver::deliver(const std::optional<Value>& configuration,
                                           const std::string& type) {
  std::shared_ptr<DovetelConfigurationObserverDelegate> delegate;
  std::shared_ptr<WorkQueue> queue;
  {
    std::lock_guard<std::mutex> lock(mu_);
    delegate = delegate_;
    queue = queue_;
  }
  if (!delegate || !queue) return;
  // The observer is captured weakly: a queued delivery must neither keep it
  // alive nor end its life on the delegate's queue.
  std::weak_ptr<DovetelConfigurationObserver> self = weak_from_this();
  queue->async([delegate, self, configuration, type] {
    delegate->observer(self, configuration, type);
  });
}

std::shared_ptr<WorkQueue> DovetelConfigurationObserver::deliveryQueue() {
  std::lock_guard<std::mutex> lock(mu_);
  return queue_;
}

namespace {

constexpr size_t kMaxConfigurationBytes = 1 << 20;
constexpr const char* kJsonSuffix = ".json";

// Reads a whole regular file. Absent result without error: there is no
// file. The open does not block, so that a FIFO planted at the path cannot
// hold the gate before its timeout starts; it is then refused like any other
// special file.
std::optional<Error> readFile(const std::string& path, std::optional<std::string>* out) {
  UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd) {
    if (errno == ENOENT) return std::nullopt;
    return Error::fromErrno("cannot open " + path, errno);
  }
  struct stat st;
  if (fstat(fd.get(), &st) != 0) return Error::fromErrno("cannot read " + path, errno);
  if (!S_ISREG(st.st_mode)) return Error("cannot read " + path + ": not a regular file");
  std::string text;
  char buf[8192];
  for (;;) {
    ssize_t n = read(fd.get(), buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return Error::fromErrno("cannot read " + path, errno);
    if (n == 0) break;
    text.append(buf, static_cast<size_t>(n));
    if (text.size() > kMaxConfigurationBytes) {
      return Error(path + " is larger than " + std::to_string(kMaxConfigurationBytes) + " bytes");
    }
  }
  *out = std::move(text);
  return std::nullopt;
}

class FileConfigurationObserver final : public DovetelConfigurationObserver {
 public:
  explicit FileConfigurationObserver(std::optional<std::string> dovetelDirectory)
      : dovetelDirectory_(std::move(dovetelDirectory)) {}

  ~FileConfigurationObserver() override {
    if (thread_.joinable()) {
      uint64_t one = 1;
      // eventfd writes of 8 bytes do not fail short of an overflowed counter.
      [[maybe_unused]] ssize_t n = write(wakeFd_, &one, sizeof one);
      thread_.join();
    }
    if (wakeFd_ >= 0) close(wakeFd_);
    if (inotifyFd_ >= 0) close(inotifyFd_);
  }

  void startObservingConfigurationType(const std::string& type) override {
    std::lock_guard<std::mutex> lock(mu_);
    if (!started_) {
      started_ = true;
      directory_ = (dovetelDirectory_ ? *dovetelDirectory_ : DovetelDirectory()) +
                   "/configurations";
      // The watch is in place before the first read, so a change made
      // between the two is not lost.
      startWatching();
    }
    types_.insert(type);
    readAndDeliver(type);
  }

 private:
  // Called with mu_ held. Without a watch (no directory yet, inotify
  // unavailable) the observer still delivers the current configuration; it
  // just sees no later change.
  void startWatching() {
    inotifyFd_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotifyFd_ < 0) return;
    if (inotify_add_watch(inotifyFd_, directory_.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) < 0) {
      close(inotifyFd_);
      inotifyFd_ = -1;
      return;
    }
    wakeFd_ = eventfd(0, EFD_CLOEXEC);
    if (wakeFd_ < 0) return;
    thread_ = std::thread([this] { watch(); });
  }

  // Called with mu_ held, which keeps the deliveries in the order the file
  // was read in.
  void readAndDeliver(const std::string& type) {
    std::string path = directory_ + "/" + type + kJsonSuffix;
    std::optional<std::string> text;
    if (std::optional<Error> error = readFile(path, &text)) {
      LVLogError("Could not read configuration file %@: %@", path, error->description());
      return;
    }
    if (!text) return;
    std::optional<Value> configuration;
    if (std::optional<Error> error = ParseJsonValue(*text, &configuration)) {
      LVLogError("Invalid configuration file %@: %@", path, error->description());
      return;
    }
    deliver(configuration, type);
  }

  void watch() {
    alignas(struct inotify_event) char buf[4096];
    for (;;) {
      struct pollfd fds[2] = {{inotifyFd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
      int ready = poll(fds, 2, -1);
      if (ready < 0) {
        if (errno == EINTR) continue;
        return;
      }
      if (fds[1].revents != 0) return;
      ssize_t n = read(inotifyFd_, buf, sizeof buf);
      if (n <= 0) continue;  // EAGAIN or EINTR
      for (char* p = buf; p < buf + n;) {
        auto* event = reinterpret_cast<struct inotify_event*>(p);
        p += sizeof(struct inotify_event) + event->len;
        if (event->len == 0) continue;
        std::string name(event->name);
        size_t suffix = std::char_traits<char>::length(kJsonSuffix);
        if (name.size() <= suffix || name.compare(name.size() - suffix, suffix, kJsonSuffix) != 0)
          continue;
        std::string type = name.substr(0, name.size() - suffix);
        std::lock_guard<std::mutex> lock(mu_);
        if (types_.count(type)) readAndDeliver(type);
      }
    }
  }

  const std::optional<std::string> dovetelDirectory_;
  std::mutex mu_;  // guards everything below
  bool started_ = false;
  std::string directory_;
  std::set<std::string> types_;
  int inotifyFd_ = -1;
  int wakeFd_ = -1;
  std::thread thread_;
};

}  // namespace

std::shared_ptr<DovetelConfigurationObserver> NewDovetelConfigurationObserver() {
  return std::make_shared<FileConfigurationObserver>(std::nullopt);
}

std::shared_ptr<DovetelConfigurationObserver> NewDovetelConfigurationObserver(
    std::string dovetelDirectory) {
  return std::make_shared<FileConfigurationObserver>(std::move(dovetelDirectory));
}

}  // namespace lumvane

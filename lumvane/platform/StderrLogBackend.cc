#include <errno.h>
#include <unistd.h>

#include "lumvane/platform/LogBackend.h"

namespace lumvane {
namespace {

// The record goes out in a single write, so that records of several threads
// (or processes sharing the descriptor) never run into each other.
class StderrLogBackend final : public LogBackend {
 public:
  StderrLogBackend(LogLevel threshold, int fd) : threshold_(threshold), fd_(fd) {}

  bool isEnabled(LogLevel level) const override { return level >= threshold_; }

  void write(LogLevel level, std::string_view subsystem, std::string_view category,
             std::string_view message) override {
    if (!isEnabled(level)) return;
    const std::string record = FormatLogRecord(program_invocation_short_name, ::getpid(), level,
                                               subsystem, category, message);
    const char* p = record.data();
    size_t left = record.size();
    while (left > 0) {
      ssize_t w = ::write(fd_, p, left);
      if (w < 0) {
        if (errno == EINTR) continue;
        return;  // nowhere left to report a failing log
      }
      p += w;
      left -= static_cast<size_t>(w);
    }
  }

 private:
  const LogLevel threshold_;
  const int fd_;
};

}  // namespace

std::shared_ptr<LogBackend> NewStderrLogBackend(LogLevel threshold, int fd) {
  return std::make_shared<StderrLogBackend>(threshold, fd);
}

}  // namespace lumvane

#include <errno.h>
#include <syslog.h>

#include "lumvane/platform/LogBackend.h"

namespace lumvane {
namespace {

// syslog(3) adds the PROGRAM[PID] tag itself; the text after it reads as the
// rest of a stderr record, so that both targets show a message alike.
class SyslogLogBackend final : public LogBackend {
 public:
  explicit SyslogLogBackend(LogLevel threshold) : threshold_(threshold) {
    // The identifier is kept by pointer; the program's short name lives as
    // long as the process.
    openlog(program_invocation_short_name, LOG_PID, LOG_DAEMON);
  }

  bool isEnabled(LogLevel level) const override { return level >= threshold_; }

  void write(LogLevel level, std::string_view subsystem, std::string_view category,
             std::string_view message) override {
    if (!isEnabled(level)) return;
    // A closing line feed is the end of the record, not part of its text.
    if (!message.empty() && message.back() == '\n') message.remove_suffix(1);
    syslog(LogLevelPriority(level), "%s %.*s/%.*s: %.*s", LogLevelName(level),
           static_cast<int>(subsystem.size()), subsystem.data(),
           static_cast<int>(category.size()), category.data(),
           static_cast<int>(message.size()), message.data());
  }

 private:
  const LogLevel threshold_;
};

}  // namespace

std::shared_ptr<LogBackend> NewSyslogLogBackend(LogLevel threshold) {
  return std::make_shared<SyslogLogBackend>(threshold);
}

}  // namespace lumvane

// Where log records go. The system log handle (SystemLog) formats a message
// only after asking its backend whether the level is enabled, then hands the
// finished text over. Backends are shared and called from any thread; each
// must write one whole record per call, never interleaved with another.
#pragma once

#include <memory>
#include <string_view>

namespace lumvane {

enum class LogLevel { Debug = 0, Info = 1, Error = 2 };

const char* LogLevelName(LogLevel level);

class LogBackend {
 public:
  virtual ~LogBackend() = default;
  virtual bool isEnabled(LogLevel level) const = 0;
  virtual void write(LogLevel level, std::string_view subsystem, std::string_view category,
                     std::string_view message) = 0;
};

// The backends of a real machine. `threshold` is the lowest level written;
// std::nullopt-like "off" is expressed by NewLogBackendFromEnvironment only.
std::shared_ptr<LogBackend> NewStderrLogBackend(LogLevel threshold);
std::shared_ptr<LogBackend> NewSyslogLogBackend(LogLevel threshold);
std::shared_ptr<LogBackend> NewDisabledLogBackend();

// The backend chosen by the environment: LUMVANE_LOG_TARGET ("stderr", the
// default, or "syslog") and LUMVANE_LOG_LEVEL ("debug", the default, "info",
// "error" or "off"). An unknown value is reported once on standard error and
// the default is used.
std::shared_ptr<LogBackend> NewLogBackendFromEnvironment();

}  // namespace lumvane

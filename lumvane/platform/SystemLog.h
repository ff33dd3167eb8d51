// A system-log handle: a subsystem and a category bound to a backend, with a
// level test and printf-style writers (see LogFormat.h for "%@"). The
// message is formatted only when its level is enabled. Handles are used
// from any thread; tests swap the backend to read what was logged.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "lumvane/platform/LogBackend.h"
#include "lumvane/platform/LogFormat.h"

namespace lumvane {

class SystemLog final {
 public:
  SystemLog(std::string subsystem, std::string category, std::shared_ptr<LogBackend> backend);

  const std::string& subsystem() const { return subsystem_; }
  const std::string& category() const { return category_; }

  bool isEnabled(LogLevel level) const;
  void write(LogLevel level, std::string_view message) const;

  template <typename... A>
  void log(LogLevel level, const char* fmt, const A&... args) const {
    std::shared_ptr<LogBackend> b = backend();
    if (!b->isEnabled(level)) return;
    b->write(level, subsystem_, category_, LVFormat(fmt, args...));
  }
  template <typename... A>
  void debug(const char* fmt, const A&... args) const { log(LogLevel::Debug, fmt, args...); }
  template <typename... A>
  void info(const char* fmt, const A&... args) const { log(LogLevel::Info, fmt, args...); }
  template <typename... A>
  void error(const char* fmt, const A&... args) const { log(LogLevel::Error, fmt, args...); }

  // Replaces the backend and returns the previous one; safe while other
  // threads log (they finish with whichever backend they picked up).
  std::shared_ptr<LogBackend> exchangeBackend(std::shared_ptr<LogBackend> backend);
  std::shared_ptr<LogBackend> backend() const;

 private:
  const std::string subsystem_;
  const std::string category_;
  std::shared_ptr<LogBackend> backend_;  // accessed only through std::atomic_load/store
};

}  // namespace lumvane

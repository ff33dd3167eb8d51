#include "lumvane/platform/LogBackend.h"

#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace lumvane {

const char* LogLevelName(LogLevel level) {
  switch (level) {
    case LogLevel::Debug: return "Debug";
    case LogLevel::Info: return "Info";
    case LogLevel::Error: return "Error";
  }
  return "?";
}

namespace {

// One record per line on standard error:
//   2026-11-22 19:46:36.123456+0000 lumvaned[42] <Debug> [com.orvel.Vantrel:lumvane] text
// A message that ends in a line feed keeps it; any other gets one, so that
// records never run into each other. The record goes out in a single write.
class StderrLogBackend final : public LogBackend {
 public:
  explicit StderrLogBackend(LogLevel threshold) : threshold_(threshold) {}

  bool isEnabled(LogLevel level) const override { return level >= threshold_; }

  void write(LogLevel level, std::string_view subsystem, std::string_view category,
             std::string_view message) override {
    if (!isEnabled(level)) return;
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    struct tm tm;
    localtime_r(&ts.tv_sec, &tm);
    char stamp[64];
    size_t n = strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tm);
    char zone[8];
    strftime(zone, sizeof zone, "%z", &tm);
    std::snprintf(stamp + n, sizeof stamp - n, ".%06ld%s", ts.tv_nsec / 1000, zone);

    std::string record;
    record.reserve(message.size() + 96);
    record += stamp;
    record += ' ';
    record += program_invocation_short_name;
    record += '[';
    record += std::to_string(getpid());
    record += "] <";
    record += LogLevelName(level);
    record += "> [";
    record += subsystem;
    record += ':';
    record += category;
    record += "] ";
    record += message;
    if (record.empty() || record.back() != '\n') record += '\n';
    const char* p = record.data();
    size_t left = record.size();
    while (left > 0) {
      ssize_t w = ::write(STDERR_FILENO, p, left);
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
};

class SyslogLogBackend final : public LogBackend {
 public:
  explicit SyslogLogBackend(LogLevel threshold) : threshold_(threshold) {
    openlog(program_invocation_short_name, LOG_PID, LOG_DAEMON);
  }

  bool isEnabled(LogLevel level) const override { return level >= threshold_; }

  void write(LogLevel level, std::string_view subsystem, std::string_view category,
             std::string_view message) override {
    if (!isEnabled(level)) return;
    int priority = level == LogLevel::Error ? LOG_ERR : level == LogLevel::Info ? LOG_INFO : LOG_DEBUG;
    syslog(priority, "<%s> [%.*s:%.*s] %.*s", LogLevelName(level),
           static_cast<int>(subsystem.size()), subsystem.data(),
           static_cast<int>(category.size()), category.data(),
           static_cast<int>(message.size()), message.data());
  }

 private:
  const LogLevel threshold_;
};

class DisabledLogBackend final : public LogBackend {
 public:
  bool isEnabled(LogLevel) const override { return false; }
  void write(LogLevel, std::string_view, std::string_view, std::string_view) override {}
};

}  // namespace

std::shared_ptr<LogBackend> NewStderrLogBackend(LogLevel threshold) {
  return std::make_shared<StderrLogBackend>(threshold);
}

std::shared_ptr<LogBackend> NewSyslogLogBackend(LogLevel threshold) {
  return std::make_shared<SyslogLogBackend>(threshold);
}

std::shared_ptr<LogBackend> NewDisabledLogBackend() {
  return std::make_shared<DisabledLogBackend>();
}

std::shared_ptr<LogBackend> NewLogBackendFromEnvironment() {
  LogLevel threshold = LogLevel::Debug;
  const char* level = std::getenv("LUMVANE_LOG_LEVEL");
  if (level && *level) {
    if (std::strcmp(level, "debug") == 0) {
      threshold = LogLevel::Debug;
    } else if (std::strcmp(level, "info") == 0) {
      threshold = LogLevel::Info;
    } else if (std::strcmp(level, "error") == 0) {
      threshold = LogLevel::Error;
    } else if (std::strcmp(level, "off") == 0) {
      return NewDisabledLogBackend();
    } else {
      std::fprintf(stderr,
                   "lumvane: LUMVANE_LOG_LEVEL=%s is not one of debug, info, error, off; "
                   "using debug\n",
                   level);
    }
  }
  const char* target = std::getenv("LUMVANE_LOG_TARGET");
  if (target && std::strcmp(target, "syslog") == 0) return NewSyslogLogBackend(threshold);
  if (target && *target && std::strcmp(target, "stderr") != 0) {
    std::fprintf(stderr,
                 "lumvane: LUMVANE_LOG_TARGET=%s is not one of stderr, syslog; using stderr\n",
                 target);
  }
  return NewStderrLogBackend(threshold);
}

}  // namespace lumvane

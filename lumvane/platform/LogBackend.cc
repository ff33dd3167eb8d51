#include "lumvane/platform/LogBackend.h"

#include <sys/stat.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace lumvane {

const char* LogLevelName(LogLevel level) {
  switch (level) {
    case LogLevel::Debug: return "debug";
    case LogLevel::Info: return "info";
    case LogLevel::Error: return "error";
  }
  return "?";
}

int LogLevelPriority(LogLevel level) {
  switch (level) {
    case LogLevel::Debug: return 7;
    case LogLevel::Info: return 6;
    case LogLevel::Error: return 3;
  }
  return 7;
}

std::string FormatLogRecord(std::string_view program, pid_t pid, LogLevel level,
                            std::string_view subsystem, std::string_view category,
                            std::string_view message) {
  std::string record;
  record.reserve(program.size() + subsystem.size() + category.size() + message.size() + 32);
  record += program;
  record += '[';
  record += std::to_string(pid);
  record += "]: ";
  record += LogLevelName(level);
  record += ' ';
  record += subsystem;
  record += '/';
  record += category;
  record += ": ";
  record += message;
  if (record.back() != '\n') record += '\n';
  return record;
}

namespace {

class DisabledLogBackend final : public LogBackend {
 public:
  bool isEnabled(LogLevel) const override { return false; }
  void write(LogLevel, std::string_view, std::string_view, std::string_view) override {}
};

// One unsigned decimal number filling the whole of `text`.
bool ParseDecimal(std::string_view text, unsigned long long* out) {
  if (text.empty()) return false;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), *out);
  return ec == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::shared_ptr<LogBackend> NewDisabledLogBackend() {
  return std::make_shared<DisabledLogBackend>();
}

bool IsJournalStream(const char* journalStream, int fd) {
  if (!journalStream) return false;
  std::string_view value(journalStream);
  std::size_t colon = value.find(':');
  unsigned long long device = 0, inode = 0;
  if (colon == std::string_view::npos || !ParseDecimal(value.substr(0, colon), &device) ||
      !ParseDecimal(value.substr(colon + 1), &inode)) {
    return false;
  }
  struct stat st;
  if (::fstat(fd, &st) != 0) return false;
  return static_cast<unsigned long long>(st.st_dev) == device &&
         static_cast<unsigned long long>(st.st_ino) == inode;
}

LogTarget LogTargetFromEnvironment(int stderrFd) {
  const LogTarget fallback =
      IsJournalStream(std::getenv("JOURNAL_STREAM"), stderrFd) ? LogTarget::Journal
                                                                : LogTarget::Stderr;
  const char* target = std::getenv("LUMVANE_LOG_TARGET");
  if (!target || !*target) return fallback;
  if (std::strcmp(target, "stderr") == 0) return LogTarget::Stderr;
  if (std::strcmp(target, "syslog") == 0) return LogTarget::Syslog;
  if (std::strcmp(target, "journal") == 0) return LogTarget::Journal;
  dprintf(stderrFd,
          "lumvane: LUMVANE_LOG_TARGET=%s is not one of stderr, syslog, journal; using %s\n",
          target, fallback == LogTarget::Journal ? "journal" : "stderr");
  return fallback;
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
  switch (LogTargetFromEnvironment()) {
    case LogTarget::Syslog: return NewSyslogLogBackend(threshold);
    case LogTarget::Journal: return NewJournalLogBackend(threshold);
    case LogTarget::Stderr: break;
  }
  return NewStderrLogBackend(threshold);
}

}  // namespace lumvane

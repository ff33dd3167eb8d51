// Where log records go. The system log handle (SystemLog) formats a message
// only after asking its backend whether the level is enabled, then hands the
// finished text over. Backends are shared and called from any thread; each
// must write one whole record per call, never interleaved with another.
//
// A Linux program logs to one of three places: its standard error (which a
// service manager may connect to the journal), the syslog socket, or the
// journal itself as structured entries. LUMVANE_LOG_TARGET picks one.
#pragma once

#include <unistd.h>

#include <memory>
#include <string>
#include <string_view>

namespace lumvane {

enum class LogLevel { Debug = 0, Info = 1, Error = 2 };

// "debug", "info", "error": the word a record shows its level by.
const char* LogLevelName(LogLevel level);
// The syslog priority of a level, as the journal's PRIORITY field holds it:
// debug 7, info 6, error 3.
int LogLevelPriority(LogLevel level);

class LogBackend {
 public:
  virtual ~LogBackend() = default;
  virtual bool isEnabled(LogLevel level) const = 0;
  virtual void write(LogLevel level, std::string_view subsystem, std::string_view category,
                     std::string_view message) = 0;
};

// One record as standard error shows it:
//   PROGRAM[PID]: LEVEL SUBSYSTEM/CATEGORY: TEXT
// A message that holds line feeds continues on the following lines without
// the prefix; the record ends in exactly one line feed (a message that ends
// in one keeps it, any other gets one).
std::string FormatLogRecord(std::string_view program, pid_t pid, LogLevel level,
                            std::string_view subsystem, std::string_view category,
                            std::string_view message);

// The backends of a real machine; `threshold` is the lowest level written.
// The program's name is program_invocation_short_name.
//
// Stderr: FormatLogRecord's line, in one write(2) to `fd` (standard error
// unless a test gives another descriptor; it is not closed).
std::shared_ptr<LogBackend> NewStderrLogBackend(LogLevel threshold, int fd = STDERR_FILENO);
// Syslog: syslog(3) at the level's priority, facility LOG_DAEMON, tagged
// PROGRAM[PID]; the text is the stderr record without its prefix up to the
// level ("LEVEL SUBSYSTEM/CATEGORY: TEXT").
std::shared_ptr<LogBackend> NewSyslogLogBackend(LogLevel threshold);
// Journal: one structured entry per message with PRIORITY, MESSAGE,
// SYSLOG_IDENTIFIER (the program's name), LUMVANE_SUBSYSTEM and
// LUMVANE_CATEGORY, and no source-location fields. When no journal listens
// (its socket is missing) or it refuses an entry, the record goes to standard
// error instead, so none is lost.
std::shared_ptr<LogBackend> NewJournalLogBackend(LogLevel threshold);
std::shared_ptr<LogBackend> NewDisabledLogBackend();

enum class LogTarget { Stderr, Syslog, Journal };

// Whether `journalStream`, a value of the JOURNAL_STREAM variable
// ("DEVICE:INODE" in decimal, as the service manager sets it), names the
// file open on `fd`. A null, empty or malformed value names nothing.
bool IsJournalStream(const char* journalStream, int fd);

// LUMVANE_LOG_TARGET ("stderr", "syslog" or "journal"); when unset or empty,
// "journal" if JOURNAL_STREAM says `stderrFd` is connected to the journal,
// else "stderr". An unknown value is reported once on `stderrFd` and the
// default is used.
LogTarget LogTargetFromEnvironment(int stderrFd = STDERR_FILENO);

// The backend chosen by the environment: LogTargetFromEnvironment and
// LUMVANE_LOG_LEVEL ("debug", the default, "info", "error" or "off"). An
// unknown level is reported once on standard error and the default is used.
std::shared_ptr<LogBackend> NewLogBackendFromEnvironment();

}  // namespace lumvane

// The location fields (CODE_FILE, CODE_LINE, CODE_FUNC) would name this file
// for every message; they tell a reader nothing.
#define SD_JOURNAL_SUPPRESS_LOCATION 1

#include <errno.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <systemd/sd-journal.h>

#include <string>

#include "lumvane/platform/LogBackend.h"

namespace lumvane {
namespace {

// journald's socket for structured entries (systemd-journald.service(8)).
// sd_journal_sendv reports success when it is missing, so its presence is
// what tells whether an entry can reach the journal at all.
constexpr char kJournalSocket[] = "/run/systemd/journal/socket";

bool JournalListens() {
  struct stat st;
  return ::stat(kJournalSocket, &st) == 0 && S_ISSOCK(st.st_mode);
}

class JournalLogBackend final : public LogBackend {
 public:
  explicit JournalLogBackend(LogLevel threshold)
      : threshold_(threshold), fallback_(NewStderrLogBackend(threshold)) {}

  bool isEnabled(LogLevel level) const override { return level >= threshold_; }

  void write(LogLevel level, std::string_view subsystem, std::string_view category,
             std::string_view message) override {
    if (!isEnabled(level)) return;
    if (!JournalListens()) {
      fallback_->write(level, subsystem, category, message);
      return;
    }
    std::string_view text = message;
    // A closing line feed is the end of the record, not part of its text.
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    const std::string fields[] = {
        "PRIORITY=" + std::to_string(LogLevelPriority(level)),
        "MESSAGE=" + std::string(text),
        std::string("SYSLOG_IDENTIFIER=") + program_invocation_short_name,
        "LUMVANE_SUBSYSTEM=" + std::string(subsystem),
        "LUMVANE_CATEGORY=" + std::string(category),
    };
    struct iovec iov[std::size(fields)];
    for (std::size_t i = 0; i < std::size(fields); ++i) {
      iov[i].iov_base = const_cast<char*>(fields[i].data());
      iov[i].iov_len = fields[i].size();
    }
    if (sd_journal_sendv(iov, static_cast<int>(std::size(iov))) < 0) {
      fallback_->write(level, subsystem, category, message);
    }
  }

 private:
  const LogLevel threshold_;
  const std::shared_ptr<LogBackend> fallback_;
};

}  // namespace

std::shared_ptr<LogBackend> NewJournalLogBackend(LogLevel threshold) {
  return std::make_shared<JournalLogBackend>(threshold);
}

}  // namespace lumvane

// A systemd-journald of a test's own, so that entries can be sent and read back without touching the
// machine's journal. Start() moves the calling process into new user and mount namespaces for the rest
// of its life (one such test per process, as CTest runs them) and starts journald over a tmpfs on /run:
// sd_journal_sendv() in this process and its children reaches it, and its files are under kDirectory.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

namespace lumvane::testing {

class PrivateJournal final {
 public:
  struct Options {
    bool rateLimit = true;      // false: RateLimitIntervalSec=0, for senders of many entries
    bool startJournald = true;  // false: the namespaces and /run only, no journald
    bool privateVarTmp = false;  // a tmpfs over /var/tmp too, for a lumvane run's guard file
  };

  // A running journal; or `skip` when this machine cannot run one (no user
  // namespaces, no journald); or `error` when it should have worked.
  struct Started {
    std::unique_ptr<PrivateJournal> journal;
    std::string skip, error;
  };

  // Call while the process has one thread only (unshare(2) requires it).
  static Started Start(const Options& options);
  static Started Start() { return Start(Options{}); }
  ~PrivateJournal();  // stops journald
  PrivateJournal(const PrivateJournal&) = delete;
  PrivateJournal& operator=(const PrivateJournal&) = delete;

  static constexpr const char* kDirectory = "/run/log/journal";        // one machine-ID folder below
  static constexpr const char* kSocket = "/run/systemd/journal/socket";  // where senders find it

  // Waits until journald has written every entry sent before the call; "" or what went wrong.
  [[nodiscard]] std::string sync();

  // Stops journald; with `removeSocket` its socket goes too, as on a machine without a journal;
  // without, a stale socket is left that nobody reads.
  void stop(bool removeSocket);

  // Pauses or resumes journald: while frozen, entries wait in its socket and it looks nothing up
  // about their senders.
  void freeze(bool frozen);

  std::string log() const;  // journald's own diagnostics, for failure messages

 private:
  PrivateJournal() = default;
  pid_t pid_ = -1;
};

}  // namespace lumvane::testing

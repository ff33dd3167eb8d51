// A systemd-journald of a test's own, so that journal entries can be sent and
// read back without touching the machine's journal.
//
// Start() moves the calling process into new user and mount namespaces (for
// the rest of its life: run such tests one per process, as CTest does), puts
// a tmpfs over /run and starts /lib/systemd/systemd-journald there with
// volatile storage. sd_journal_sendv() in this process and its children then
// reaches that journald, and its files are under kDirectory. The machine's
// own journal is never written.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

namespace lumvane::testing {

class PrivateJournal final {
 public:
  struct Options {
    // false: RateLimitIntervalSec=0, for senders of many entries.
    bool rateLimit = true;
    // false: the namespaces and /run are set up, but no journald runs.
    bool startJournald = true;
    // true: a tmpfs over /var/tmp too, so that a run of lumvane started in
    // the namespace keeps its guard file to itself.
    bool privateVarTmp = false;
  };

  // One of three outcomes: a running journal; `skip` set when this machine
  // cannot do it (no user namespaces, no journald binary); `error` set when
  // it should have worked and did not.
  struct Started {
    std::unique_ptr<PrivateJournal> journal;
    std::string skip;
    std::string error;
  };

  // Call while the process has one thread only (unshare(2) requires it).
  static Started Start(const Options& options);
  static Started Start() { return Start(Options{}); }
  ~PrivateJournal();  // stops journald
  PrivateJournal(const PrivateJournal&) = delete;
  PrivateJournal& operator=(const PrivateJournal&) = delete;

  // Where journald keeps its files (one machine-ID folder below it).
  static constexpr const char* kDirectory = "/run/log/journal";
  // Where senders find journald.
  static constexpr const char* kSocket = "/run/systemd/journal/socket";

  // Waits until journald has written every entry sent before the call
  // (journalctl --sync). Returns an empty string, or what went wrong.
  [[nodiscard]] std::string sync();

  // Stops journald; with `removeSocket` its socket goes too, as on a machine
  // without a journal; without, a stale socket is left that nobody reads.
  void stop(bool removeSocket);

  // journald's own diagnostics, for failure messages.
  std::string log() const;

 private:
  PrivateJournal() = default;
  pid_t pid_ = -1;
};

}  // namespace lumvane::testing

#include "tests/support/PrivateJournal.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>

namespace lumvane::testing {
namespace {

constexpr const char* kJournald = "/lib/systemd/systemd-journald";
constexpr const char* kLog = "/run/lumvane-test-journald.log";
// journalctl --sync talks to journald here; it appears after the socket.
constexpr const char* kControl = "/run/systemd/journal/io.systemd.journal";

std::string Errno(const std::string& what) { return what + ": " + std::strerror(errno); }

bool WriteText(const std::string& path, const std::string& text) {
  std::ofstream out(path);
  return static_cast<bool>(out << text << std::flush);
}

bool IsSocket(const char* path) {
  struct stat st;
  return stat(path, &st) == 0 && S_ISSOCK(st.st_mode);
}

// New user namespace mapping this user to root in it, and a new mount
// namespace hiding the machine's /run. A refusal (a security module may allow
// the namespace but not mounting in it) sets `skip`; anything else is an error.
std::string EnterNamespaces(std::string* skip) {
  auto refused = [skip](const std::string& what) {
    std::string text = Errno(what);
    if (errno != EPERM && errno != EACCES && errno != EINVAL && errno != ENOSPC) return text;
    *skip = "this machine allows no private user and mount namespaces: " + text;
    return std::string();
  };
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("Threads:", 0) == 0 && std::stoi(line.substr(8)) != 1)
      return "PrivateJournal::Start needs a single-threaded process; this one has" + line.substr(8);
  uid_t uid = geteuid();
  gid_t gid = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return refused("unshare");
  if (!WriteText("/proc/self/setgroups", "deny") ||
      !WriteText("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
      !WriteText("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1"))
    return refused("mapping the user into the new namespace");
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return refused("making mounts private");
  if (mount("tmpfs", "/run", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0)
    return refused("mounting a tmpfs on /run");
  for (const char* dir : {"/run/systemd", "/run/systemd/journal", "/run/systemd/journald.conf.d",
                          "/run/log", "/run/log/journal"})
    if (mkdir(dir, 0755) != 0) return Errno(std::string("creating ") + dir);
  return {};
}

}  // namespace

PrivateJournal::Started PrivateJournal::Start(const Options& options) {
  Started started;
  if (access(kJournald, X_OK) != 0) {
    started.skip = std::string(kJournald) + " is not installed";
    return started;
  }
  auto fail = [&started](std::string error) {
    started.error = std::move(error);
    return std::move(started);
  };
  std::string error = EnterNamespaces(&started.skip);
  if (!started.skip.empty() || !error.empty()) return fail(error);
  if (options.privateVarTmp &&
      mount("tmpfs", "/var/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0)
    return fail(Errno("mounting a tmpfs on /var/tmp"));
  // Drop-ins in /run come after the machine's own journald.conf; "zz" puts
  // this one after any other the machine has.
  std::string conf =
      "[Journal]\nStorage=volatile\nForwardToSyslog=no\nForwardToKMsg=no\n"
      "ForwardToConsole=no\nForwardToWall=no\n";
  if (!options.rateLimit) conf += "RateLimitIntervalSec=0\n";
  if (!WriteText("/run/systemd/journald.conf.d/zz-lumvane-test.conf", conf))
    return fail(Errno("writing the journald configuration"));
  std::unique_ptr<PrivateJournal> journal(new PrivateJournal());
  if (options.startJournald) {
    pid_t parent = getpid();
    journal->pid_ = fork();
    if (journal->pid_ < 0) return fail(Errno("fork"));
    if (journal->pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlive the test, whatever becomes of it
      if (getppid() != parent) _exit(1);
      int log = open(kLog, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
      if (log >= 0) {
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
      }
      for (const char* name : {"NOTIFY_SOCKET", "LISTEN_FDS", "LISTEN_PID"}) unsetenv(name);
      execl(kJournald, kJournald, static_cast<char*>(nullptr));
      _exit(127);
    }
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!IsSocket(kSocket) || !IsSocket(kControl)) {
      if (waitpid(journal->pid_, nullptr, WNOHANG) == journal->pid_) {
        journal->pid_ = -1;
        return fail("systemd-journald ended at start: " + journal->log());
      }
      if (std::chrono::steady_clock::now() > deadline)
        return fail("systemd-journald made no socket within 10 s: " + journal->log());
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  started.journal = std::move(journal);
  return started;
}

PrivateJournal::~PrivateJournal() { stop(false); }

std::string PrivateJournal::sync() {
  if (pid_ < 0) return "no journald is running";
  int status = std::system("journalctl --sync >/dev/null");
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
  return "journalctl --sync failed with status " + std::to_string(status);
}

void PrivateJournal::stop(bool removeSocket) {
  if (pid_ > 0) {
    freeze(false);
    kill(pid_, SIGTERM);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
  }
  if (removeSocket) unlink(kSocket);
}

void PrivateJournal::freeze(bool frozen) {
  if (pid_ > 0) kill(pid_, frozen ? SIGSTOP : SIGCONT);
}

std::string PrivateJournal::log() const {
  std::ifstream in(kLog);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace lumvane::testing

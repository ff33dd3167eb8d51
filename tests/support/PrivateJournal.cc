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
#include <sstream>
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
  out << text;
  return static_cast<bool>(out.flush());
}

bool IsSocket(const char* path) {
  struct stat st;
  return stat(path, &st) == 0 && S_ISSOCK(st.st_mode);
}

// Runs `argv` to its end; its exit status, or -1.
int Run(const char* const argv[]) {
  pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    int null = open("/dev/null", O_WRONLY);
    if (null >= 0) dup2(null, STDOUT_FILENO);
    execvp(argv[0], const_cast<char* const*>(argv));
    _exit(127);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// New user namespace mapping this user to root in it, and a new mount
// namespace in which the machine's /run is hidden. A refusal (EPERM, EACCES:
// a security module may allow the namespace but not mounting in it) means
// this machine cannot do it; anything else is an error.
std::string EnterNamespaces(std::string* skip) {
  auto refused = [skip](const std::string& what) {
    std::string text = Errno(what);
    if (errno == EPERM || errno == EACCES || errno == EINVAL || errno == ENOSPC) {
      *skip = "this machine allows no private user and mount namespaces: " + text;
      return std::string();
    }
    return text;
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
  started.error = EnterNamespaces(&started.skip);
  if (!started.skip.empty() || !started.error.empty()) return started;
  if (options.privateVarTmp &&
      mount("tmpfs", "/var/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0) {
    started.error = Errno("mounting a tmpfs on /var/tmp");
    return started;
  }

  // Drop-ins in /run come after the machine's own journald.conf; the "zz"
  // puts this one after any the machine has in /run, /usr/lib or /etc.
  std::string conf =
      "[Journal]\nStorage=volatile\nForwardToSyslog=no\nForwardToKMsg=no\n"
      "ForwardToConsole=no\nForwardToWall=no\n";
  if (!options.rateLimit) conf += "RateLimitIntervalSec=0\n";
  if (!WriteText("/run/systemd/journald.conf.d/zz-lumvane-test.conf", conf)) {
    started.error = Errno("writing the journald configuration");
    return started;
  }
  std::unique_ptr<PrivateJournal> journal(new PrivateJournal());
  if (!options.startJournald) {
    started.journal = std::move(journal);
    return started;
  }

  pid_t parent = getpid();
  journal->pid_ = fork();
  if (journal->pid_ < 0) {
    started.error = Errno("fork");
    return started;
  }
  if (journal->pid_ == 0) {
    // Never outlive the test, whatever becomes of it.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
    int log = open(kLog, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (log >= 0) {
      dup2(log, STDOUT_FILENO);
      dup2(log, STDERR_FILENO);
    }
    unsetenv("NOTIFY_SOCKET");
    unsetenv("LISTEN_FDS");
    unsetenv("LISTEN_PID");
    execl(kJournald, kJournald, static_cast<char*>(nullptr));
    _exit(127);
  }
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!IsSocket(kSocket) || !IsSocket(kControl)) {
    int status;
    if (waitpid(journal->pid_, &status, WNOHANG) == journal->pid_) {
      journal->pid_ = -1;
      started.error = "systemd-journald ended at start: " + journal->log();
      return started;
    }
    if (std::chrono::steady_clock::now() > deadline) {
      started.error = "systemd-journald made no socket within 10 s: " + journal->log();
      return started;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  started.journal = std::move(journal);
  return started;
}

PrivateJournal::~PrivateJournal() { stop(false); }

std::string PrivateJournal::sync() {
  if (pid_ < 0) return "no journald is running";
  const char* argv[] = {"journalctl", "--sync", nullptr};
  int status = Run(argv);
  return status == 0 ? std::string()
                     : "journalctl --sync failed with status " + std::to_string(status);
}

void PrivateJournal::stop(bool removeSocket) {
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    int status;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
  }
  if (removeSocket) unlink(kSocket);
}

std::string PrivateJournal::log() const {
  std::ifstream in(kLog);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace lumvane::testing

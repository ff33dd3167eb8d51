#include "tests/support/PrivateVarTmp.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace lumvane::testing {
namespace {

std::string Reason(const std::string& what) { return what + ": " + std::strerror(errno); }

// Writes `text` to a /proc file in one write, as the kernel requires.
std::optional<std::string> WriteProcFile(const char* path, const std::string& text) {
  int fd = ::open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0) return Reason(std::string("open ") + path);
  ssize_t written = ::write(fd, text.data(), text.size());
  std::optional<std::string> error;
  if (written != static_cast<ssize_t>(text.size())) error = Reason(std::string("write ") + path);
  ::close(fd);
  return error;
}

std::optional<std::string> MountTmpfs(const std::string& dir, const std::string& options) {
  if (::mount("tmpfs", dir.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) == 0) {
    return std::nullopt;
  }
  return Reason("mount tmpfs on " + dir);
}

}  // namespace

std::optional<std::string> EnterPrivateTmpfs(const std::string& dir, const std::string& options) {
  // Map our own ids onto themselves, so that files keep their owner and the
  // programs we start run as the same user they would outside.
  const uid_t uid = ::getuid();
  const gid_t gid = ::getgid();
  if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) {
    // setgroups must be denied before an unprivileged process may write gid_map.
    if (auto error = WriteProcFile("/proc/self/setgroups", "deny")) return error;
    const std::string uids = std::to_string(uid), gids = std::to_string(gid);
    if (auto error = WriteProcFile("/proc/self/uid_map", uids + " " + uids + " 1\n")) return error;
    if (auto error = WriteProcFile("/proc/self/gid_map", gids + " " + gids + " 1\n")) return error;
  } else {
    // Where user namespaces are refused (a container's seccomp filter, say,
    // or a process that already runs threads), a privileged process can still
    // have a mount namespace of its own.
    std::string refused = Reason("unshare(CLONE_NEWUSER|CLONE_NEWNS)");
    if (::unshare(CLONE_NEWNS) != 0) return refused + "; " + Reason("unshare(CLONE_NEWNS)");
  }
  // Nothing mounted here may reach the machine's own mount table.
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return Reason("make / private");
  }
  return MountTmpfs(dir, options);
}

std::optional<std::string> EnterPrivateVarTmp() {
  if (auto error = EnterPrivateTmpfs("/var/tmp", "mode=1777")) return error;
  struct stat st;
  if (::stat("/etc/lumvane", &st) == 0 && S_ISDIR(st.st_mode)) {
    return MountTmpfs("/etc/lumvane", "mode=755");
  }
  return std::nullopt;
}

std::optional<std::string> RunInPrivateTmpfs(const std::string& dir, const std::string& options,
                                             const std::function<std::string()>& body,
                                             std::string* whyNot, pid_t* child) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return *whyNot = Reason("pipe"), std::nullopt;
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::alarm(10);
    const std::optional<std::string> error = EnterPrivateTmpfs(dir, options);
    const std::string answer = error ? *error : body();
    const bool written = ::write(fds[1], answer.data(), answer.size()) ==
                         static_cast<ssize_t>(answer.size());
    ::_exit(!error && written ? 0 : 3);
  }
  ::close(fds[1]);
  if (child) *child = pid;
  std::string answer;
  char buf[4096];
  for (ssize_t n; (n = ::read(fds[0], buf, sizeof buf)) > 0;) answer.append(buf, size_t(n));
  ::close(fds[0]);
  int status = 0;
  if (pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
      WEXITSTATUS(status) == 0) {
    return answer;
  }
  *whyNot = answer.empty() ? "the child failed" : answer;
  return std::nullopt;
}

}  // namespace lumvane::testing

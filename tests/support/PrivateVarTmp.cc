#include "tests/support/PrivateVarTmp.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
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

}  // namespace

std::optional<std::string> EnterPrivateVarTmp() {
  // Map our own ids onto themselves, so that files keep their owner and the
  // programs we start run as the same user they would outside.
  const uid_t uid = ::getuid();
  const gid_t gid = ::getgid();
  if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) {
    // setgroups must be denied before an unprivileged process may write gid_map.
    if (auto error = WriteProcFile("/proc/self/setgroups", "deny")) return error;
    if (auto error = WriteProcFile("/proc/self/uid_map",
                                   std::to_string(uid) + " " + std::to_string(uid) + " 1\n")) {
      return error;
    }
    if (auto error = WriteProcFile("/proc/self/gid_map",
                                   std::to_string(gid) + " " + std::to_string(gid) + " 1\n")) {
      return error;
    }
  } else {
    // Where user namespaces are refused (a container's seccomp filter, say),
    // a privileged process can still have a mount namespace of its own.
    std::string refused = Reason("unshare(CLONE_NEWUSER|CLONE_NEWNS)");
    if (::unshare(CLONE_NEWNS) != 0) return refused + "; " + Reason("unshare(CLONE_NEWNS)");
  }
  // Nothing mounted here may reach the machine's own mount table.
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return Reason("make / private");
  }
  if (::mount("tmpfs", "/var/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0) {
    return Reason("mount tmpfs on /var/tmp");
  }
  struct stat st;
  if (::stat("/etc/lumvane", &st) == 0 && S_ISDIR(st.st_mode) &&
      ::mount("tmpfs", "/etc/lumvane", "tmpfs", MS_NOSUID | MS_NODEV, "mode=755") != 0) {
    return Reason("mount tmpfs on /etc/lumvane");
  }
  return std::nullopt;
}

}  // namespace lumvane::testing

#include "lumvane/platform/DovetelSpoolLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace lumvane {

std::optional<Error> OpenLockedDovetelSpool(const std::string& path, int flags, int* fd) {
  // A rotation between open and lock sends us round again; rotations are
  // rare, so a bounded number of rounds only guards against a runaway loop.
  for (int round = 0; round < 100; ++round) {
    int f = ::open(path.c_str(), flags | O_CLOEXEC, 0644);
    if (f < 0 && errno == ELOOP && (flags & O_NOFOLLOW)) {
      return Error("cannot open " + path + ": it is a symbolic link");
    }
    if (f < 0) return Error::fromErrno("cannot open " + path, errno);
    int rc;
    do {
      rc = ::flock(f, LOCK_EX);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) {
      const int err = errno;
      ::close(f);
      return Error::fromErrno("cannot lock " + path, err);
    }
    struct stat opened, named;
    if (::fstat(f, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
        opened.st_ino == named.st_ino) {
      *fd = f;
      return std::nullopt;
    }
    ::close(f);
    if (!(flags & O_CREAT)) return Error::fromErrno("cannot open " + path, ENOENT);
  }
  return Error("cannot lock " + path + ": it keeps being replaced");
}

}  // namespace lumvane

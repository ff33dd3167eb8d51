#include "lumvane/platform/FileManager.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "lumvane/platform/NoDestructor.h"

namespace lumvane {
namespace {

void setError(std::optional<Error>* errorOut, Error error) {
  if (errorOut) *errorOut = std::move(error);
}

// Removes everything inside the open directory `dirFd` (which this call owns
// and closes). `dirPath` only names the directory in error descriptions.
// Entries are reached relative to their parent's descriptor and opened with
// O_NOFOLLOW, so a link swapped in for a subdirectory is unlinked, never
// followed.
bool removeContents(int dirFd, const std::string& dirPath, std::optional<Error>* errorOut) {
  DIR* dir = fdopendir(dirFd);
  if (!dir) {
    int err = errno;
    close(dirFd);
    setError(errorOut, Error::fromErrno("cannot read directory " + dirPath, err));
    return false;
  }
  bool ok = true;
  while (true) {
    errno = 0;
    struct dirent* entry = readdir(dir);
    if (!entry) {
      if (errno != 0) {
        setError(errorOut, Error::fromErrno("cannot read directory " + dirPath, errno));
        ok = false;
      }
      break;
    }
    const char* name = entry->d_name;
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
    std::string childPath = dirPath + "/" + name;
    int childFd = openat(dirfd(dir), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (childFd >= 0) {
      if (!removeContents(childFd, childPath, errorOut)) {
        ok = false;
        break;
      }
      if (unlinkat(dirfd(dir), name, AT_REMOVEDIR) != 0) {
        setError(errorOut, Error::fromErrno("cannot remove " + childPath, errno));
        ok = false;
        break;
      }
    } else if (errno == ENOTDIR || errno == ELOOP) {
      // Not a directory, or a link (to anything): the entry itself goes.
      if (unlinkat(dirfd(dir), name, 0) != 0) {
        setError(errorOut, Error::fromErrno("cannot remove " + childPath, errno));
        ok = false;
        break;
      }
    } else {
      setError(errorOut, Error::fromErrno("cannot open " + childPath, errno));
      ok = false;
      break;
    }
  }
  closedir(dir);
  return ok;
}

class PosixFileManager final : public FileManager {
 public:
  bool fileExistsAtPath(const std::string& path, bool* isDirectory) const override {
    struct stat st;
    bool exists = lstat(path.c_str(), &st) == 0;
    if (isDirectory) *isDirectory = exists && S_ISDIR(st.st_mode);
    return exists;
  }

  bool createFileAtPath(const std::string& path, std::optional<Error>* errorOut) override {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) {
      setError(errorOut, Error::fromErrno("cannot create " + path, errno));
      return false;
    }
    if (close(fd) != 0) {
      setError(errorOut, Error::fromErrno("cannot close " + path, errno));
      return false;
    }
    return true;
  }

  bool removeItemAtPath(const std::string& path, std::optional<Error>* errorOut) override {
    int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
      if (errno != ENOTDIR && errno != ELOOP) {
        setError(errorOut, Error::fromErrno("cannot remove " + path, errno));
        return false;
      }
      if (unlink(path.c_str()) != 0) {
        setError(errorOut, Error::fromErrno("cannot remove " + path, errno));
        return false;
      }
      return true;
    }
    if (!removeContents(fd, path, errorOut)) return false;
    // rmdir never follows a link: if the directory was swapped for one in the
    // meantime this fails instead of touching the link's target.
    if (rmdir(path.c_str()) != 0) {
      setError(errorOut, Error::fromErrno("cannot remove " + path, errno));
      return false;
    }
    return true;
  }
};

}  // namespace

FileManager& DefaultFileManager() {
  static NoDestructor<PosixFileManager> manager;
  return *manager;
}

}  // namespace lumvane

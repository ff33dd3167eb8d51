#include "lumvane/platform/BundleLookup.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "lumvane/platform/GLibPtr.h"
#include "lumvane/platform/NoDestructor.h"

namespace lumvane {
namespace {

// Desktop entries are a few kilobytes; anything larger is not one and is not
// read into memory.
constexpr off_t kMaxDesktopEntryBytes = 1 << 20;
constexpr std::string_view kDesktopSuffix = ".desktop";
constexpr std::size_t kMaxApplicationIdBytes = 255;

struct CloseDir {
  void operator()(DIR* dir) const { ::closedir(dir); }
};
using DirPtr = std::unique_ptr<DIR, CloseDir>;

class Fd final {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

bool EndsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

// The whole of the regular file `name` in `dirFd`, at most
// kMaxDesktopEntryBytes, or absent. Links are not followed.
std::optional<std::string> ReadSmallFile(int dirFd, const char* name) {
  Fd fd(::openat(dirFd, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (fd.get() < 0) return std::nullopt;
  struct stat st;
  if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kMaxDesktopEntryBytes) {
    return std::nullopt;
  }
  std::string data(static_cast<std::size_t>(st.st_size), '\0');
  std::size_t got = 0;
  while (got < data.size()) {
    ssize_t n = ::read(fd.get(), data.data() + got, data.size() - got);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return std::nullopt;
    if (n == 0) break;  // a file that shrank while read keeps what was read
    got += static_cast<std::size_t>(n);
  }
  data.resize(got);
  return data;
}

enum class EntryKind { Application, Other, Unusable };

// What the desktop entry `name` in `dirFd` is: an application entry, any
// other key file, or one that cannot be read or parsed.
EntryKind ClassifyDesktopEntry(int dirFd, const char* name) {
  std::optional<std::string> data = ReadSmallFile(dirFd, name);
  if (!data) return EntryKind::Unusable;
  GKeyFilePtr keyFile(g_key_file_new());
  GError* raw = nullptr;
  if (!g_key_file_load_from_data(keyFile.get(), data->data(), data->size(), G_KEY_FILE_NONE,
                                 &raw)) {
    GErrorPtr error(raw);
    return EntryKind::Unusable;
  }
  // A missing group or key is no error of the file: it is not an application.
  GCharPtr type(g_key_file_get_string(keyFile.get(), "Desktop Entry", "Type", &raw));
  GErrorPtr error(raw);
  return type && std::string_view(type.get()) == "Application" ? EntryKind::Application
                                                               : EntryKind::Other;
}

class DesktopEntryBundleLookup final : public BundleLookup {
 public:
  BundleInfo bundleAtPath(const std::string& directory) const override {
    BundleInfo info;
    int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return info;
    DirPtr dir(::fdopendir(fd));
    if (!dir) {
      ::close(fd);
      return info;
    }
    info.found = true;

    std::vector<std::string> applications;
    while (const struct dirent* entry = ::readdir(dir.get())) {
      std::string_view name(entry->d_name);
      if (!EndsWith(name, kDesktopSuffix)) continue;
      struct stat st;
      if (::fstatat(::dirfd(dir.get()), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        return info;  // listed but gone or unreachable: "exactly one" cannot be told
      }
      if (!S_ISREG(st.st_mode)) continue;
      switch (ClassifyDesktopEntry(::dirfd(dir.get()), entry->d_name)) {
        case EntryKind::Application:
          applications.emplace_back(name.substr(0, name.size() - kDesktopSuffix.size()));
          if (applications.size() > 1) return info;
          break;
        case EntryKind::Other:
          break;
        case EntryKind::Unusable:
          return info;
      }
    }
    if (applications.size() == 1 && IsValidApplicationId(applications.front())) {
      info.bundleIdentifier = std::move(applications.front());
    }
    return info;
  }
};

bool IsIdCharacter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
         c == '_' || c == '-';
}

}  // namespace

bool IsValidApplicationId(std::string_view id) {
  if (id.empty() || id.size() > kMaxApplicationIdBytes) return false;
  std::size_t elements = 0;
  std::size_t start = 0;
  while (true) {
    std::size_t dot = id.find('.', start);
    std::string_view element = id.substr(start, dot == std::string_view::npos ? dot : dot - start);
    if (element.empty() || (element.front() >= '0' && element.front() <= '9')) return false;
    for (char c : element) {
      if (!IsIdCharacter(c)) return false;
    }
    ++elements;
    if (dot == std::string_view::npos) break;
    start = dot + 1;
  }
  return elements >= 2;
}

BundleLookup& DefaultBundleLookup() {
  static NoDestructor<DesktopEntryBundleLookup> lookup;
  return *lookup;
}

}  // namespace lumvane

#include "lumvane/signpost/SignpostStoreLocation.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace lumvane {
namespace {

// The first eight bytes of every journal file.
constexpr char kJournalSignature[8] = {'L', 'P', 'K', 'S', 'H', 'H', 'R', 'H'};

bool EndsWith(std::string_view s, std::string_view suffix) {
  return s.size() >= suffix.size() && s.substr(s.size() - suffix.size()) == suffix;
}

// Active and archived journal files, and the ones journald set aside as
// damaged ("~").
bool IsJournalName(std::string_view name) {
  return EndsWith(name, ".journal") || EndsWith(name, ".journal~");
}

bool IsJsonName(std::string_view name) {
  return EndsWith(name, ".json") || EndsWith(name, ".ndjson");
}

// A machine-ID folder: 32 lower-case hex digits.
bool IsMachineIDName(std::string_view name) {
  return name.size() == 32 && std::all_of(name.begin(), name.end(), [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
         });
}

bool HasJournalSignature(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return false;
  char head[sizeof kJournalSignature];
  const ssize_t n = ::pread(fd, head, sizeof head, 0);
  ::close(fd);
  return n == static_cast<ssize_t>(sizeof head) &&
         std::memcmp(head, kJournalSignature, sizeof head) == 0;
}

}  // namespace

std::optional<Error> SignpostStoreLocation::recognize(const std::optional<std::string>& path,
                                                      SignpostStoreLocation* out) {
  *out = SignpostStoreLocation();
  if (!path) return std::nullopt;
  out->path = *path;
  if (*path == "-") {
    out->form = Form::JsonLines;
    out->files.push_back(*path);
    return std::nullopt;
  }
  struct stat st;
  if (::stat(path->c_str(), &st) != 0) return Error::fromErrno("cannot open " + *path, errno);
  if (!S_ISDIR(st.st_mode)) {
    // Only a regular file can be a journal file (libsystemd maps it); any
    // other kind is left to the JSON-lines reader, which refuses what it
    // cannot read with its own reason, without blocking.
    const bool journal =
        S_ISREG(st.st_mode) && (IsJournalName(*path) || HasJournalSignature(*path));
    out->form = journal ? Form::JournalFile : Form::JsonLines;
    if (!journal) out->files.push_back(*path);
    return std::nullopt;
  }

  DIR* dir = ::opendir(path->c_str());
  if (!dir) return Error::fromErrno("cannot open " + *path, errno);
  std::vector<std::string> jsonNames;
  bool journal = false;
  errno = 0;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name = entry->d_name;
    struct stat fst;
    if (::fstatat(::dirfd(dir), entry->d_name, &fst, 0) != 0) continue;
    if (S_ISDIR(fst.st_mode)) {
      journal = journal || IsMachineIDName(name);
    } else if (S_ISREG(fst.st_mode)) {
      journal = journal || IsJournalName(name);
      if (IsJsonName(name)) jsonNames.emplace_back(name);
    }
  }
  const int readError = errno;
  ::closedir(dir);
  if (readError != 0) return Error::fromErrno("cannot read directory " + *path, readError);
  if (journal && !jsonNames.empty()) {
    return Error(*path + ": the directory holds both journal files and JSON files; give one "
                         "form per store");
  }
  if (journal) {
    out->form = Form::JournalDirectory;
    return std::nullopt;
  }
  out->form = Form::JsonLines;
  std::sort(jsonNames.begin(), jsonNames.end());
  for (const auto& name : jsonNames) out->files.push_back(*path + "/" + name);
  return std::nullopt;
}

}  // namespace lumvane

#include "lumvane/platform/BundleLookup.h"

#include <fcntl.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "lumvane/platform/NoDestructor.h"

namespace lumvane {
namespace {

// Property lists of bundles are a few kilobytes; anything larger is not one
// and is not read into memory.
constexpr off_t kMaxPropertyListBytes = 1 << 20;

struct PlistFree {
  void operator()(plist_t p) const { plist_free(p); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

// The whole of a regular file of at most kMaxPropertyListBytes, or absent.
std::optional<std::string> ReadSmallFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::optional<std::string> result;
  struct stat st;
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size <= kMaxPropertyListBytes) {
    std::string data(static_cast<std::size_t>(st.st_size), '\0');
    std::size_t got = 0;
    bool ok = true;
    while (got < data.size()) {
      ssize_t n = ::read(fd, data.data() + got, data.size() - got);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        ok = n == 0;  // a file that shrank while read keeps what was read
        break;
      }
      got += static_cast<std::size_t>(n);
    }
    if (ok) {
      data.resize(got);
      result = std::move(data);
    }
  }
  ::close(fd);
  return result;
}

class PropertyListBundleLookup final : public BundleLookup {
 public:
  BundleInfo bundleAtPath(const std::string& directory) const override {
    BundleInfo info;
    struct stat st;
    if (::stat(directory.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return info;
    info.found = true;
    for (const char* name : {"/Contents/Info.plist", "/Info.plist"}) {
      std::optional<std::string> data = ReadSmallFile(directory + name);
      if (!data) continue;
      info.bundleIdentifier = BundleIdentifierFromPropertyList(*data);
      break;  // the first property list present speaks for the bundle
    }
    return info;
  }
};

}  // namespace

std::optional<std::string> BundleIdentifierFromPropertyList(const std::string& data) {
  if (data.empty() || data.size() > static_cast<std::size_t>(kMaxPropertyListBytes)) {
    return std::nullopt;
  }
  plist_t raw = nullptr;
  plist_from_memory(data.data(), static_cast<uint32_t>(data.size()), &raw);
  PlistPtr root(raw);
  if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return std::nullopt;
  plist_t item = plist_dict_get_item(root.get(), "BundleIdentifier");
  if (!item || plist_get_node_type(item) != PLIST_STRING) return std::nullopt;
  uint64_t length = 0;
  const char* text = plist_get_string_ptr(item, &length);
  if (!text) return std::nullopt;
  return std::string(text, static_cast<std::size_t>(length));
}

BundleLookup& DefaultBundleLookup() {
  static NoDestructor<PropertyListBundleLookup> lookup;
  return *lookup;
}

}  // namespace lumvane

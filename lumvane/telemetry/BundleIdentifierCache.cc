#include "lumvane/telemetry/BundleIdentifierCache.h"

#include <string_view>

#include "lumvane/filter/LVLog.h"
#include "lumvane/platform/NoDestructor.h"

namespace lumvane {
namespace {

// How many directories above the executable are examined at most.
constexpr int kMaxDirectoriesExamined = 100;

std::string_view LastComponent(std::string_view path) {
  std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// "/a/b" -> "/a", "/a" -> "/", "a" -> "".
std::string_view RemoveLastComponent(std::string_view path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  if (slash == 0) return path.substr(0, 1);
  return path.substr(0, slash);
}

// Trailing slashes add no component: "/a/b/" names the same item as "/a/b".
std::string_view TrimTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

}  // namespace

std::optional<std::string> BundleIdentifierCache::bundleDirectoryForImagePath(
    const std::string& path) {
  std::string_view trimmed = TrimTrailingSlashes(path);
  const std::string prefix = std::string(LastComponent(trimmed)) + ".";
  std::string_view directory = TrimTrailingSlashes(RemoveLastComponent(trimmed));
  for (int examined = 0;; ++examined) {
    if (directory.empty() || examined >= kMaxDirectoriesExamined || directory == "/") {
      return std::nullopt;
    }
    if (LastComponent(directory).substr(0, prefix.size()) == prefix) {
      return std::string(directory);
    }
    directory = TrimTrailingSlashes(RemoveLastComponent(directory));
  }
}

std::optional<std::string> BundleIdentifierCache::bundleIdentifierForImagePath(
    const std::optional<std::string>& path) {
  if (!path) return std::nullopt;
  {
    std::lock_guard<std::mutex> lock(mu_);
    auto it = entries_.find(*path);
    if (it != entries_.end()) return it->second;
  }
  // The walk and the lookup run unlocked; should two threads race on one
  // path, both find the same answer and the first stored one stays.
  std::optional<std::string> identifier;
  if (std::optional<std::string> directory = bundleDirectoryForImagePath(*path)) {
    identifier = lookup_.bundleAtPath(*directory).bundleIdentifier;
  }
  {
    std::lock_guard<std::mutex> lock(mu_);
    entries_.emplace(*path, identifier);
  }
  if (identifier) LVLogDebug("Found bundle ID: \"%@\" for path:\"%@\"", identifier, path);
  return identifier;
}

std::size_t BundleIdentifierCache::size() const {
  std::lock_guard<std::mutex> lock(mu_);
  return entries_.size();
}

BundleIdentifierCache& bundleIdentifierCache() {
  static NoDestructor<BundleIdentifierCache> cache(DefaultBundleLookup());
  return *cache;
}

std::optional<std::string> bundleIdentifierForImagePath(const std::optional<std::string>& path) {
  return bundleIdentifierCache().bundleIdentifierForImagePath(path);
}

}  // namespace lumvane

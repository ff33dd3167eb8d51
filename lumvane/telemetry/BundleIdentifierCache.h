// Turns a process's executable path into the identifier of the bundle that
// holds it. The path is walked upwards to the first directory whose name
// begins with the executable's name and a full stop (Foo.AppDir for
// /opt/Foo.AppDir/Foo), at most 100 directories, never "/", and that
// directory's bundle is asked for its identifier.
//
// Every outcome, hit or miss, is remembered per path for the life of the
// cache, so the file system is searched at most once per distinct path. The
// process-wide cache lives as long as the process and is shared by every
// reporting run.
//
// Thread-safety: safe from any thread. The payload builders call it one
// object at a time; the lock only makes that assumption unnecessary.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "lumvane/platform/BundleLookup.h"

namespace lumvane {

class BundleIdentifierCache final {
 public:
  // `lookup` must outlive the cache.
  explicit BundleIdentifierCache(const BundleLookup& lookup) : lookup_(lookup) {}
  BundleIdentifierCache(const BundleIdentifierCache&) = delete;
  BundleIdentifierCache& operator=(const BundleIdentifierCache&) = delete;

  std::optional<std::string> bundleIdentifierForImagePath(const std::optional<std::string>& path);

  // Number of paths remembered, hits and misses alike.
  std::size_t size() const;

  // The directory whose name begins with "<last component of path>.", found
  // by walking up from the path's parent; absent past 100 directories, at
  // the root or at the start of a relative path.
  static std::optional<std::string> bundleDirectoryForImagePath(const std::string& path);

 private:
  const BundleLookup& lookup_;
  mutable std::mutex mu_;
  std::map<std::string, std::optional<std::string>> entries_;  // absent: no identifier
};

// The process-wide cache, made on first use with DefaultBundleLookup().
BundleIdentifierCache& bundleIdentifierCache();

// bundleIdentifierCache().bundleIdentifierForImagePath(path).
std::optional<std::string> bundleIdentifierForImagePath(const std::optional<std::string>& path);

}  // namespace lumvane

// Finds the bundle at a directory and the identifier it describes itself
// with. A bundle directory carries a property list, Contents/Info.plist or,
// failing that, Info.plist at its top, in XML or binary form; its identifier
// is the top-level string under "BundleIdentifier".
//
// Thread-safety: implementations are safe to call from any thread.
#pragma once

#include <optional>
#include <string>

namespace lumvane {

// What a lookup found at a directory. `found` is false when there is no
// bundle at all (the path is not a directory); a bundle whose property list
// is missing, unreadable, malformed or without a string identifier is found
// but has no identifier.
struct BundleInfo {
  bool found = false;
  std::optional<std::string> bundleIdentifier;
};

class BundleLookup {
 public:
  virtual ~BundleLookup() = default;
  virtual BundleInfo bundleAtPath(const std::string& directory) const = 0;
};

// Reads the bundle's property list from disk with libplist; files over
// 1 MiB are not read. Process-wide, never destroyed.
BundleLookup& DefaultBundleLookup();

// The identifier under "BundleIdentifier" of a property list held in memory
// (XML or binary), or absent when the data is no dictionary or has no string
// under that key.
std::optional<std::string> BundleIdentifierFromPropertyList(const std::string& data);

}  // namespace lumvane

// Finds the bundle at a directory and the identifier it describes itself
// with, by the freedesktop convention: an application directory (say
// /opt/Mailbox.AppDir holding the executable Mailbox) is identified by its
// desktop entry. Exactly one regular "*.desktop" file at the directory's top
// whose [Desktop Entry] group says Type=Application names the bundle; the
// file name without ".desktop" is the application ID, and that is the
// bundle identifier.
//
// Thread-safety: implementations are safe to call from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace lumvane {

// What a lookup found at a directory. `found` is false when there is no
// bundle at all (the path is not a directory). A directory is a bundle
// without identifier when its top holds no application entry or more than
// one, when any "*.desktop" file there cannot be read or parsed (so that
// "exactly one" cannot be told), or when the one entry's name is not a
// valid application ID.
struct BundleInfo {
  bool found = false;
  std::optional<std::string> bundleIdentifier;
};

class BundleLookup {
 public:
  virtual ~BundleLookup() = default;
  virtual BundleInfo bundleAtPath(const std::string& directory) const = 0;
};

// Reads desktop entries from disk with GLib's key-file parser; files over
// 1 MiB are not read. Process-wide, never destroyed.
BundleLookup& DefaultBundleLookup();

// Whether `id` is a valid application ID: at most 255 bytes, at least two
// non-empty elements separated by ".", each of [A-Za-z0-9_-] and none
// beginning with a digit.
bool IsValidApplicationId(std::string_view id);

}  // namespace lumvane

// The constant string lists behind the string whitelists. Each list is a
// data file under lumvane/filter/data/ (one entry per line) compiled into the
// program at build time; an accessor returns a view of the constant array,
// in file order, duplicates included. Views are valid for the whole process
// and safe to read from any thread.
#pragma once

#include <cstddef>
#include <string_view>

namespace lumvane {

class LVStringList {
 public:
  constexpr LVStringList(const std::string_view* entries, std::size_t count)
      : entries_(entries), count_(count) {}

  const std::string_view* begin() const { return entries_; }
  const std::string_view* end() const { return entries_ + count_; }
  std::size_t size() const { return count_; }
  std::string_view operator[](std::size_t i) const { return entries_[i]; }

 private:
  const std::string_view* entries_;
  std::size_t count_;
};

// Desktop (Ardenos) lists.
LVStringList LVDesktopUIElementNames();
LVStringList LVDesktopUIActionNames();
LVStringList LVDesktopBundleIdentifiers();
LVStringList LVFilesystemAndIndexScanTokens();
// Shared by Ardenos, Belvos, Cirros and Dalvos.
LVStringList LVSharedStringValues();
// Phone (Belvos) lists.
LVStringList LVPhoneUILocationNames();
LVStringList LVCameraEventValues();
LVStringList LVShareActivityTypes();
LVStringList LVPhoneExtensionBundleIdentifiers();
LVStringList LVCalendarViewNames();
LVStringList LVSizeNames();
LVStringList LVMailAccountTypes();
LVStringList LVGenerationSourceNames();

}  // namespace lumvane

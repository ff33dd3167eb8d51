// The file-system operations that the run's guard file needs: an existence
// test that also tells directories apart, creation of an empty file, and
// removal of an item with everything below it.
//
// The guard file lives in a directory that every user may write to, so the
// machine implementation never follows a symbolic link: a link counts as an
// item of its own (it exists, it is not a directory), creation fails when
// anything at all sits at the path, and removal takes away the link itself,
// never what it points to, and never descends through a link found inside a
// tree it removes.
//
// Thread-safety: the machine implementation keeps no state; its operations may
// be called from any thread. Lifetime: DefaultFileManager() lives as long as
// the process.
#pragma once

#include <optional>
#include <string>

#include "lumvane/platform/Error.h"

namespace lumvane {

class FileManager {
 public:
  virtual ~FileManager() = default;

  // True when anything exists at `path` (a dangling symbolic link too).
  // `isDirectory`, when given, is set to whether that item is a directory
  // (a link to a directory is not one); false when nothing exists.
  virtual bool fileExistsAtPath(const std::string& path, bool* isDirectory) const = 0;

  // Creates an empty file at `path`; fails when anything already exists
  // there. On failure `errorOut`, when given, receives the reason if the
  // implementation knows one.
  [[nodiscard]] virtual bool createFileAtPath(const std::string& path,
                                              std::optional<Error>* errorOut) = 0;

  // Removes the item at `path`; a directory goes with everything in it. On
  // failure `errorOut`, when given, receives the reason if known.
  [[nodiscard]] virtual bool removeItemAtPath(const std::string& path,
                                              std::optional<Error>* errorOut) = 0;
};

// The machine's file manager (plain POSIX calls).
FileManager& DefaultFileManager();

}  // namespace lumvane

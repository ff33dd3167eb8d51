// The run guard file (the "cookie file" of the log messages): an empty file
// at "/var/tmp/lumvane_running" that is present while a reporting run is
// under way. Finding it when a run begins means an earlier run never
// finished; that run then removes it and does no work.
//
// Anything at the path counts as present, a directory or a symbolic link too,
// so a stray item there is cleared by the next run instead of blocking runs
// for good. All messages go to LVLog.
//
// Thread-safety: a CookieFile keeps no state of its own; calls are as safe as
// the file manager it uses. The reporting run calls it from one thread.
#pragma once

#include <string>

#include "lumvane/platform/FileManager.h"

namespace lumvane {

class CookieFile final {
 public:
  static constexpr const char* kPath = "/var/tmp/lumvane_running";

  // `fileManager` must outlive this object.
  explicit CookieFile(std::string path = kPath, FileManager& fileManager = DefaultFileManager());

  const std::string& path() const { return path_; }

  // True when anything exists at the path; a directory is reported in the log.
  bool cookieFileExists() const;
  // True when this call created the (empty) file.
  bool createCookieFile();
  // Removes whatever is at the path, a directory with its contents.
  void clearCookieFile();

 private:
  std::string path_;
  FileManager& fileManager_;
};

// The same three operations on the fixed path with the machine's file manager.
bool cookieFileExists();
bool createCookieFile();
void clearCookieFile();

}  // namespace lumvane

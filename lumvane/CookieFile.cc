#include "lumvane/CookieFile.h"

#include <optional>
#include <utility>

#include "lumvane/filter/LVLog.h"

namespace lumvane {

CookieFile::CookieFile(std::string path, FileManager& fileManager)
    : path_(std::move(path)), fileManager_(fileManager) {}

bool CookieFile::cookieFileExists() const {
  bool isDirectory = false;
  bool exists = fileManager_.fileExistsAtPath(path_, &isDirectory);
  if (exists && isDirectory) LVLogDebug("Cookie file exists but is directory");
  return exists;
}

bool CookieFile::createCookieFile() {
  if (cookieFileExists()) return false;
  // The reason is not logged: the run only needs to know that it must stop.
  if (!fileManager_.createFileAtPath(path_, nullptr)) {
    LVLogDebug("Could not create cookie file");
    return false;
  }
  LVLogDebug("Created cookie file");
  return true;
}

void CookieFile::clearCookieFile() {
  if (!cookieFileExists()) return;
  std::optional<Error> error;
  if (fileManager_.removeItemAtPath(path_, &error)) {
    LVLogDebug("Cleared cookie file");
    return;
  }
  LVLogError("Could not clear cookie file: %@",
             error ? error->localizedDescription() : std::string("Unknown error"));
}

bool cookieFileExists() { return CookieFile().cookieFileExists(); }
bool createCookieFile() { return CookieFile().createCookieFile(); }
void clearCookieFile() { CookieFile().clearCookieFile(); }

}  // namespace lumvane

// lumvane-upload --status: what is waiting in the spool and how the running
// uploader is doing, read from the spool directory alone (the cursor file,
// the event files and the uploader's lock), so it works whether or not an
// uploader runs.
#pragma once

#include <optional>
#include <string>

#include "lumvane/platform/Error.h"
#include "upload/UploadCursor.h"

namespace lumvane::upload {

struct UploadStatus {
  bool running = false;
  UploadCursor cursor;
  uint64_t backlogLines = 0;  // complete lines not yet acknowledged
  uint64_t backlogBytes = 0;
};

[[nodiscard]] std::optional<Error> ReadUploadStatus(const SpoolPaths& paths, UploadStatus* status);
std::string FormatUploadStatus(const SpoolPaths& paths, const UploadStatus& status);

}  // namespace lumvane::upload

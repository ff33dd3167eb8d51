// The lock that makes appends to events.ndjson and its rotation by the
// uploader safe when both run at once.
//
// Protocol (both sides follow it):
//  - Every writer of events.ndjson (the daemon's appends, a cut-back of a
//    torn or short line) opens it, takes flock(LOCK_EX) on that descriptor,
//    and then checks that the path still names the same file (same device
//    and inode). If it does not, the file was rotated away while the writer
//    waited: it closes the descriptor and starts over, so no byte ever lands
//    in a rotated file. It writes, syncs and closes (which unlocks).
//  - The uploader rotates only while holding the same lock: it renames
//    events.ndjson to events.ndjson.<generation>, syncs the directory and
//    unlocks. The next append creates a fresh events.ndjson.
//  - Readers take no lock: they only ever consume bytes up to the last line
//    feed, and writers only ever cut bytes after it.
#pragma once

#include <optional>
#include <string>

#include "lumvane/platform/Error.h"

namespace lumvane {

// Opens `path` with `flags` (O_CLOEXEC is added; O_CREAT uses mode 0644),
// locks it exclusively and makes sure the path still names the locked file
// (the path itself: a symbolic link put there since counts as a change).
// On success `*fd` is the open, locked descriptor; closing it unlocks.
[[nodiscard]] std::optional<Error> OpenLockedDovetelSpool(const std::string& path, int flags,
                                                          int* fd);

}  // namespace lumvane

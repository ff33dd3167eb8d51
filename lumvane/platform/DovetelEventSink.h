// Where telemetry events leave the process. DovetelSendEvent hands an event
// (a name and a flat payload) to the process-wide sink; the daemon calls it
// only from the reporting queue, and its outcome is never looked at: a send
// that fails is logged and the event is lost.
//
// The machine sink appends each event as one JSON line to events.ndjson in
// DovetelDirectory() (see DovetelEventJson.h for the line format):
//  - the directory is read at every send and created when missing;
//  - each append (and each cut) holds the spool lock that the uploader's
//    rotation takes (see DovetelSpoolLock.h), so no event lands in a file
//    that was rotated away;
//  - events.ndjson must be a regular file: a symbolic link is never followed
//    and anything else (a FIFO, a device) is refused;
//  - before its first append to a path in a process, the sink cuts away a
//    partial last line (one without its line feed, left by a process that
//    died mid-append) and logs the path and the number of bytes removed, so
//    that the new line does not get glued onto the torn one;
//  - each event is appended whole or not at all: written with O_APPEND, a
//    short write (a full disk) cut back off the file, then fdatasync before
//    the send returns (a failed sync also takes the line back);
//  - a failure (unwritable directory, full disk, refused file) is logged at
//    error level with the path and the system's reason; the next send tries
//    afresh.
//
// Thread-safety: every sink may be called from any thread.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "lumvane/signpost/Value.h"

namespace lumvane {

class DovetelEventSink {
 public:
  virtual ~DovetelEventSink() = default;
  virtual void sendEvent(const std::string& name, const Dictionary& payload) = 0;
};

struct FileDovetelEventSinkOptions {
  // fdatasync after every event. Only benchmarks turn it off.
  bool syncEachEvent = true;
};

std::shared_ptr<DovetelEventSink> NewFileDovetelEventSink(FileDovetelEventSinkOptions options = {});

// Replaces the process-wide sink (initially a file sink with default
// options) and returns the previous one. Safe while other threads send.
std::shared_ptr<DovetelEventSink> ExchangeDovetelEventSink(std::shared_ptr<DovetelEventSink> sink);

void DovetelSendEvent(const std::string& name, const Dictionary& payload);

}  // namespace lumvane

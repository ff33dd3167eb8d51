// Where telemetry events leave the process. DovetelSendEvent hands an event
// (a name and a flat payload) to the process-wide sink; the daemon calls it
// only from the reporting queue, and its outcome is never looked at: a send
// that fails is logged and the event is lost.
//
// The machine sink appends each event as one JSON line to events.ndjson in
// DovetelDirectory() (see DovetelEventJson.h for the line format):
//  - the directory is read at every send and created when missing;
//  - each event is a single write(2) of one whole line to a file opened with
//    O_APPEND, followed by fdatasync before the send returns, so a crash
//    leaves at most one torn last line and never an interleaved one;
//  - a failure (unwritable directory, full disk) is logged at error level
//    with the path and the reason; the next send tries afresh.
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

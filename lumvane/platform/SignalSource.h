// Delivers a Unix signal as a work item on a serial queue, so that the
// signal's handling runs as ordinary code instead of inside a signal handler.
//
// The signal must be blocked in every thread of the process, or a thread that
// has it unblocked takes it with its default action. BlockSignalInProcess()
// does that when called first thing in main(), before any thread exists: the
// threads started afterwards inherit the mask. A dedicated thread then waits
// for the signal (signalfd) and queues the handler.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "lumvane/platform/Error.h"
#include "lumvane/platform/WorkQueue.h"

namespace lumvane {

class SignalSource {
 public:
  // Stops waiting; a handler already queued still runs.
  virtual ~SignalSource() = default;
  // Starts delivering. A signal that arrived while the source was suspended
  // stays pending and is delivered now. Once only; later calls do nothing.
  virtual void resume() = 0;
};

// Blocks `signo` for the calling thread and the threads it starts later.
void BlockSignalInProcess(int signo);

// A suspended source for `signo` whose handler runs on `queue` (which must
// outlive the source) once per delivery. Blocks the signal in the calling
// thread as well. Fails only when the kernel refuses the descriptors.
[[nodiscard]] std::unique_ptr<SignalSource> NewSignalSource(int signo, WorkQueue& queue,
                                                            std::function<void()> handler,
                                                            std::optional<Error>* errorOut);

// Hands the calling thread over for good; the process goes on in its other
// threads until something ends it.
[[noreturn]] void ParkCallingThreadForever();

}  // namespace lumvane

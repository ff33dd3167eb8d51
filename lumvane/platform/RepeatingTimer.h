// A repeating timer whose firings run as work items on a serial work queue:
// the first firing comes after a start delay, the next ones every period,
// each at most `leeway` late. The reporting run polls the scheduler for a
// deferral request through one of these.
//
// Thread-safety: start() and cancel() may be called from any thread,
// including from the timer's own handler. Once cancel() has returned no
// further firing reaches the handler; a firing already running finishes.
// Destroying a timer cancels it. Firings never pile up: while one waits on
// the queue, later ones are folded into it.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "lumvane/platform/WorkQueue.h"

namespace lumvane {

class RepeatingTimer {
 public:
  virtual ~RepeatingTimer() = default;
  // Sets when the timer fires; takes effect at start(). A zero period fires
  // once only.
  virtual void setSchedule(std::chrono::nanoseconds startDelay, std::chrono::nanoseconds period,
                           std::chrono::nanoseconds leeway) = 0;
  // Starts the schedule; a second start() or a start() after cancel() does
  // nothing.
  virtual void start() = 0;
  virtual void cancel() = 0;
};

class TimerFactory {
 public:
  virtual ~TimerFactory() = default;
  // A timer, not yet started, whose handler runs on `queue`. The timer keeps
  // the queue and the handler alive until it is cancelled and its last
  // firing has run.
  virtual std::unique_ptr<RepeatingTimer> makeRepeatingTimer(std::shared_ptr<WorkQueue> queue,
                                                             std::function<void()> handler) = 0;
};

// Real timers: one waiting thread per started timer, on the monotonic clock.
// Process-wide, thread-safe.
TimerFactory& DefaultTimerFactory();

}  // namespace lumvane

// Test double for timers: nothing fires by itself; a test fires every live
// timer when it chooses, and can read back how each timer was set up.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

#include "lumvane/platform/RepeatingTimer.h"

namespace lumvane {

class ManualTimerFactory final : public TimerFactory {
 public:
  struct TimerRecord {
    std::chrono::nanoseconds startDelay{0};
    std::chrono::nanoseconds period{0};
    std::chrono::nanoseconds leeway{0};
    bool started = false;
    bool cancelled = false;  // by cancel() or by the timer's destruction
    int firings = 0;
  };

  std::unique_ptr<RepeatingTimer> makeRepeatingTimer(std::shared_ptr<WorkQueue> queue,
                                                     std::function<void()> handler) override;

  // Runs the handler of every started, not cancelled timer on that timer's
  // queue, one timer after the other, waiting for each. Returns how many
  // ran. Must not be called from one of those queues.
  int fireAll();

  // Every timer made so far, in the order made.
  std::vector<TimerRecord> timers() const;

  struct State;  // one timer's record, handler and queue

 private:
  mutable std::mutex mu_;
  std::vector<std::shared_ptr<State>> states_;
};

}  // namespace lumvane

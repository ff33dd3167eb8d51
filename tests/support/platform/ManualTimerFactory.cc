#include "tests/support/platform/ManualTimerFactory.h"

namespace lumvane {

struct ManualTimerFactory::State {
  std::mutex mu;
  TimerRecord record;
  std::shared_ptr<WorkQueue> queue;
  // Dropped at cancellation so that what the handler holds is let go, as a
  // real timer lets it go after its last firing.
  std::function<void()> handler;
};

namespace {

class ManualTimer final : public RepeatingTimer {
 public:
  explicit ManualTimer(std::shared_ptr<ManualTimerFactory::State> state)
      : state_(std::move(state)) {}
  ~ManualTimer() override { cancel(); }

  void setSchedule(std::chrono::nanoseconds startDelay, std::chrono::nanoseconds period,
                   std::chrono::nanoseconds leeway) override {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->record.startDelay = startDelay;
    state_->record.period = period;
    state_->record.leeway = leeway;
  }

  void start() override {
    std::lock_guard<std::mutex> lock(state_->mu);
    if (!state_->record.cancelled) state_->record.started = true;
  }

  void cancel() override {
    std::function<void()> dropped;
    {
      std::lock_guard<std::mutex> lock(state_->mu);
      state_->record.cancelled = true;
      dropped = std::move(state_->handler);
      state_->handler = nullptr;
    }
  }

 private:
  const std::shared_ptr<ManualTimerFactory::State> state_;
};

}  // namespace

std::unique_ptr<RepeatingTimer> ManualTimerFactory::makeRepeatingTimer(
    std::shared_ptr<WorkQueue> queue, std::function<void()> handler) {
  auto state = std::make_shared<State>();
  state->queue = std::move(queue);
  state->handler = std::move(handler);
  {
    std::lock_guard<std::mutex> lock(mu_);
    states_.push_back(state);
  }
  return std::make_unique<ManualTimer>(std::move(state));
}

int ManualTimerFactory::fireAll() {
  std::vector<std::shared_ptr<State>> states;
  {
    std::lock_guard<std::mutex> lock(mu_);
    states = states_;
  }
  int ran = 0;
  for (const auto& state : states) {
    std::shared_ptr<WorkQueue> queue;
    {
      std::lock_guard<std::mutex> lock(state->mu);
      if (!state->record.started || state->record.cancelled) continue;
      queue = state->queue;
    }
    bool fired = false;
    queue->sync([&state, &fired] {
      std::function<void()> handler;
      {
        std::lock_guard<std::mutex> lock(state->mu);
        if (state->record.cancelled) return;  // cancelled while waiting for the queue
        ++state->record.firings;
        handler = state->handler;
      }
      handler();
      fired = true;
    });
    if (fired) ++ran;
  }
  return ran;
}

std::vector<ManualTimerFactory::TimerRecord> ManualTimerFactory::timers() const {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<TimerRecord> records;
  for (const auto& state : states_) {
    std::lock_guard<std::mutex> stateLock(state->mu);
    records.push_back(state->record);
  }
  return records;
}

}  // namespace lumvane

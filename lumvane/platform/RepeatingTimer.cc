#include "lumvane/platform/RepeatingTimer.h"

#include <pthread.h>
#include <sys/prctl.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "lumvane/platform/NoDestructor.h"

namespace lumvane {
namespace {

using SteadyClock = std::chrono::steady_clock;

// What the timer's thread and the work items it queued share. It lives until
// the thread has ended and the last queued firing has run.
struct TimerShared {
  TimerShared(std::shared_ptr<WorkQueue> q, std::function<void()> h)
      : queue(std::move(q)), handler(std::move(h)) {}

  const std::shared_ptr<WorkQueue> queue;
  const std::function<void()> handler;
  std::mutex mu;
  std::condition_variable cv;
  bool cancelled = false;           // guarded by mu
  std::atomic<bool> stop{false};    // read by queued firings without mu
  std::atomic<bool> pending{false};  // a firing waits on the queue
};

class ThreadRepeatingTimer final : public RepeatingTimer {
 public:
  ThreadRepeatingTimer(std::shared_ptr<WorkQueue> queue, std::function<void()> handler)
      : shared_(std::make_shared<TimerShared>(std::move(queue), std::move(handler))) {}

  ~ThreadRepeatingTimer() override { cancel(); }

  void setSchedule(std::chrono::nanoseconds startDelay, std::chrono::nanoseconds period,
                   std::chrono::nanoseconds leeway) override {
    std::lock_guard<std::mutex> lock(shared_->mu);
    startDelay_ = startDelay;
    period_ = period;
    leeway_ = leeway;
  }

  void start() override {
    std::lock_guard<std::mutex> lock(shared_->mu);
    if (started_ || shared_->cancelled) return;
    started_ = true;
    thread_ = std::thread(&ThreadRepeatingTimer::run, shared_, startDelay_, period_, leeway_);
  }

  void cancel() override {
    std::thread thread;
    {
      std::lock_guard<std::mutex> lock(shared_->mu);
      shared_->cancelled = true;
      shared_->stop.store(true);
      thread = std::move(thread_);
    }
    shared_->cv.notify_all();
    // The waiting thread never waits for the queue, so joining it from a
    // firing (on the queue) cannot deadlock.
    if (thread.joinable()) thread.join();
  }

 private:
  static void run(std::shared_ptr<TimerShared> s, std::chrono::nanoseconds startDelay,
                  std::chrono::nanoseconds period, std::chrono::nanoseconds leeway) {
    pthread_setname_np(pthread_self(), "lumvane timer");
    // The leeway becomes the thread's timer slack, so that the kernel may
    // fold this wake-up into others. A refusal only costs precision.
    if (leeway.count() > 0) {
      (void)prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(leeway.count()), 0, 0, 0);
    }
    SteadyClock::time_point deadline = SteadyClock::now() + startDelay;
    std::unique_lock<std::mutex> lock(s->mu);
    for (;;) {
      // A deadline already reached is not waited on: under the timer slack,
      // even a wait whose deadline has passed may last the whole leeway, and
      // a first firing "at once" would come a leeway late.
      if (SteadyClock::now() < deadline) {
        if (s->cv.wait_until(lock, deadline, [&] { return s->cancelled; })) return;
      } else if (s->cancelled) {
        return;
      }
      // Submitting under the lock: once cancel() has taken it, nothing new
      // is queued.
      if (!s->pending.exchange(true)) {
        s->queue->async([s] {
          s->pending.store(false);
          if (!s->stop.load()) s->handler();
        });
      }
      if (period.count() <= 0) return;
      deadline += period;
      SteadyClock::time_point now = SteadyClock::now();
      if (deadline < now) deadline = now + period;  // missed firings are not made up
    }
  }

  const std::shared_ptr<TimerShared> shared_;
  std::chrono::nanoseconds startDelay_{0};
  std::chrono::nanoseconds period_{0};
  std::chrono::nanoseconds leeway_{0};
  bool started_ = false;  // guarded by shared_->mu
  std::thread thread_;    // guarded by shared_->mu
};

class ThreadTimerFactory final : public TimerFactory {
 public:
  std::unique_ptr<RepeatingTimer> makeRepeatingTimer(std::shared_ptr<WorkQueue> queue,
                                                     std::function<void()> handler) override {
    return std::make_unique<ThreadRepeatingTimer>(std::move(queue), std::move(handler));
  }
};

}  // namespace

TimerFactory& DefaultTimerFactory() {
  static NoDestructor<ThreadTimerFactory> factory;
  return *factory;
}

}  // namespace lumvane

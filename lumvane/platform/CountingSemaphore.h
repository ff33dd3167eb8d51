// A counting semaphore with a timed wait, for handing a signal from one
// thread (a configuration delivery, say) to another that waits for it.
//
// signal() is done with the semaphore once it returns, and a waiter may
// destroy it as soon as its wait has taken the count: the notification is
// sent under the lock, so no waiter can take the count (and go on to destroy
// the semaphore) while signal() still touches it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace lumvane {

class CountingSemaphore final {
 public:
  explicit CountingSemaphore(uint64_t initial = 0) : count_(initial) {}

  void signal() {
    std::lock_guard<std::mutex> lock(mu_);
    ++count_;
    cv_.notify_one();
  }

  void wait() {
    std::unique_lock<std::mutex> lock(mu_);
    cv_.wait(lock, [this] { return count_ > 0; });
    --count_;
  }

  // Waits at most `timeout` (measured on the monotonic clock). True when the
  // semaphore was taken, false on time-out.
  bool waitFor(std::chrono::nanoseconds timeout) {
    std::unique_lock<std::mutex> lock(mu_);
    if (!cv_.wait_for(lock, timeout, [this] { return count_ > 0; })) return false;
    --count_;
    return true;
  }

 private:
  std::mutex mu_;
  std::condition_variable cv_;
  uint64_t count_;
};

}  // namespace lumvane

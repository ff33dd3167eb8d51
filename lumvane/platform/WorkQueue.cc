#include "lumvane/platform/WorkQueue.h"

#include <pthread.h>

#include <cassert>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

namespace lumvane {
namespace {

// What the worker thread touches lives in a shared state that the thread
// itself co-owns, so that the queue object may go away while the thread
// still finishes its items (the last reference can be dropped from inside a
// work item, where the thread cannot be joined).
struct QueueState {
  explicit QueueState(std::string l) : label(std::move(l)) {}
  const std::string label;
  std::mutex mu;
  std::condition_variable cv;
  std::deque<WorkQueue::Work> items;
  bool closing = false;
  std::thread::id workerId;
};

void runQueue(const std::shared_ptr<QueueState>& state) {
  // Thread names are limited to 15 characters; the label helps in a debugger.
  pthread_setname_np(pthread_self(), state->label.substr(0, 15).c_str());
  std::unique_lock<std::mutex> lock(state->mu);
  for (;;) {
    state->cv.wait(lock, [&] { return state->closing || !state->items.empty(); });
    if (state->items.empty()) return;  // closing and drained
    WorkQueue::Work work = std::move(state->items.front());
    state->items.pop_front();
    lock.unlock();
    work();
    work = nullptr;  // release what the item held before taking the lock
    lock.lock();
  }
}

class SerialWorkQueue final : public WorkQueue {
 public:
  explicit SerialWorkQueue(std::string label)
      : state_(std::make_shared<QueueState>(std::move(label))) {
    std::lock_guard<std::mutex> lock(state_->mu);
    thread_ = std::thread([state = state_] { runQueue(state); });
    state_->workerId = thread_.get_id();
  }

  ~SerialWorkQueue() override {
    {
      std::lock_guard<std::mutex> lock(state_->mu);
      state_->closing = true;
    }
    state_->cv.notify_one();
    if (thread_.get_id() == std::this_thread::get_id()) {
      // Dropped from inside one of our own items: the thread goes on with the
      // items still queued, on the state it co-owns, and ends by itself.
      thread_.detach();
    } else {
      thread_.join();
    }
  }

  const std::string& label() const override { return state_->label; }

  void async(Work work) override {
    {
      std::lock_guard<std::mutex> lock(state_->mu);
      state_->items.push_back(std::move(work));
    }
    state_->cv.notify_one();
  }

  void sync(Work work) override {
    assert(!isCurrent() && "sync() on a serial queue from its own thread");
    std::promise<void> done;
    std::future<void> finished = done.get_future();
    async([&work, &done] {
      work();
      done.set_value();
    });
    finished.wait();
  }

  bool isCurrent() const override { return std::this_thread::get_id() == thread_.get_id(); }

 private:
  const std::shared_ptr<QueueState> state_;
  std::thread thread_;
};

}  // namespace

std::shared_ptr<WorkQueue> NewSerialWorkQueue(std::string label) {
  return std::make_shared<SerialWorkQueue>(std::move(label));
}

}  // namespace lumvane

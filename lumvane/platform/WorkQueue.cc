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

class SerialWorkQueue final : public WorkQueue {
 public:
  explicit SerialWorkQueue(std::string label) : label_(std::move(label)) {
    thread_ = std::thread([this] { loop(); });
  }

  ~SerialWorkQueue() override {
    {
      std::lock_guard<std::mutex> lock(mu_);
      closing_ = true;
    }
    cv_.notify_one();
    if (thread_.get_id() == std::this_thread::get_id()) {
      // The last reference went away inside one of our own work items; the
      // remaining items cannot be waited for from here.
      thread_.detach();
    } else {
      thread_.join();
    }
  }

  const std::string& label() const override { return label_; }

  void async(Work work) override {
    {
      std::lock_guard<std::mutex> lock(mu_);
      items_.push_back(std::move(work));
    }
    cv_.notify_one();
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
  void loop() {
    // Thread names are limited to 15 characters; the label helps in a debugger.
    pthread_setname_np(pthread_self(), label_.substr(0, 15).c_str());
    std::unique_lock<std::mutex> lock(mu_);
    for (;;) {
      cv_.wait(lock, [this] { return closing_ || !items_.empty(); });
      if (items_.empty()) return;  // closing and drained
      Work work = std::move(items_.front());
      items_.pop_front();
      lock.unlock();
      work();
      work = nullptr;  // release what the item held before taking the lock
      lock.lock();
    }
  }

  const std::string label_;
  std::mutex mu_;
  std::condition_variable cv_;
  std::deque<Work> items_;
  bool closing_ = false;
  std::thread thread_;
};

}  // namespace

std::shared_ptr<WorkQueue> NewSerialWorkQueue(std::string label) {
  return std::make_shared<SerialWorkQueue>(std::move(label));
}

}  // namespace lumvane

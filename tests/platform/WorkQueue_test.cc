#include "lumvane/platform/WorkQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "lumvane/platform/CountingSemaphore.h"

namespace lumvane {
namespace {

TEST(WorkQueueTest, RunsItemsOneAtATimeInSubmissionOrderOnItsOwnThread) {
  auto queue = NewSerialWorkQueue("lumvane Dovetel reporting queue");
  EXPECT_EQ(queue->label(), "lumvane Dovetel reporting queue");
  std::vector<int> order;  // touched only by queue items: serial by contract
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
  std::atomic<bool> onQueue{true};
  std::vector<std::thread> producers;
  for (int p = 0; p < 4; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < 100; ++i) {
        queue->async([&, p, i] {
          if (running.fetch_add(1) != 0) overlapped = true;
          if (!queue->isCurrent()) onQueue = false;
          order.push_back(p * 1000 + i);
          running.fetch_sub(1);
        });
      }
    });
  }
  for (auto& t : producers) t.join();
  int seen = 0;
  queue->sync([&] { seen = static_cast<int>(order.size()); });
  EXPECT_EQ(seen, 400);
  EXPECT_FALSE(overlapped);
  EXPECT_TRUE(onQueue);
  EXPECT_FALSE(queue->isCurrent());
  // Per producer, submission order is kept.
  std::vector<int> last(4, -1);
  for (int v : order) {
    EXPECT_GT(v % 1000, last[v / 1000]);
    last[v / 1000] = v % 1000;
  }
}

TEST(WorkQueueTest, DestructionRunsWhatWasAlreadySubmitted) {
  std::atomic<int> ran{0};
  {
    auto queue = NewSerialWorkQueue("q");
    for (int i = 0; i < 50; ++i) queue->async([&] { ran.fetch_add(1); });
  }
  EXPECT_EQ(ran.load(), 50);
}

TEST(CountingSemaphoreTest, SignalsAreCountedAndTimedWaitTimesOut) {
  CountingSemaphore sem;
  EXPECT_FALSE(sem.waitFor(std::chrono::milliseconds(1)));
  sem.signal();
  sem.signal();
  EXPECT_TRUE(sem.waitFor(std::chrono::milliseconds(1)));
  EXPECT_TRUE(sem.waitFor(std::chrono::milliseconds(1)));
  EXPECT_FALSE(sem.waitFor(std::chrono::milliseconds(1)));
  std::thread t([&] { sem.signal(); });
  sem.wait();
  t.join();
}

// The waiter owns the semaphore and ends its life the moment the count is
// taken, while the signalling thread may still be on its way out of
// signal(). A semaphore that notified after unlocking would be touched after
// its destruction here; ThreadSanitizer and AddressSanitizer builds report it.
TEST(CountingSemaphoreTest, WaiterMayDestroyItAsSoonAsTheCountIsTaken) {
  for (int i = 0; i < 300; ++i) {
    auto sem = std::make_unique<CountingSemaphore>();
    std::thread signaller([raw = sem.get()] { raw->signal(); });
    ASSERT_TRUE(sem->waitFor(std::chrono::seconds(10)));
    sem.reset();
    signaller.join();
  }
}

}  // namespace
}  // namespace lumvane

namespace lumvane {
namespace {

TEST(WorkQueueTest, LastReferenceDroppedInsideItsOwnItemFinishesTheRemainingItems) {
  std::atomic<int> ran{0};
  CountingSemaphore submitted;
  CountingSemaphore finished;
  {
    auto queue = NewSerialWorkQueue("self-release");
    WorkQueue* raw = queue.get();
    raw->async([q = std::move(queue), &ran, &submitted]() mutable {
      submitted.wait();  // both items are queued before the queue goes
      ran.fetch_add(1);
      q.reset();  // the queue object is destroyed here, on its own thread
    });
    raw->async([&] {
      ran.fetch_add(1);
      finished.signal();
    });
    submitted.signal();
  }
  ASSERT_TRUE(finished.waitFor(std::chrono::seconds(10)));
  EXPECT_EQ(ran.load(), 2);
}

}  // namespace
}  // namespace lumvane

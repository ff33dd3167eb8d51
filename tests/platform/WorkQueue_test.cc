#include "lumvane/platform/WorkQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "lumvane/platform/CountingSemaphore.h"

namespace lumvane {
namespace {

// Four producers submit at once; destroying the queue afterwards still runs what was already submitted.
TEST(WorkQueueTest, RunsItemsOneAtATimeInSubmissionOrderOnItsOwnThread) {
  auto queue = NewSerialWorkQueue("lumvane Dovetel reporting queue");
  EXPECT_EQ(queue->label(), "lumvane Dovetel reporting queue");
  std::vector<int> order;  // touched only by queue items: serial by contract
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false}, onQueue{true};
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
  std::vector<int> last(4, -1);  // per producer, submission order is kept
  for (int v : order) {
    EXPECT_GT(v % 1000, last[v / 1000]);
    last[v / 1000] = v % 1000;
  }

  std::atomic<int> ran{0};
  for (int i = 0; i < 50; ++i) queue->async([&] { ran.fetch_add(1); });
  queue.reset();
  EXPECT_EQ(ran.load(), 50);
}

TEST(WorkQueueTest, LastReferenceDroppedInsideItsOwnItemFinishesTheRemainingItems) {
  std::atomic<int> ran{0};
  CountingSemaphore submitted, finished;
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

// Signals are counted and a timed wait times out. A waiter that owns the semaphore ends its life the moment
// the count is taken, while the signaller may still be on its way out of signal(): one that notified after
// unlocking would be touched after its destruction, which ThreadSanitizer and AddressSanitizer report.
TEST(CountingSemaphoreTest, WaiterMayDestroyItAsSoonAsTheCountIsTaken) {
  CountingSemaphore counted;
  EXPECT_FALSE(counted.waitFor(std::chrono::milliseconds(1)));
  counted.signal();
  counted.signal();
  for (bool taken : {true, true, false}) EXPECT_EQ(counted.waitFor(std::chrono::milliseconds(1)), taken);
  for (int i = 0; i < 600; ++i) {  // half of them through wait(), half through waitFor()
    auto sem = std::make_unique<CountingSemaphore>();
    std::thread signaller([raw = sem.get()] { raw->signal(); });
    if (i % 2) {
      sem->wait();
    } else {
      ASSERT_TRUE(sem->waitFor(std::chrono::seconds(10)));
    }
    sem.reset();
    signaller.join();
  }
}

}  // namespace
}  // namespace lumvane

// Carries decoded signpost entries from the thread that reads a store (and
// spends its time in the JSON parser or in libsystemd) to the thread that
// pairs them and calls the callbacks, so that the two run on two cores. The
// entries arrive in the order they were put in, in batches, through a fixed
// pool of batches: memory is bounded and, once warm, moving an entry through
// allocates nothing (the entries' strings keep their capacity).
//
// One producer thread and one consumer thread. The producer fills slot()
// and commit()s it, and says finish() when it has nothing more; the consumer
// take()s batches until nullptr and giveBack()s each. close() (consumer side)
// ends the exchange early: a producer waiting for room wakes at once and
// every later slot() answers nullptr, so a stop is never held up here.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "lumvane/signpost/SignpostEntry.h"

namespace lumvane {

class SignpostEntryPipe final {
 public:
  struct Item {
    bool malformed = false;  // a signpost entry in the window that cannot be read
    SignpostEntry entry;     // when not malformed
  };
  struct Batch {
    std::vector<Item> items;  // items[0, count) are filled
    size_t count = 0;
  };

  static constexpr size_t kDefaultBatches = 8;
  static constexpr size_t kDefaultBatchItems = 256;

  explicit SignpostEntryPipe(size_t batches = kDefaultBatches,
                             size_t batchItems = kDefaultBatchItems);
  SignpostEntryPipe(const SignpostEntryPipe&) = delete;
  SignpostEntryPipe& operator=(const SignpostEntryPipe&) = delete;

  // Producer: the next item to fill (its previous contents are left for
  // reuse), or nullptr once the consumer has closed the pipe.
  Item* slot();
  // Producer: the item from slot() is filled.
  void commit();
  // Producer: hands over the partly filled batch now (before waiting for
  // input, say), so that its items are not held back.
  void flush();
  // Producer: no more items; hands over the partly filled batch.
  void finish();

  // Consumer: the next batch in order, or nullptr when the producer has
  // finished and every batch has been taken (or the pipe is closed).
  Batch* take();
  void giveBack(Batch* batch);
  // Consumer: takes no more; wakes and stops the producer.
  void close();

 private:
  void handOver();  // requires lock

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::unique_ptr<Batch>> pool_;
  std::deque<Batch*> free_;
  std::deque<Batch*> ready_;
  Batch* filling_ = nullptr;  // producer's, outside both queues
  const size_t batchItems_;
  bool finished_ = false;
  std::atomic<bool> closed_{false};  // read without the lock by slot()
};

}  // namespace lumvane

// Carries the signpost records of a store from the thread that reads it
// (and spends its time in the JSON parser or in libsystemd) to the thread
// that decodes them, pairs them and calls the callbacks, so that the two
// run on two cores. Records arrive in the order they were written, in
// batches, through a fixed pool of batches: memory is bounded (a batch is
// handed over at kDefaultBatchRecords records or kBatchBytes bytes) and,
// once warm, moving a record through allocates nothing.
//
// One producer thread and one consumer thread. The producer writes records
// into batch() and commit()s after each, and says finish() when it has
// nothing more; the consumer take()s batches until nullptr and giveBack()s
// each. close() (consumer side) ends the exchange early: a producer waiting
// for room wakes at once and every later batch() answers nullptr, so a stop
// is never held up here.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "lumvane/signpost/SignpostRecordBatch.h"

namespace lumvane {

class SignpostEntryPipe final {
 public:
  static constexpr size_t kDefaultBatches = 8;
  static constexpr size_t kDefaultBatchRecords = 256;
  static constexpr size_t kBatchBytes = size_t{1} << 20;

  explicit SignpostEntryPipe(size_t batches = kDefaultBatches,
                             size_t batchRecords = kDefaultBatchRecords);
  SignpostEntryPipe(const SignpostEntryPipe&) = delete;
  SignpostEntryPipe& operator=(const SignpostEntryPipe&) = delete;

  // Producer: the batch to write the next record into (waiting for one when
  // all are taken), or nullptr once the consumer has closed the pipe.
  SignpostRecordBatch* batch();
  // Producer: the record just written is complete; a full batch goes over.
  void commit();
  // Producer: hands over the partly filled batch now (before waiting for
  // input, say), so that its records are not held back.
  void flush();
  // Producer: no more records; hands over the partly filled batch.
  void finish();

  // Consumer: the next batch in order, or nullptr when the producer has
  // finished and every batch has been taken (or the pipe is closed).
  SignpostRecordBatch* take();
  void giveBack(SignpostRecordBatch* batch);
  // Consumer: takes no more; wakes and stops the producer.
  void close();

 private:
  void handOver();  // requires lock

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::unique_ptr<SignpostRecordBatch>> pool_;
  std::deque<SignpostRecordBatch*> free_;
  std::deque<SignpostRecordBatch*> ready_;
  SignpostRecordBatch* filling_ = nullptr;  // producer's, outside both queues
  const size_t batchRecords_;
  bool finished_ = false;
  std::atomic<bool> closed_{false};  // read without the lock by batch()
};

}  // namespace lumvane

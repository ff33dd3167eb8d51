#include "collect/BatchWriter.h"

#include <utility>

namespace lumvane::collect {

BatchWriter::BatchWriter(EventStore* store, Committed committed)
    : store_(store), committed_(std::move(committed)), thread_([this] { loop(); }) {}

BatchWriter::~BatchWriter() {
  if (busy_) (void)wait();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    quit_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void BatchWriter::submit(const StoreBatch* batch) {
  busy_ = true;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    batch_ = batch;
  }
  wake_.notify_all();
}

StoreOutcome BatchWriter::wait() {
  std::unique_lock<std::mutex> lock(mutex_);
  wake_.wait(lock, [this] { return outcome_.has_value(); });
  StoreOutcome outcome = std::move(*outcome_);
  outcome_.reset();
  busy_ = false;
  return outcome;
}

void BatchWriter::loop() {
  for (;;) {
    const StoreBatch* batch = nullptr;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      wake_.wait(lock, [this] { return batch_ != nullptr || quit_; });
      if (!batch_) return;  // quit, nothing in hand
      batch = std::exchange(batch_, nullptr);
    }
    StoreOutcome outcome;
    outcome.error =
        store_->insertBatch(batch->events, batch->rejected, batch->receivedMicroseconds, &outcome.inserted);
    if (!outcome.error && committed_) outcome.proceed = committed_(*batch, outcome.inserted);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      outcome_ = std::move(outcome);
    }
    wake_.notify_all();
  }
}

}  // namespace lumvane::collect

#include "lumvane/signpost/SignpostEntryPipe.h"

namespace lumvane {

SignpostEntryPipe::SignpostEntryPipe(size_t batches, size_t batchItems)
    : batchItems_(batchItems ? batchItems : 1) {
  for (size_t i = 0; i < (batches ? batches : 1); ++i) {
    pool_.push_back(std::make_unique<Batch>());
    pool_.back()->items.resize(batchItems_);
    free_.push_back(pool_.back().get());
  }
}

SignpostEntryPipe::Item* SignpostEntryPipe::slot() {
  if (filling_ && filling_->count < batchItems_) {
    // The producer owns the batch it fills: no lock to take.
    if (closed_.load(std::memory_order_relaxed)) return nullptr;
    return &filling_->items[filling_->count];
  }
  std::unique_lock<std::mutex> lock(mutex_);
  if (filling_) handOver();
  changed_.wait(lock, [this] { return closed_ || !free_.empty(); });
  if (closed_) return nullptr;
  filling_ = free_.front();
  free_.pop_front();
  filling_->count = 0;
  return &filling_->items[0];
}

void SignpostEntryPipe::commit() { ++filling_->count; }

void SignpostEntryPipe::handOver() {
  ready_.push_back(filling_);
  filling_ = nullptr;
  changed_.notify_all();
}

void SignpostEntryPipe::flush() {
  if (!filling_ || filling_->count == 0) return;
  std::lock_guard<std::mutex> lock(mutex_);
  handOver();
}

void SignpostEntryPipe::finish() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (filling_ && filling_->count > 0) {
    handOver();
  } else if (filling_) {
    free_.push_back(filling_);
    filling_ = nullptr;
  }
  finished_ = true;
  changed_.notify_all();
}

SignpostEntryPipe::Batch* SignpostEntryPipe::take() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return closed_ || finished_ || !ready_.empty(); });
  if (closed_ || ready_.empty()) return nullptr;
  Batch* b = ready_.front();
  ready_.pop_front();
  return b;
}

void SignpostEntryPipe::giveBack(Batch* batch) {
  std::lock_guard<std::mutex> lock(mutex_);
  free_.push_back(batch);
  changed_.notify_all();
}

void SignpostEntryPipe::close() {
  std::lock_guard<std::mutex> lock(mutex_);
  closed_ = true;
  changed_.notify_all();
}

}  // namespace lumvane

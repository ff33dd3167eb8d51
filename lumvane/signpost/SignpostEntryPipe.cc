#include "lumvane/signpost/SignpostEntryPipe.h"

namespace lumvane {

SignpostEntryPipe::SignpostEntryPipe(size_t batches, size_t batchRecords)
    : batchRecords_(batchRecords ? batchRecords : 1) {
  for (size_t i = 0; i < (batches ? batches : 1); ++i) {
    pool_.push_back(std::make_unique<SignpostRecordBatch>());
    free_.push_back(pool_.back().get());
  }
}

SignpostRecordBatch* SignpostEntryPipe::batch() {
  if (filling_) {
    // The producer owns the batch it fills: no lock to take.
    return closed_.load(std::memory_order_relaxed) ? nullptr : filling_;
  }
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return closed_ || !free_.empty(); });
  if (closed_) return nullptr;
  filling_ = free_.front();
  free_.pop_front();
  filling_->clear();
  return filling_;
}

void SignpostEntryPipe::commit() {
  if (filling_->size() < batchRecords_ && filling_->bytes() < kBatchBytes) return;
  std::lock_guard<std::mutex> lock(mutex_);
  handOver();
}

void SignpostEntryPipe::handOver() {
  ready_.push_back(filling_);
  filling_ = nullptr;
  changed_.notify_all();
}

void SignpostEntryPipe::flush() {
  if (!filling_ || filling_->size() == 0) return;
  std::lock_guard<std::mutex> lock(mutex_);
  handOver();
}

void SignpostEntryPipe::finish() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (filling_ && filling_->size() > 0) {
    handOver();
  } else if (filling_) {
    free_.push_back(filling_);
    filling_ = nullptr;
  }
  finished_ = true;
  changed_.notify_all();
}

SignpostRecordBatch* SignpostEntryPipe::take() {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return closed_ || finished_ || !ready_.empty(); });
  if (closed_ || ready_.empty()) return nullptr;
  SignpostRecordBatch* b = ready_.front();
  ready_.pop_front();
  return b;
}

void SignpostEntryPipe::giveBack(SignpostRecordBatch* batch) {
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

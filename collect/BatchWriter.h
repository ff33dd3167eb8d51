// Commits the collector's decoded batches into the EventStore on a thread of
// its own, so that the collector fetches and decodes the next batch, and
// acknowledges the one before, while a batch is inserted and synced.
//
// One batch at a time: submit() hands a batch over, wait() returns how its
// transaction ended, and the next submit() comes only after that wait().
// With the batch the caller fetches meanwhile, no more than one batch is in
// flight beyond the one being stored. The caller acknowledges a batch only
// after wait() has reported its commit, so acknowledgements always follow
// their batch's commit.
//
// Thread-safety: submit(), wait() and busy() from one thread (the
// caller's). The store is used on the writer's thread only between a
// submit() and the wait() that follows it; in between batches the caller
// may use it itself. `committed` runs on the writer's thread. The
// destructor waits for the batch in hand, then joins the thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "collect/EventStore.h"
#include "collect/FleetEvent.h"
#include "lumvane/platform/Error.h"

namespace lumvane::collect {

struct StoreBatch {
  std::vector<FleetEvent> events;
  std::vector<RejectedMessage> rejected;
  int64_t receivedMicroseconds = 0;
};

struct StoreOutcome {
  std::optional<Error> error;  // set: nothing of the batch was kept
  int64_t inserted = 0;        // events new to the database
  bool proceed = true;         // false: `committed` asked to stop before the acknowledgements
};

class BatchWriter final {
 public:
  // `committed` (may be empty) is called after each commit with the batch
  // and the number of new events; returning false is passed on as
  // StoreOutcome::proceed.
  using Committed = std::function<bool(const StoreBatch& batch, int64_t inserted)>;
  BatchWriter(EventStore* store, Committed committed);
  ~BatchWriter();
  BatchWriter(const BatchWriter&) = delete;
  BatchWriter& operator=(const BatchWriter&) = delete;

  // Starts writing `batch`, which must stay unchanged until wait() returns.
  // Only when !busy().
  void submit(const StoreBatch* batch);
  // Blocks until the submitted batch is committed or given up. Only when busy().
  StoreOutcome wait();
  // A batch was submitted and not yet waited for.
  bool busy() const { return busy_; }

 private:
  void loop();

  EventStore* const store_;
  const Committed committed_;
  bool busy_ = false;  // the caller's own bookkeeping, not shared

  std::mutex mutex_;
  std::condition_variable wake_;
  const StoreBatch* batch_ = nullptr;   // guarded by mutex_: submitted, not yet taken
  std::optional<StoreOutcome> outcome_;  // guarded by mutex_: done, not yet waited for
  bool quit_ = false;                    // guarded by mutex_
  std::thread thread_;                   // last: starts once the rest is set up
};

}  // namespace lumvane::collect

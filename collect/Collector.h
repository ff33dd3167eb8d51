// The fleet side of lumvane: pulls the LUMVANE stream through a durable
// consumer and writes every event into the EventStore.
//
// Delivery: the consumer is created explicitly (or an existing one of that
// name is used) with explicit acknowledgements; the subscription only binds
// to it, so dropping the subscription never deletes it. Each fetched batch
// is written in one transaction and its messages are acknowledged only
// after the commit. A collector that dies between the two leaves the batch
// stored but unacknowledged: the server delivers it again once the ack wait
// has passed, and the store ignores the event IDs it already has. The same
// holds for a batch whose acknowledgements were lost with the connection.
// Redelivered messages can arrive after newer ones; nothing here depends on
// the order.
//
// Pipelining: a BatchWriter commits one batch on a thread of its own while
// this thread fetches and decodes the next; the batch before is
// acknowledged once its commit is reported. So at most one fetched batch
// waits beyond the one being committed, and every acknowledgement still
// follows its batch's commit. All calls into the client library stay on
// run()'s thread; the writer's thread only touches the EventStore.
//
// Consumer sharing: collectors that use one consumer name split its
// messages between them, so they must write one database file (on one
// host, WAL with a busy timeout); collectors with separate databases need
// separate consumer names, or each database would hold only a part.
//
// Thread-safety: run() on one thread; `stop` may be set from any thread;
// counts() once run() has returned (or `stored` from afterCommit).
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "collect/BatchWriter.h"
#include "collect/EventStore.h"
#include "fleet/Backoff.h"
#include "fleet/ConnectionSettings.h"
#include "fleet/NatsHandles.h"
#include "lumvane/platform/Error.h"

namespace lumvane::collect {

struct CollectSession;  // one connection, consumer and subscription
class FleetEventDecoder;
struct FetchedBatch;  // the messages of one fetch and what they decode to

struct CollectorOptions {
  std::string consumer = "lumvane-collect";
  int batch = 1024;             // messages per fetch and per transaction
  int64_t fetchWaitMs = 1000;   // longest wait for a batch to fill
  int64_t ackWaitMs = 30000;    // the server delivers an unacknowledged message again after this
  int64_t keepDays = 90;        // events sent longer ago are deleted
  bool drain = false;           // return once the consumer has nothing left to deliver
  // For tests and benchmarks: called on the writer's thread after each
  // batch has committed and before it is acknowledged. Returning false
  // leaves the batch unacknowledged and ends run() at once, as a collector
  // killed at that moment would.
  std::function<bool()> afterCommit;
};

struct CollectorCounts {
  int64_t received = 0;   // messages fetched (redeliveries included)
  int64_t stored = 0;     // events new to the database
  int64_t rejected = 0;   // messages that were not event lines (kept in "rejected")
};

class Collector final {
 public:
  Collector(fleet::ConnectionSettings settings, CollectorOptions options, EventStore* store);

  // Collects until `stop` turns true (or, with `drain`, nothing is left).
  // Connection failures are retried with backoff and logged once per
  // change; an error comes back only when retrying cannot help (the
  // consumer exists with an incompatible configuration).
  [[nodiscard]] std::optional<Error> run(const std::atomic<bool>& stop);

  const CollectorCounts& counts() const { return counts_; }

 private:
  enum class Outcome { Stopped, Drained, Reconnect, Abandoned };
  [[nodiscard]] std::optional<Error> bind(CollectSession& session, bool* retry);
  Outcome collect(CollectSession& session, const std::atomic<bool>& stop);
  // Turns the fetched messages into the batch's events and rejected messages.
  void decode(FetchedBatch& batch, FleetEventDecoder& decoder);
  // Acknowledges a committed batch, or has it delivered again when it
  // could not be stored; false when `afterCommit` asked to stop.
  bool settle(FetchedBatch& batch, StoreOutcome outcome, int* failures, fleet::Backoff& backoff,
              const std::atomic<bool>& stop);
  // Deletes the days past keepDays, at most hourly.
  void prune();
  void logOnce(const std::string& message);

  const fleet::ConnectionSettings settings_;
  const CollectorOptions options_;
  EventStore* const store_;
  // `received` is written on run()'s thread, `stored` and `rejected` on the
  // writer's (after each commit).
  CollectorCounts counts_;
  std::string lastLogged_;
  int64_t lastPruneMicroseconds_ = 0;
};

}  // namespace lumvane::collect

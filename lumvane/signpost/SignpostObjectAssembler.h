// Turns the signpost entries of one processing, given in store order, into
// the objects the extractor delivers: an event object per event, an
// interval or animation interval per begin paired with its end, counting
// what cannot be paired. Objects are made only when they are delivered; an
// open begin waits as text in the pairing tables, whose cap it applies. The
// assembler lives for one pass, and so does its table of the open begins'
// strings: a later pass starts with an empty one.
//
// Not thread-safe: one thread adds entries and receives the callbacks, one
// at a time, in the order of the entries.
#pragma once

#include <cstddef>

#include "lumvane/signpost/LogStoreExtractor.h"
#include "lumvane/signpost/SignpostEntry.h"
#include "lumvane/signpost/SignpostPairingTable.h"
#include "lumvane/signpost/SignpostStringTable.h"

namespace lumvane {

class SignpostObjectAssembler final {
 public:
  // The receivers; each may be null or empty. They must outlive the object.
  struct Callbacks {
    const VantrelObjectExtractor::IntervalCompletionBlock* interval = nullptr;
    const VantrelObjectExtractor::AnimationIntervalCompletionBlock* animation = nullptr;
    const VantrelObjectExtractor::EmitEventBlock* event = nullptr;
  };

  // Counts delivered and dropped objects into `*stats`, which must outlive
  // the object. `maxOpen` caps the open begins (at least 1).
  SignpostObjectAssembler(size_t maxOpen, Callbacks callbacks, LogStoreReadStatistics* stats);

  // One well-formed signpost entry of the window.
  void add(const SignpostEntry& e);
  // The processing has ended: counts the begins left open and forgets them.
  void finish();

 private:
  void emitEvent(const SignpostEntry& e);
  void begin(const SignpostEntry& e);
  void end(const SignpostEntry& e);

  const Callbacks callbacks_;
  LogStoreReadStatistics* const stats_;
  // The texts of the open begins; outlives the table that holds them.
  SignpostStringTable strings_;
  SignpostPairingTable table_;
};

}  // namespace lumvane

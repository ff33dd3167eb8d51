// The begins that wait for their end. A begin and an end belong together
// when they share subsystem, category, name and signpost ID inside one table:
// a table per process (boot ID and process ID) for process-scoped signposts,
// a table per thread (boot ID, process ID, thread ID) for thread-scoped ones
// and one table for system scope. Every key carries the boot ID, so that a
// begin and an end of different boots never meet. The tables live as one
// map under a key that starts with the table's identity.
//
// Memory is bounded by the number of intervals open at once. Not
// thread-safe; one table set per reading thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "lumvane/signpost/SignpostArguments.h"
#include "lumvane/signpost/SignpostEntry.h"
#include "lumvane/signpost/SignpostEvent.h"

namespace lumvane {

// What an open begin keeps until its end arrives.
struct OpenSignpostInterval {
  std::shared_ptr<const SignpostEvent> beginEvent;
  SignpostTime beginTime;
  SignpostArguments arguments;
  bool animation = false;
  bool telemetryEnabled = false;

  // Events of the same signpost seen after the begin, for the frame rate.
  uint64_t frames = 0;
  SignpostTime latestFrameTime;
  uint64_t framesAtLatestTime = 0;

  void countFrame(const SignpostTime& t);
  // Frames strictly between the begin and `end` (entries come in time
  // order, so frames not before the end are the ones at the latest time).
  uint64_t framesBefore(const SignpostTime& end) const;
};

class SignpostPairingTable final {
 public:
  bool contains(const SignpostEntry& e);

  // False, leaving the table unchanged, when this signpost is already open.
  bool open(const SignpostEntry& e, OpenSignpostInterval interval);

  // Removes and returns the open begin of the end `e`, if any.
  std::optional<OpenSignpostInterval> close(const SignpostEntry& e);

  // Counts an event toward the frame rate of the open begin it belongs to.
  void countFrame(const SignpostEntry& e);

  size_t openCount() const { return open_.size(); }
  void clear() { open_.clear(); }

 private:
  const std::string& keyOf(const SignpostEntry& e);

  std::unordered_map<std::string, OpenSignpostInterval> open_;
  std::string key_;  // reused, so that looking up allocates nothing
};

}  // namespace lumvane

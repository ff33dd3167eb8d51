// The begins that wait for their end. A begin and an end belong together
// when they share subsystem, category, name and signpost ID inside one table:
// a table per process for process-scoped signposts, a table per thread for
// thread-scoped ones and one table for the whole system. The tables live as
// one map under a key that starts with the table's identity.
//
// Memory is bounded by the number of intervals open at once. Not
// thread-safe; one table set per reading thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "lumvane/signpost/SignpostArguments.h"
#include "lumvane/signpost/SignpostEvent.h"
#include "lumvane/signpost/SignpostRecord.h"

namespace lumvane {

// What an open begin keeps until its end arrives.
struct OpenSignpostInterval {
  std::shared_ptr<const SignpostEvent> beginEvent;
  Date beginTime{};
  SignpostArguments arguments;
  bool animation = false;
  bool telemetryEnabled = false;

  // Events of the same signpost seen after the begin, for the frame rate.
  uint64_t frames = 0;
  Date latestFrameTime{};
  uint64_t framesAtLatestTime = 0;

  void countFrame(Date t);
  // Frames strictly between the begin and `end` (the store is in time
  // order, so frames not before the end are the ones at the latest time).
  uint64_t framesBefore(Date end) const;
};

class SignpostPairingTable final {
 public:
  // The record must carry a scope and a signpost ID (and the process or
  // thread ID its scope needs).
  bool contains(const SignpostRecord& r);

  // False, leaving the table unchanged, when this signpost is already open.
  bool open(const SignpostRecord& r, OpenSignpostInterval interval);

  // Removes and returns the open begin of the end `r`, if any.
  std::optional<OpenSignpostInterval> close(const SignpostRecord& r);

  // Counts an event toward the frame rate of the open begin it belongs to.
  void countFrame(const SignpostRecord& r);

  size_t openCount() const { return open_.size(); }
  void clear() { open_.clear(); }

 private:
  const std::string& keyOf(const SignpostRecord& r);

  std::unordered_map<std::string, OpenSignpostInterval> open_;
  std::string key_;  // reused, so that looking up allocates nothing
};

}  // namespace lumvane

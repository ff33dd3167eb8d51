// The begins that wait for their end. A begin and an end belong together
// when they share subsystem, category, name and signpost ID inside one table:
// a table per process (boot ID and process ID) for process-scoped signposts,
// a table per thread (boot ID, process ID, thread ID) for thread-scoped ones
// and one table for system scope. Every key carries the boot ID, so that a
// begin and an end of different boots never meet. The tables live as one
// map under a key that starts with the table's identity.
//
// Memory is bounded by a cap on the begins open at once, across all tables
// together: when a new begin finds the tables full, the open begin with the
// earliest realtime timestamp (the first opened among equals) is dropped and
// counted, since it is the one least likely to see its end in the window.
// Not thread-safe; one table set per reading thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "lumvane/signpost/SignpostArguments.h"
#include "lumvane/signpost/SignpostEntry.h"
#include "lumvane/signpost/SignpostEvent.h"

namespace lumvane {

// What an open begin keeps until its end arrives: the begin's own fields as
// text, turned into its event object only when the interval is delivered.
struct OpenSignpostInterval {
  std::string subsystem;
  std::string category;
  std::optional<std::string> name;
  std::optional<std::string> processName;
  std::optional<std::string> processImagePath;
  SignpostTime beginTime;
  SignpostArguments arguments;
  bool animation = false;
  bool telemetryEnabled = false;
  uint64_t sequence = 0;  // set by the table: the order of opening

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
  // `maxOpen` is at least 1.
  explicit SignpostPairingTable(size_t maxOpen = SIZE_MAX) : maxOpen_(maxOpen ? maxOpen : 1) {}

  bool contains(const SignpostEntry& e);

  // False, leaving the table unchanged, when this signpost is already open.
  // When the tables are full, the earliest of the open begins and `e` is
  // dropped (and counted) to make room.
  bool open(const SignpostEntry& e, OpenSignpostInterval interval);

  // Removes and returns the open begin of the end `e`, if any.
  std::optional<OpenSignpostInterval> close(const SignpostEntry& e);

  // Counts an event toward the frame rate of the open begin it belongs to.
  void countFrame(const SignpostEntry& e);

  size_t openCount() const { return open_.size(); }
  // Open begins dropped to make room since construction or clear().
  uint64_t droppedCount() const { return dropped_; }
  void clear() {
    open_.clear();
    byAge_.clear();
    dropped_ = 0;
  }

 private:
  using Map = std::unordered_map<std::string, OpenSignpostInterval>;
  // (realtime, sequence) of each open begin, oldest first. Keys point into
  // open_'s nodes, which stay put while the map rehashes.
  using AgeIndex = std::map<std::pair<uint64_t, uint64_t>, const std::string*>;

  const std::string& keyOf(const SignpostEntry& e);

  const size_t maxOpen_;
  Map open_;
  AgeIndex byAge_;
  uint64_t nextSequence_ = 0;
  uint64_t dropped_ = 0;
  std::string key_;  // reused, so that looking up allocates nothing
};

}  // namespace lumvane

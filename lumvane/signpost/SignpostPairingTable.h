// The begins that wait for their end. A begin and an end belong together
// when they share subsystem, category, name and signpost ID inside one table:
// a table per process (boot ID and process ID) for process-scoped signposts,
// a table per thread (boot ID, process ID, thread ID) for thread-scoped ones
// and one table for system scope. Every key carries the boot ID, so that a
// begin and an end of different boots never meet. The tables live as one
// map under a key that holds the table's identity.
//
// Memory is bounded by a cap on the begins open at once, across all tables
// together: when a new begin finds the tables full, the open begin with the
// earliest realtime timestamp (the first opened among equals) is dropped and
// counted, since it is the one least likely to see its end in the window.
// The strings the open begins share live in a SignpostStringTable of the
// pass; its bytes count against the same cap, kOpenBeginBytes for a begin.
// Not thread-safe; one table set per reading thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "lumvane/signpost/SignpostArguments.h"
#include "lumvane/signpost/SignpostEntry.h"
#include "lumvane/signpost/SignpostStringTable.h"

namespace lumvane {

// What an open begin keeps until its end arrives: the begin's own fields,
// its texts as strings of the pass's table, turned into its event object
// only when the interval is delivered.
struct OpenSignpostInterval {
  const std::string* subsystem = nullptr;
  const std::string* category = nullptr;
  const std::string* name = nullptr;  // nullptr when the begin has none
  const std::string* processName = nullptr;
  const std::string* processImagePath = nullptr;
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
  // What the strings of the table count for against the cap: one open
  // begin for each kOpenBeginBytes.
  static constexpr size_t kOpenBeginBytes = 1200;

  // `maxOpen` is at least 1. `strings` holds the texts of the open begins
  // and must outlive the table.
  SignpostPairingTable(size_t maxOpen, SignpostStringTable* strings)
      : maxOpen_(maxOpen ? maxOpen : 1), strings_(strings) {}
  ~SignpostPairingTable() { clear(); }
  SignpostPairingTable(const SignpostPairingTable&) = delete;
  SignpostPairingTable& operator=(const SignpostPairingTable&) = delete;

  bool contains(const SignpostEntry& e) const;

  // Opens the begin `e`, keeping its fields, arguments and time. False,
  // leaving the table unchanged, when this signpost is already open. When
  // the tables are full, the earliest of the open begins and `e` is
  // dropped (and counted) to make room.
  bool open(const SignpostEntry& e);

  // Removes the open begin of the end `e` and answers it, or nullptr when
  // there is none. The answer, its strings included, is valid until the
  // next call on the table.
  OpenSignpostInterval* close(const SignpostEntry& e);

  // Counts an event toward the frame rate of the open begin it belongs to.
  void countFrame(const SignpostEntry& e);

  size_t openCount() const { return open_.size(); }
  // Open begins dropped to make room since construction or clear().
  uint64_t droppedCount() const { return dropped_; }
  void clear();

 private:
  // Which signpost a begin or an end is: texts by their table strings, so
  // that equal texts are equal pointers. An absent name is nullptr.
  struct Key {
    const std::string* bootID = nullptr;
    const std::string* subsystem = nullptr;
    const std::string* category = nullptr;
    const std::string* name = nullptr;
    uint64_t pid = 0;  // 0 for system scope
    uint64_t tid = 0;  // 0 unless thread scope
    uint64_t signpostID = 0;
    SignpostEntry::Scope scope = SignpostEntry::Scope::Process;
    bool operator==(const Key& o) const;
  };
  struct KeyHash {
    size_t operator()(const Key& k) const;
  };
  using Map = std::unordered_map<Key, OpenSignpostInterval, KeyHash>;
  // A begin by its age: a min-heap on (realtime, sequence) in a reused
  // vector. Closed begins stay in it until they come to the top or it holds
  // twice as many as are open, so that closing costs nothing here.
  struct Age {
    uint64_t realtimeUsec;
    uint64_t sequence;
    Key key;
    bool operator>(const Age& o) const {
      return realtimeUsec != o.realtimeUsec ? realtimeUsec > o.realtimeUsec
                                            : sequence > o.sequence;
    }
  };

  // The key of `e` when every text of it is in the string table; none
  // otherwise, and then no begin of it is open.
  std::optional<Key> find(const SignpostEntry& e) const;
  bool full() const;
  // The oldest open begin's age, or nullptr when none is open.
  const Age* oldest();
  void dropOldest();
  void pushAge(uint64_t realtimeUsec, uint64_t sequence, const Key& key);
  void release(const OpenSignpostInterval& open);

  const size_t maxOpen_;
  SignpostStringTable* const strings_;
  Map open_;
  std::vector<Age> byAge_;  // a heap, with std::greater
  std::optional<OpenSignpostInterval> closed_;  // the last answer of close()
  uint64_t nextSequence_ = 0;
  uint64_t dropped_ = 0;
};

}  // namespace lumvane

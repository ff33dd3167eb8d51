// One signpost entry of the journal as the reader sees it: the SIGNPOST_*
// fields of an entry whose MESSAGE_ID marks it as a signpost, the process
// that emitted it and its three timestamps. Owned strings, reused from entry
// to entry by the builder so that reading allocates nothing once warm.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "lumvane/signpost/SignpostArguments.h"

namespace lumvane {

// When an entry was made, on every clock the journal and the emitter give.
struct SignpostTime {
  uint64_t realtimeUsec = 0;                 // __REALTIME_TIMESTAMP
  std::optional<uint64_t> monotonicUsec;     // __MONOTONIC_TIMESTAMP
  std::optional<uint64_t> boottimeNsec;      // SIGNPOST_BOOTTIME_NSEC

  // Nanoseconds from `from` to `to` on the best clock both carry: the
  // emitter's CLOCK_BOOTTIME, else the journal's monotonic clock, else the
  // wall clock. Only meaningful for two entries of one boot.
  static int64_t elapsedNanoseconds(const SignpostTime& from, const SignpostTime& to);
};

struct SignpostEntry {
  enum class Type { Begin, End, Event };
  // Which pairing table a begin or end belongs to.
  enum class Scope { Process, Thread, System };

  Type type = Type::Event;
  Scope scope = Scope::Process;
  uint64_t signpostID = 0;
  std::string subsystem;
  std::string category;
  std::optional<std::string> name;
  bool telemetry = false;  // SIGNPOST_TELEMETRY=1
  bool animation = false;  // SIGNPOST_ANIMATION=1
  SignpostArguments arguments;

  std::string bootID;  // empty when the entry carries none
  std::optional<uint64_t> pid;
  std::optional<uint64_t> tid;  // SIGNPOST_TID
  std::optional<std::string> processImagePath;
  std::optional<std::string> processName;

  SignpostTime time;
};

}  // namespace lumvane

// Writes a synthetic signpost store: the journal entries of the day before
// an end time, as journalctl prints them (JSON lines, or the export format
// from which systemd-journal-remote makes .journal files), deterministic for
// a seed. About 70% of the entries are signposts of a handful of programs
// (intervals of every scope, animation intervals with their frame events,
// single events, string arguments inside and outside the Cirros whitelist,
// private-looking text, numbers of every kind, repeated attributes, entries
// sent on another process's behalf, a few malformed ones, one kind of
// them with text that is not UTF-8); the rest are
// other programs' entries, some with multi-line, non-UTF-8 or over-long
// messages. The day spans a suspend and a reboot: begins open at the reboot
// are never closed, and some of them get an end in the next boot that must
// not pair. Used by the generate_signpost_store tool, the sample store, the
// tests and the reader benchmark.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "lumvane/platform/Date.h"
#include "lumvane/platform/Error.h"

namespace lumvane {

enum class SignpostStoreFormat {
  JournalJson,    // journalctl -o json
  JournalExport,  // journalctl -o export
};

struct SignpostStoreGeneratorOptions {
  uint64_t seed = 1;
  uint64_t records = 10000;  // journal entries (JSON form: lines) written
  Date end{};                // every entry's realtime lies in [end - 86400 s, end]
  // false: no signpost enables telemetry, so nothing would be reported.
  bool accept = true;
  SignpostStoreFormat format = SignpostStoreFormat::JournalJson;
};

// What a store holds, counted while it was written. A reader given the
// whole day should find these numbers.
struct SignpostStoreCounts {
  uint64_t records = 0;             // entries, or lines in the JSON form
  uint64_t signposts = 0;           // entries with the signpost message ID, malformed included
  uint64_t malformedSignposts = 0;  // of those, a required field missing or out of its
                                    // domain, or text that is not UTF-8
  uint64_t brokenLines = 0;         // JSON form: lines cut short (not JSON objects)
  uint64_t otherEntries = 0;        // other programs' entries
  uint64_t intervals = 0;           // completed intervals, animation intervals not included
  uint64_t animationIntervals = 0;
  uint64_t events = 0;            // single events, animation frames included
  uint64_t unclosedBegins = 0;    // begins never ended in their boot
  uint64_t unmatchedEnds = 0;     // ends in a later boot than their begin
  uint64_t telemetryObjects = 0;  // delivered objects with telemetry enabled
};

class SignpostStoreGenerator final {
 public:
  // The MESSAGE_ID that marks a journal entry as a signpost.
  static constexpr const char* kSignpostMessageId = "0c7e0296aa5f4fc7af2af7a970a22d31";

  explicit SignpostStoreGenerator(SignpostStoreGeneratorOptions options);

  // Writes the store to `path` ("-" for standard output).
  [[nodiscard]] std::optional<Error> writeTo(const std::string& path);
  // Writes the store to an open stream (a pipe to systemd-journal-remote,
  // say); `name` names it in errors. The stream stays open.
  [[nodiscard]] std::optional<Error> writeTo(std::FILE* stream, const std::string& name);

  // Of the last write.
  uint64_t bytesWritten() const { return bytes_; }
  const SignpostStoreCounts& counts() const { return counts_; }

 private:
  SignpostStoreGeneratorOptions options_;
  uint64_t bytes_ = 0;
  SignpostStoreCounts counts_;
};

}  // namespace lumvane

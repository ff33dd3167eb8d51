// One timed run of the signpost reader over a store, as every part of
// journal_read_bench measures it: wall and CPU time (the calling thread's
// share apart: decoding, pairing, callbacks; the rest is the reading
// thread's), the heap allocations of both reader threads, and the peak
// memory while it reads. Also the day all parts generate and read.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "lumvane/platform/Date.h"

namespace lumvane::bench {

// 2024-05-01 12:00:00 +02:00, and the day before it.
inline const lumvane::Date kEnd{std::chrono::seconds(1714557600)};
inline const lumvane::Date kStart = kEnd - std::chrono::hours(24);

struct ReaderRun {
  double seconds = 0, cpuSeconds = 0;  // cpuSeconds: the reader's threads only
  double callingCpuSeconds = 0;  // the calling thread's share of cpuSeconds
  uint64_t processed = 0, objects = 0;
  uint64_t allocations = 0;  // operator new calls while the reader ran
  long rssPeakKiB = 0, anonBeforeKiB = 0, anonPeakKiB = 0;
};

// Reads the store at `store` (journal directory or JSON-lines file) over
// [kStart, kEnd] with callbacks that only count objects. A failed read is
// reported on standard error and answers what was measured.
ReaderRun RunReader(const std::string& store);

// The runs of one contender: their times, the CPU split between the
// reader's threads, and the peak memory over all of them (the anonymous
// peak as growth during a run, or whole, as the part reports it).
struct ReaderRuns {
  std::vector<double> seconds, cpuSeconds, callingCpuSeconds, readingCpuSeconds;
  long rssPeakKiB = 0, anonPeakKiB = 0, anonGrowthPeakKiB = 0;
  ReaderRun last;
  void add(const ReaderRun& run);
};

// Prints the allocations of `r` per store record and per signpost; nothing
// when either count is 0.
void PrintAllocations(const ReaderRun& r, uint64_t records);

}  // namespace lumvane::bench

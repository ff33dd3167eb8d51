// The extractor over the signpost entries of a journal: the machine's own
// journal, a directory of journal files, one journal file, or the JSON lines
// that journalctl writes (a file, a directory of them, or standard input).
// It pairs begins with ends into intervals and animation intervals, turns
// single events into event objects and hands each to its callback, in the
// order of the store, on the thread that called processLogArchiveWithPath.
// The store itself is walked on a worker thread that the processing starts
// and joins, which hands on the raw fields a signpost needs; decoding and
// pairing run on the calling thread, so that the two use two cores. Between
// the two, at most a few thousand records (and a few MB) wait.
//
// Without a path, the store is $LUMVANE_SIGNPOST_STORE, or the machine's
// own journal when that is unset or empty (SignpostStoreLocation tells the
// forms apart; "-" is JSON lines on standard input). A named file must be a
// regular file: a FIFO or a device is refused at once (see LogStoreFile.h).
// A JSON-lines store is read whole and judged entry by entry against the
// window; a journal is read from the window's start and no further than the
// first entry past its end.
//
// Lines that are not JSON objects, lines over 1,048,576 bytes, signpost
// entries missing a field they need or holding a bad value (a string that
// cannot be decoded included), and signpost entries without a realtime
// timestamp are passed over and counted as malformed; none of them stops
// the reader. The counts of one processing, with the begins and ends that
// could not be paired, are logged in one debug line when it ends.
//
// The begins waiting for their end are capped, across the process, thread
// and system tables together, at $LUMVANE_MAX_OPEN_INTERVALS (a positive
// decimal number; kDefaultMaxOpenIntervals when unset or not one), which
// keeps the reader's memory bounded whatever the store holds. The texts the
// open begins share (subsystem, category, name, process) are kept once per
// processing and count toward the same cap. When the cap is reached, the
// open begin with the earliest timestamp is dropped and counted; the first
// such drop of a processing is logged.
//
// Thread-safety: processLogArchiveWithPath runs on one thread at a time;
// stopProcessing may come from any thread at any time. A stop request ends
// the processing under way at the next entry, or within a fraction of a
// second inside a long line (the call then answers true), or, when none is
// under way, the next processing to begin.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "lumvane/signpost/VantrelObjectExtractor.h"

namespace lumvane {

// What one processing went through; counts, all unsigned 64-bit.
struct LogStoreReadStatistics {
  uint64_t recordsInWindow = 0;     // signpost entries, malformed ones too
                                    // (= processedEventCount)
  uint64_t recordsOutsideWindow = 0;
  uint64_t otherEntries = 0;        // entries of other programs (JSON form)
  uint64_t intervals = 0;           // delivered, animation intervals not included
  uint64_t animationIntervals = 0;
  uint64_t events = 0;
  uint64_t duplicateBegins = 0;     // a second begin of a signpost already open
  uint64_t unmatchedEnds = 0;       // an end without an open begin of its boot
  uint64_t nonPositiveIntervals = 0;  // an end not strictly after its begin
  uint64_t unclosedBegins = 0;      // begins still open when processing ended
  uint64_t droppedOpenBegins = 0;   // earliest open begins dropped at the open-interval cap
  uint64_t nonObjectLines = 0;      // text, broken JSON, non-object JSON
  uint64_t malformedRecords = 0;    // signpost entries that cannot be read; oversized lines
  uint64_t files = 0;               // JSON files, or 1 for a journal
};

class LogStoreExtractor final : public VantrelObjectExtractor {
 public:
  static constexpr const char* kStoreEnvironmentVariable = "LUMVANE_SIGNPOST_STORE";
  static constexpr const char* kMaxOpenIntervalsVariable = "LUMVANE_MAX_OPEN_INTERVALS";
  // An open begin with every argument filled takes about 1.2 KB, and every
  // 1.2 KB of shared texts counts as one: the default keeps the reader
  // within 64 MB.
  static constexpr size_t kDefaultMaxOpenIntervals = 40000;

  LogStoreExtractor() = default;

  void setIntervalCompletionProcessingBlock(IntervalCompletionBlock block) override;
  void setAnimationIntervalCompletionProcessingBlock(
      AnimationIntervalCompletionBlock block) override;
  void setEmitEventProcessingBlock(EmitEventBlock block) override;
  // Composite animation timelines are not built by this reader; the option
  // is kept for callers that set it.
  void setBuildAnimationCompositeIntervalTimelines(bool build) override;

  // Fails, with an error naming the path and the reason, when the store or
  // one of its files cannot be opened or read; JSON files that can be read
  // are still processed.
  bool processLogArchiveWithPath(const std::optional<std::string>& path, Date startDate,
                                 Date endDate, std::optional<Error>* errorOut) override;
  void stopProcessing() override;
  uint64_t processedEventCount() const override;

  // The counts of the last processing (read after it has returned).
  const LogStoreReadStatistics& lastReadStatistics() const { return stats_; }

  // The store read when no path is given: $LUMVANE_SIGNPOST_STORE, or
  // nothing (the machine's journal) when that is unset or empty.
  static std::optional<std::string> configuredStorePath();

  // The cap on open begins in force: $LUMVANE_MAX_OPEN_INTERVALS or the
  // default.
  static size_t configuredMaxOpenIntervals();
  // Overrides the cap for the next processings; 0 goes back to the
  // configured one.
  void setMaxOpenIntervals(size_t cap) { maxOpenIntervals_ = cap; }

  // Record reading granularity; tests make it small to cross chunk edges.
  void setChunkBytes(size_t bytes) { chunkBytes_ = bytes; }

 private:
  class Pass;

  IntervalCompletionBlock intervalBlock_;
  AnimationIntervalCompletionBlock animationBlock_;
  EmitEventBlock eventBlock_;
  bool buildCompositeTimelines_ = false;
  size_t chunkBytes_ = 0;  // 0: the reader's default
  size_t maxOpenIntervals_ = 0;  // 0: configuredMaxOpenIntervals()
  std::atomic<bool> stopRequested_{false};
  std::atomic<uint64_t> processed_{0};
  LogStoreReadStatistics stats_;
};

// Makes a LogStoreExtractor per call ("plain construction" for a run).
ExtractorFactory LogStoreExtractorFactory();

}  // namespace lumvane

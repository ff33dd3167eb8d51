#include "lumvane/signpost/LogStoreExtractor.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "lumvane/filter/LVLog.h"
#include "lumvane/signpost/JournalJsonLineParser.h"
#include "lumvane/signpost/JournalReader.h"
#include "lumvane/signpost/LogStoreFile.h"
#include "lumvane/signpost/SignpostEntryBuilder.h"
#include "lumvane/signpost/SignpostEntryPipe.h"
#include "lumvane/signpost/SignpostObjectAssembler.h"
#include "lumvane/signpost/SignpostStoreLocation.h"

namespace lumvane {
namespace {

uint64_t MicrosecondsSinceEpoch(Date d) {
  const auto us = d.time_since_epoch().count();
  return us < 0 ? 0 : static_cast<uint64_t>(us);
}

}  // namespace

// The state of one processing. Reading runs on a worker thread, which does
// no more than walk the store and copy the raw values of the fields a
// signpost needs; the records go through a bounded pipe, in store order, to
// the thread that called processLogArchiveWithPath, which decodes them,
// judges them against the window, pairs them and calls the callbacks one at
// a time. (The walk through libsystemd or the JSON parser is the larger
// half: decoding goes with pairing to even the two cores out.) Each side
// counts into its own statistics; they are added up when the worker has
// ended.
class LogStoreExtractor::Pass {
 public:
  Pass(LogStoreExtractor& owner, Date start, Date end)
      : owner_(owner),
        stats_(owner.stats_),
        startUsec_(MicrosecondsSinceEpoch(start)),
        endUsec_(end < start ? 0 : MicrosecondsSinceEpoch(end)),
        emptyWindow_(end < start),
        assembler_(owner.maxOpenIntervals_ ? owner.maxOpenIntervals_ : configuredMaxOpenIntervals(),
                   {&owner.intervalBlock_, &owner.animationBlock_, &owner.eventBlock_},
                   &owner.stats_) {}

  // Runs `read` (one of the read* functions below) on a worker thread while
  // this thread decodes and pairs what it reads; answers the reading error, if any.
  template <typename Read>
  std::optional<Error> run(Read read) {
    std::optional<Error> readError;
    std::thread worker([&] {
      readError = read(*this);
      pipe_.finish();
    });
    while (SignpostRecordBatch* batch = pipe_.take()) {
      bool stop = false;
      for (size_t i = 0; i < batch->size() && !(stop = stopRequested()); ++i) {
        handleRecord(*batch, batch->record(i));
      }
      pipe_.giveBack(batch);
      if (stop) break;
    }
    // Wakes a worker that waits for room; it then ends at its next entry.
    pipe_.close();
    worker.join();
    stats_.recordsOutsideWindow += readerStats_.recordsOutsideWindow;
    stats_.otherEntries += readerStats_.otherEntries;
    stats_.nonObjectLines += readerStats_.nonObjectLines;
    stats_.malformedRecords += readerStats_.malformedRecords;
    stats_.files += readerStats_.files;
    return readError;
  }

  // Worker: reads the JSON files in turn; an error of one file does not
  // keep the others from being read, and the first one is answered.
  std::optional<Error> readJsonFiles(const std::vector<std::string>& files) {
    std::optional<Error> error;
    for (const std::string& file : files) {
      if (stopRequested()) break;
      std::optional<Error> fileError = readJsonFile(file);
      if (fileError && !error) error = std::move(fileError);
    }
    return error;
  }

  // Worker: reads one file of JSON lines to its end or to a stop request.
  std::optional<Error> readJsonFile(const std::string& path) {
    // The file looks at the stop request itself too, so that a stop is not
    // held up by one endless line.
    LogStoreFile file(owner_.chunkBytes_ ? owner_.chunkBytes_ : LogStoreFile::kDefaultChunkBytes,
                      LogStoreFile::kDefaultMaxRecordBytes, &owner_.stopRequested_);
    if (std::optional<Error> e = file.open(path)) return e;
    ++readerStats_.files;
    std::string_view text;
    for (;;) {
      if (stopRequested()) return std::nullopt;
      switch (file.next(&text)) {
        case LogStoreFile::Next::End:
        case LogStoreFile::Next::Stopped:
          return std::nullopt;
        case LogStoreFile::Next::Failed:
          return file.readError();
        case LogStoreFile::Next::Oversized:
          ++readerStats_.malformedRecords;
          continue;
        case LogStoreFile::Next::Record: {
          SignpostRecordBatch* batch = pipe_.batch();
          if (!batch) return std::nullopt;
          if (parser_.parse(text, LogStoreFile::kPadding, batch)) {
            pipe_.commit();
          } else {
            ++readerStats_.nonObjectLines;
          }
          // The next record may be long in coming: what has come is due now.
          if (file.mayWait()) pipe_.flush();
          break;
        }
      }
    }
  }

  // Worker: reads the window of a journal, or up to a stop request.
  std::optional<Error> readJournal(JournalReader::Source source, const std::string& path) {
    std::unique_ptr<JournalReader> journal;
    if (std::optional<Error> e = JournalReader::open(source, path, startUsec_, &journal)) return e;
    ++readerStats_.files;
    uint64_t realtime = 0;
    for (;;) {
      if (stopRequested()) return std::nullopt;
      switch (journal->next(&realtime)) {
        case JournalReader::Next::End:
          return std::nullopt;
        case JournalReader::Next::Failed:
          return journal->error();
        case JournalReader::Next::Entry:
          break;
      }
      if (!inWindow(realtime)) {
        ++readerStats_.recordsOutsideWindow;
        // Entries come in time order: past the end, nothing more is due.
        if (realtime > endUsec_) return std::nullopt;
        continue;
      }
      SignpostRecordBatch* batch = pipe_.batch();
      if (!batch) return std::nullopt;
      if (std::optional<Error> e = journal->readEntry(batch)) return e;
      pipe_.commit();
    }
  }

  void finish() { assembler_.finish(); }

 private:
  bool stopRequested() const { return owner_.stopRequested_.load(std::memory_order_relaxed); }

  bool inWindow(uint64_t realtimeUsec) const {
    return !emptyWindow_ && realtimeUsec >= startUsec_ && realtimeUsec <= endUsec_;
  }

  // Pairing thread: one record of the store, in store order.
  void handleRecord(const SignpostRecordBatch& batch, const SignpostRecordBatch::Record& r) {
    builder_.reset();
    for (size_t k = 0; k < r.fieldCount; ++k) {
      const SignpostRecordBatch::Field& f = batch.field(r, k);
      builder_.add(f.index, batch.value(f));
    }
    std::string_view item;
    for (size_t at = r.firstItemByte; batch.nextItem(r, &at, &item);) {
      const size_t eq = item.find('=');
      if (eq != std::string_view::npos) builder_.add(item.substr(0, eq), item.substr(eq + 1));
    }
    if (r.realtimeUsec) builder_.setRealtimeUsec(*r.realtimeUsec);
    if (r.monotonicUsec) builder_.setMonotonicUsec(*r.monotonicUsec);
    if (r.hasBootID) builder_.setBootID(std::string_view(r.bootID.data(), r.bootID.size()));
    if (r.unreadable) builder_.markUnreadable();

    const SignpostEntryBuilder::Verdict verdict = builder_.finish();
    switch (verdict) {
      case SignpostEntryBuilder::Verdict::NotSignpost:
        ++stats_.otherEntries;
        return;
      case SignpostEntryBuilder::Verdict::NoRealtime:
        ++stats_.malformedRecords;
        return;
      case SignpostEntryBuilder::Verdict::Malformed:
      case SignpostEntryBuilder::Verdict::Signpost:
        break;
    }
    if (!inWindow(*builder_.realtimeUsec())) {
      ++stats_.recordsOutsideWindow;
      return;
    }
    ++stats_.recordsInWindow;
    owner_.processed_.store(stats_.recordsInWindow, std::memory_order_relaxed);
    if (verdict == SignpostEntryBuilder::Verdict::Malformed) {
      ++stats_.malformedRecords;
      return;
    }
    assembler_.add(builder_.entry());
  }

  LogStoreExtractor& owner_;
  LogStoreReadStatistics& stats_;
  const uint64_t startUsec_;
  const uint64_t endUsec_;
  const bool emptyWindow_;
  // The worker's.
  JournalJsonLineParser parser_;
  LogStoreReadStatistics readerStats_;
  SignpostEntryPipe pipe_;
  // The pairing thread's.
  SignpostEntryBuilder builder_;
  SignpostObjectAssembler assembler_;
};

void LogStoreExtractor::setIntervalCompletionProcessingBlock(IntervalCompletionBlock block) {
  intervalBlock_ = std::move(block);
}

void LogStoreExtractor::setAnimationIntervalCompletionProcessingBlock(
    AnimationIntervalCompletionBlock block) {
  animationBlock_ = std::move(block);
}

void LogStoreExtractor::setEmitEventProcessingBlock(EmitEventBlock block) {
  eventBlock_ = std::move(block);
}

void LogStoreExtractor::setBuildAnimationCompositeIntervalTimelines(bool build) {
  buildCompositeTimelines_ = build;
}

size_t LogStoreExtractor::configuredMaxOpenIntervals() {
  const char* env = std::getenv(kMaxOpenIntervalsVariable);
  size_t cap = 0;
  if (env && *env >= '0' && *env <= '9') {
    const char* end = env + std::strlen(env);
    const auto [ptr, ec] = std::from_chars(env, end, cap);
    if (ec != std::errc() || ptr != end) cap = 0;
  }
  return cap ? cap : kDefaultMaxOpenIntervals;
}

std::optional<std::string> LogStoreExtractor::configuredStorePath() {
  const char* env = std::getenv(kStoreEnvironmentVariable);
  if (env && *env) return std::string(env);
  return std::nullopt;
}

bool LogStoreExtractor::processLogArchiveWithPath(const std::optional<std::string>& path,
                                                  Date startDate, Date endDate,
                                                  std::optional<Error>* errorOut) {
  stats_ = LogStoreReadStatistics();
  processed_.store(0);
  const std::optional<std::string> store = path ? path : configuredStorePath();

  SignpostStoreLocation location;
  std::optional<Error> error = SignpostStoreLocation::recognize(store, &location);
  if (!error) {
    Pass pass(*this, startDate, endDate);
    error = pass.run([&location](Pass& p) {
      switch (location.form) {
        case SignpostStoreLocation::Form::MachineJournal:
          return p.readJournal(JournalReader::Source::Machine, std::string());
        case SignpostStoreLocation::Form::JournalDirectory:
          return p.readJournal(JournalReader::Source::Directory, location.path);
        case SignpostStoreLocation::Form::JournalFile:
          return p.readJournal(JournalReader::Source::File, location.path);
        case SignpostStoreLocation::Form::JsonLines:
          break;
      }
      return p.readJsonFiles(location.files);
    });
    pass.finish();
  }
  // A stop request is used up by the processing it ended.
  const bool stopped = stopRequested_.exchange(false);

  LVLogDebug(
      "Read signpost store %@%@: %llu signpost entries in window, %llu outside, %llu other "
      "entries; delivered %llu intervals, %llu animation intervals, %llu events; dropped %llu "
      "duplicate begins, %llu unmatched ends, %llu non-positive intervals, %llu unclosed begins, "
      "%llu begins over the open-interval cap; "
      "passed over %llu non-object lines, %llu malformed entries",
      store ? *store : std::string("(system journal)"), stopped ? " (stopped)" : "",
      stats_.recordsInWindow, stats_.recordsOutsideWindow, stats_.otherEntries, stats_.intervals,
      stats_.animationIntervals, stats_.events, stats_.duplicateBegins, stats_.unmatchedEnds,
      stats_.nonPositiveIntervals, stats_.unclosedBegins, stats_.droppedOpenBegins,
      stats_.nonObjectLines,
      stats_.malformedRecords);

  if (error) {
    if (errorOut) *errorOut = std::move(error);
    return false;
  }
  return true;
}

void LogStoreExtractor::stopProcessing() { stopRequested_.store(true); }

uint64_t LogStoreExtractor::processedEventCount() const { return processed_.load(); }

ExtractorFactory LogStoreExtractorFactory() {
  return [] { return std::make_shared<LogStoreExtractor>(); };
}

}  // namespace lumvane

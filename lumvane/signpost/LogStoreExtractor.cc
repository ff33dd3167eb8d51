#include "lumvane/signpost/LogStoreExtractor.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "lumvane/filter/LVLog.h"
#include "lumvane/signpost/FormatArgumentMatcher.h"
#include "lumvane/signpost/LogStoreFile.h"
#include "lumvane/signpost/SignpostPairingTable.h"
#include "lumvane/signpost/SignpostRecordParser.h"

namespace lumvane {
namespace {

constexpr std::string_view kTelemetrySwitch = "enableTelemetry=YES";
constexpr std::string_view kAnimationSwitch = "isAnimation=YES";

bool EndsWith(std::string_view s, std::string_view suffix) {
  return s.size() >= suffix.size() && s.substr(s.size() - suffix.size()) == suffix;
}

std::optional<std::string> ProcessNameOf(const std::optional<std::string_view>& imagePath) {
  if (!imagePath) return std::nullopt;
  const size_t slash = imagePath->rfind('/');
  const std::string_view name =
      slash == std::string_view::npos ? *imagePath : imagePath->substr(slash + 1);
  if (name.empty()) return std::nullopt;
  return std::string(name);
}

std::optional<std::string> Copy(const std::optional<std::string_view>& s) {
  if (!s) return std::nullopt;
  return std::string(*s);
}

// The store's files: the path itself (standard input for "-"), or the
// matching regular files of a directory in name order. Whether a single path
// is a regular file is for the reader to find out on the descriptor it opens.
std::optional<Error> ListStore(const std::string& path, std::vector<std::string>* files) {
  if (path == LogStoreFile::kStandardInput) {
    files->push_back(path);
    return std::nullopt;
  }
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return Error::fromErrno("cannot open " + path, errno);
  if (!S_ISDIR(st.st_mode)) {
    files->push_back(path);
    return std::nullopt;
  }
  DIR* dir = ::opendir(path.c_str());
  if (!dir) return Error::fromErrno("cannot open " + path, errno);
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name = entry->d_name;
    if (!EndsWith(name, ".ndjson") && !EndsWith(name, ".json")) continue;
    struct stat fst;
    if (::fstatat(::dirfd(dir), entry->d_name, &fst, 0) == 0 && S_ISREG(fst.st_mode)) {
      names.emplace_back(name);
    }
  }
  const int readError = errno;
  ::closedir(dir);
  if (readError != 0) return Error::fromErrno("cannot read directory " + path, readError);
  std::sort(names.begin(), names.end());
  for (const auto& name : names) files->push_back(path + "/" + name);
  return std::nullopt;
}

}  // namespace

// The state of one processing: the parser, the argument matcher and the
// pairing tables, over the callbacks and statistics of the extractor.
class LogStoreExtractor::Pass {
 public:
  Pass(LogStoreExtractor& owner, Date start, Date end)
      : owner_(owner), stats_(owner.stats_), start_(start), end_(end) {}

  // Reads one file to its end or to a stop request.
  std::optional<Error> readFile(const std::string& path) {
    // The reader looks at the stop request itself too, so that a stop is
    // not held up by one endless record.
    LogStoreFile file(owner_.chunkBytes_ ? owner_.chunkBytes_ : LogStoreFile::kDefaultChunkBytes,
                      LogStoreFile::kDefaultMaxRecordBytes, &owner_.stopRequested_);
    if (std::optional<Error> e = file.open(path)) return e;
    ++stats_.files;
    std::string_view text;
    for (;;) {
      if (owner_.stopRequested_.load(std::memory_order_relaxed)) return std::nullopt;
      switch (file.next(&text)) {
        case LogStoreFile::Next::End:
        case LogStoreFile::Next::Stopped:
          return std::nullopt;
        case LogStoreFile::Next::Failed:
          return file.readError();
        case LogStoreFile::Next::Oversized:
          ++stats_.malformedRecords;
          continue;
        case LogStoreFile::Next::Record:
          handle(text);
          break;
      }
    }
  }

  void finish() {
    stats_.unclosedBegins = table_.openCount();
    table_.clear();
  }

 private:
  void handle(std::string_view text) {
    switch (parser_.parse(text, LogStoreFile::kPadding, start_, end_, &record_)) {
      case SignpostRecordParser::Kind::NotObject:
        ++stats_.nonObjectLines;
        return;
      case SignpostRecordParser::Kind::Trailer:
        ++stats_.trailers;
        return;
      case SignpostRecordParser::Kind::BadTimestamp:
        ++stats_.malformedRecords;
        return;
      case SignpostRecordParser::Kind::OutsideWindow:
        ++stats_.recordsOutsideWindow;
        return;
      case SignpostRecordParser::Kind::Other:
        countInWindow();
        return;
      case SignpostRecordParser::Kind::BadSignpost:
        countInWindow();
        ++stats_.malformedRecords;
        return;
      case SignpostRecordParser::Kind::Signpost:
        countInWindow();
        break;
    }
    switch (record_.type) {
      case SignpostRecord::Type::Event:
        emitEvent();
        break;
      case SignpostRecord::Type::Begin:
        begin();
        break;
      case SignpostRecord::Type::End:
        end();
        break;
    }
  }

  void countInWindow() {
    ++stats_.recordsInWindow;
    owner_.processed_.store(stats_.recordsInWindow, std::memory_order_relaxed);
  }

  // The record's own event object with its arguments.
  std::shared_ptr<const SignpostEvent> makeEvent(SignpostArguments* arguments) {
    if (record_.formatString) {
      matcher_.extract(*record_.formatString, record_.eventMessage.value_or(std::string_view()),
                       arguments);
    }
    SignpostObjectProperties p;
    p.subsystem = std::string(record_.subsystem);
    p.category = std::string(record_.category);
    p.name = Copy(record_.name);
    arguments->applyTo(&p);
    p.durationSeconds = 0.0f;
    p.telemetryEnabled = record_.message().find(kTelemetrySwitch) != std::string_view::npos;
    return std::make_shared<const SignpostEvent>(std::move(p), ProcessNameOf(record_.processImagePath),
                                                 Copy(record_.processImagePath));
  }

  void emitEvent() {
    SignpostArguments arguments;
    std::shared_ptr<const SignpostEvent> event = makeEvent(&arguments);
    table_.countFrame(record_);
    ++stats_.events;
    if (owner_.eventBlock_) owner_.eventBlock_(std::move(event));
  }

  void begin() {
    if (table_.contains(record_)) {
      ++stats_.duplicateBegins;
      return;
    }
    OpenSignpostInterval open;
    open.beginEvent = makeEvent(&open.arguments);
    open.beginTime = record_.timestamp;
    open.telemetryEnabled = open.beginEvent->telemetryEnabled();
    open.animation = record_.message().find(kAnimationSwitch) != std::string_view::npos;
    (void)table_.open(record_, std::move(open));
  }

  void end() {
    std::optional<OpenSignpostInterval> open = table_.close(record_);
    if (!open) {
      ++stats_.unmatchedEnds;
      return;
    }
    if (!(open->beginTime < record_.timestamp)) {
      ++stats_.nonPositiveIntervals;
      return;
    }
    SignpostArguments endArguments;
    std::shared_ptr<const SignpostEvent> endEvent = makeEvent(&endArguments);
    const SignpostArguments merged = open->arguments.mergedOver(endArguments);

    const SignpostEvent& b = *open->beginEvent;
    SignpostObjectProperties p;
    p.subsystem = b.subsystem();
    p.category = b.category();
    p.name = b.name();
    merged.applyTo(&p);
    const double seconds =
        static_cast<double>((record_.timestamp - open->beginTime).count()) / 1e6;
    p.durationSeconds = static_cast<float>(seconds);
    p.telemetryEnabled = open->telemetryEnabled || endEvent->telemetryEnabled();
    Dictionary attributes;
    for (const auto& [key, value] : merged.attributes) attributes.set(key, value);

    if (open->animation) {
      const uint64_t frames = open->framesBefore(record_.timestamp);
      const float frameRate =
          frames == 0 ? 0.0f : static_cast<float>(static_cast<double>(frames) / seconds);
      auto interval = std::make_shared<const SignpostAnimationInterval>(
          std::move(p), std::move(open->beginEvent), std::move(endEvent), std::move(attributes),
          frameRate);
      ++stats_.animationIntervals;
      if (owner_.animationBlock_) owner_.animationBlock_(std::move(interval));
    } else {
      auto interval = std::make_shared<const SignpostInterval>(
          std::move(p), std::move(open->beginEvent), std::move(endEvent), std::move(attributes));
      ++stats_.intervals;
      if (owner_.intervalBlock_) owner_.intervalBlock_(std::move(interval));
    }
  }

  LogStoreExtractor& owner_;
  LogStoreReadStatistics& stats_;
  const Date start_;
  const Date end_;
  SignpostRecordParser parser_;
  FormatArgumentMatcher matcher_;
  SignpostPairingTable table_;
  SignpostRecord record_;
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

std::string LogStoreExtractor::defaultStorePath() {
  const char* env = std::getenv(kStoreEnvironmentVariable);
  return env && *env ? std::string(env) : std::string(kDefaultStorePath);
}

bool LogStoreExtractor::processLogArchiveWithPath(const std::optional<std::string>& path,
                                                  Date startDate, Date endDate,
                                                  std::optional<Error>* errorOut) {
  stats_ = LogStoreReadStatistics();
  processed_.store(0);
  const std::string store = path ? *path : defaultStorePath();

  std::vector<std::string> files;
  std::optional<Error> error = ListStore(store, &files);
  if (!error) {
    Pass pass(*this, startDate, endDate);
    for (const std::string& file : files) {
      if (stopRequested_.load(std::memory_order_relaxed)) break;
      std::optional<Error> fileError = pass.readFile(file);
      if (fileError && !error) error = std::move(fileError);
    }
    pass.finish();
  }
  // A stop request is used up by the processing it ended.
  const bool stopped = stopRequested_.exchange(false);

  LVLogDebug(
      "Read signpost store %@%@: %llu records in window, %llu outside; delivered %llu intervals, "
      "%llu animation intervals, %llu events; dropped %llu duplicate begins, %llu unmatched ends, "
      "%llu non-positive intervals, %llu unclosed begins; passed over %llu non-object lines, "
      "%llu malformed records, %llu trailers",
      store, stopped ? " (stopped)" : "", stats_.recordsInWindow, stats_.recordsOutsideWindow,
      stats_.intervals, stats_.animationIntervals, stats_.events, stats_.duplicateBegins,
      stats_.unmatchedEnds, stats_.nonPositiveIntervals, stats_.unclosedBegins,
      stats_.nonObjectLines, stats_.malformedRecords, stats_.trailers);

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

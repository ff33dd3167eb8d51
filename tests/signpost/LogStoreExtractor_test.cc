#include "lumvane/signpost/LogStoreExtractor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <thread>
#include <vector>

#include "lumvane/signpost/LogStoreTimestamp.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using ::testing::HasSubstr;
using testing::TempDir;
using testing::WriteFile;

const Date kBase = *ParseLogStoreTimestamp("2024-05-01 10:00:00.000000+0000");
const Date kFrom = kBase - std::chrono::hours(1), kTo = kBase + std::chrono::hours(1);

// One signpost record; the fields a test does not set get ordinary values.
struct R {
  double at = 0;  // seconds after kBase
  std::string type = "event", id = "1", name = "Load", scope = "process", sub = "com.test",
              cat = "ui", fmt = "", msg = "", path = "/usr/bin/tester";
  int pid = 100, tid = 1000;
  R& t(double s) { return at = s, *this; }
  R& kind(std::string k) { return type = std::move(k), *this; }
  R& sid(std::string i) { return id = std::move(i), *this; }
  R& in(std::string s, int p, int th) { return scope = std::move(s), pid = p, tid = th, *this; }
  R& text(std::string f, std::string m) { return fmt = std::move(f), msg = std::move(m), *this; }
  std::string json() const {
    const Date d = kBase + std::chrono::microseconds(static_cast<int64_t>(at * 1e6));
    return "{\"timestamp\":\"" + FormatLogStoreTimestamp(d, 120) +
           "\",\"eventType\":\"signpostEvent\",\"signpostType\":\"" + type +
           "\",\"signpostID\":" + id + ",\"signpostName\":\"" + name + "\",\"signpostScope\":\"" +
           scope + "\",\"subsystem\":\"" + sub + "\",\"category\":\"" + cat +
           "\",\"processID\":" + std::to_string(pid) + ",\"threadID\":" + std::to_string(tid) +
           ",\"processImagePath\":\"" + path + "\",\"formatString\":\"" + fmt +
           "\",\"eventMessage\":\"" + msg + "\"}";
  }
};

std::string Lines(const std::vector<R>& records) {
  std::string s;
  for (const R& r : records) s += r.json() + "\n";
  return s;
}

template <class T>
std::function<bool(T)> Keep(std::vector<T>* out) {
  return [out](T o) { return out->push_back(std::move(o)), true; };
}

// Runs an extractor over a store in its own temporary directory and keeps
// what it delivered.
struct StoreRun {
  TempDir dir;
  std::vector<std::shared_ptr<const SignpostInterval>> intervals;
  std::vector<std::shared_ptr<const SignpostAnimationInterval>> animations;
  std::vector<std::shared_ptr<const SignpostEvent>> events;
  LogStoreExtractor extractor;
  bool ok = false;
  std::optional<Error> error;

  // Given `contents`, writes them as a one-file store and reads it at once.
  explicit StoreRun(const std::optional<std::string>& contents = std::nullopt,
                    size_t chunkBytes = 0, Date start = kFrom, Date end = kTo) {
    extractor.setChunkBytes(chunkBytes);
    extractor.setIntervalCompletionProcessingBlock(Keep(&intervals));
    extractor.setAnimationIntervalCompletionProcessingBlock(Keep(&animations));
    extractor.setEmitEventProcessingBlock(Keep(&events));
    if (!contents) return;
    WriteFile(dir.file("s.ndjson"), *contents);
    read(dir.file("s.ndjson"), start, end);
  }
  StoreRun& read(const std::optional<std::string>& path, Date start = kFrom, Date end = kTo) {
    ok = extractor.processLogArchiveWithPath(path, start, end, &error);
    return *this;
  }
  const LogStoreReadStatistics& stats() const { return extractor.lastReadStatistics(); }
};

TEST(LogStoreExtractorTest, PairsWithinTheTableOfEachScope) {
  StoreRun run(Lines({R().t(1).kind("begin").sid("7").in("process", 1, 10),
                      R().t(2).kind("end").sid("7").in("process", 2, 10),   // other process
                      R().t(3).kind("end").sid("7").in("process", 1, 11),   // same process
                      R().t(1).kind("begin").sid("8").in("thread", 1, 10),
                      R().t(2).kind("end").sid("8").in("thread", 1, 11),    // other thread
                      R().t(4).kind("end").sid("8").in("thread", 2, 10),    // same thread
                      R().t(1).kind("begin").sid("9").in("system", 1, 10),
                      R().t(6).kind("end").sid("9").in("system", 3, 30)}));  // anywhere
  ASSERT_TRUE(run.ok);
  ASSERT_EQ(run.intervals.size(), 3u);
  EXPECT_FLOAT_EQ(run.intervals[0]->durationSeconds(), 2.0f);
  EXPECT_FLOAT_EQ(run.intervals[1]->durationSeconds(), 3.0f);
  EXPECT_FLOAT_EQ(run.intervals[2]->durationSeconds(), 5.0f);
  EXPECT_EQ(run.stats().unmatchedEnds, 2u);
  EXPECT_EQ(*run.intervals[0]->beginEvent()->processName(), "tester");
  EXPECT_EQ(*run.intervals[0]->endEvent()->processImagePath(), "/usr/bin/tester");
}

TEST(LogStoreExtractorTest, KeepsTheFirstBeginAndNeedsBeginStrictlyBeforeEnd) {
  testing::ScopedLogCapture capture;
  StoreRun run(Lines({R().t(1).kind("begin"), R().t(2).kind("begin"), R().t(4).kind("end"),
                      R().t(4).kind("end"), R().t(5).kind("begin"), R().t(5).kind("end"),
                      R().t(7).kind("begin").sid("2")}));
  ASSERT_EQ(run.intervals.size(), 1u);
  EXPECT_FLOAT_EQ(run.intervals[0]->durationSeconds(), 3.0f);
  // The line is written from the statistics, so it checks both.
  EXPECT_THAT(capture.log().messages(),
              ::testing::ElementsAre(HasSubstr("1 duplicate begins, 1 unmatched ends, "
                                               "1 non-positive intervals, 1 unclosed begins")));
}

TEST(LogStoreExtractorTest, AnimationCountsFramesStrictlyInsideAndEventsStillArrive) {
  StoreRun run(Lines({R().t(1).kind("begin").text("", "isAnimation=YES"), R().t(1),  // at begin
                      R().t(1.5), R().t(2), R().t(2).sid("5"), R().t(2.5),
                      R().t(3),  // at the end: not inside
                      R().t(3).kind("end"),
                      R().t(4).kind("begin").text("isAnimation=YES", ""),  // via the format
                      R().t(4.5).kind("end")}));
  EXPECT_TRUE(run.intervals.empty());
  ASSERT_EQ(run.animations.size(), 2u);
  EXPECT_FLOAT_EQ(run.animations[0]->frameRate(), 1.5f);  // 3 frames in 2 s
  EXPECT_FLOAT_EQ(run.animations[1]->frameRate(), 0.0f);
  EXPECT_EQ(run.events.size(), 6u);
}

TEST(LogStoreExtractorTest, TelemetrySwitchInMessageFormatBeginOrEnd) {
  StoreRun run(Lines({R().t(1).text("x", "a enableTelemetry=YES b"),
                      R().t(1).text("enableTelemetry=YES", ""),
                      R().t(1).text("enableTelemetry=YES", "message without it"),
                      R().t(2).kind("begin").sid("1"),
                      R().t(3).kind("end").sid("1").text("", "enableTelemetry=YES"),
                      R().t(2).kind("begin").sid("2").text("enableTelemetry=YES", ""),
                      R().t(3).kind("end").sid("2"), R().t(2).kind("begin").sid("3"),
                      R().t(3).kind("end").sid("3")}));
  ASSERT_EQ(run.intervals.size(), 3u);
  std::vector<bool> enabled;  // events, then intervals
  for (const auto& e : run.events) enabled.push_back(e->telemetryEnabled());
  for (const auto& i : run.intervals) enabled.push_back(i->telemetryEnabled());
  EXPECT_EQ(enabled, (std::vector<bool>{true, true, false, true, true, false}));
  EXPECT_FALSE(run.intervals[0]->beginEvent()->telemetryEnabled());
}

TEST(LogStoreExtractorTest, IntervalArgumentsPreferTheBeginSlotBySlot) {
  const std::string fmtB =
      "Path=%{public,signpost.telemetry:string1}s Id=%{signpost.description:attribute}s";
  const std::string fmtE =
      "Path=%{public,signpost.telemetry:string1}s n=%{signpost.telemetry:number1}d "
      "Id=%{signpost.description:attribute}s Mode=%{signpost.description:attribute}s";
  StoreRun run(Lines({R().t(1).kind("begin").text(fmtB, "Path=Root Id=com.begin"),
                      R().t(2).kind("end").text(fmtE, "Path=Ext n=-3 Id=com.end Mode=fast")}));
  ASSERT_EQ(run.intervals.size(), 1u);
  const SignpostInterval& i = *run.intervals[0];
  EXPECT_EQ(*i.string1Name(), "Path");
  EXPECT_EQ(*i.string1Value(), "Root");
  EXPECT_EQ(*i.number1Name(), "n");
  EXPECT_EQ(*i.number1Value(), Number::fromInt64(-3));
  EXPECT_FALSE(i.string2Name());
  EXPECT_EQ(i.attributes(), (Dictionary{{"Id", "com.begin"}, {"Mode", "fast"}}));
  EXPECT_EQ(*i.endEvent()->string1Value(), "Ext");
}

TEST(LogStoreExtractorTest, IdentifiersAbove2To63KeepEveryBit) {
  std::string alt = R().t(4).kind("begin").sid("9223372036854775809").json();
  alt.replace(alt.find("signpostID"), 10, "signpostIdentifier");
  StoreRun run(Lines({R().t(1).kind("begin").sid("18446744073709551615"),
                      R().t(2).kind("end").sid("18446744073709551614"),  // equal as doubles
                      R().t(3).kind("end").sid("18446744073709551615")}) +
               alt + "\n" + R().t(5).kind("end").sid("9223372036854775809").json());
  ASSERT_EQ(run.intervals.size(), 2u);
  EXPECT_FLOAT_EQ(run.intervals[0]->durationSeconds(), 2.0f);
  EXPECT_EQ(run.stats().unmatchedEnds, 1u);
}

TEST(LogStoreExtractorTest, ReadsJsonArrayFilesAcrossSmallChunks) {
  const std::string tricky = R().t(2).text("", "braces } ] { and \\\"quotes\\\", commas").json();
  const std::string store = "\n  [\n" + R().t(1).kind("begin").json() + ",\n  " + tricky +
                            " , 42, \"text\",\n" + R().t(3).kind("end").json() + "\n]\n";
  for (size_t chunk : {size_t{0}, size_t{16}, size_t{100}}) {
    StoreRun run(store, chunk);
    ASSERT_TRUE(run.ok);
    EXPECT_EQ(run.intervals.size(), 1u) << chunk;
    EXPECT_EQ(run.events.size(), 1u) << chunk;
    EXPECT_EQ(run.stats().nonObjectLines, 2u) << chunk;
  }
}

TEST(LogStoreExtractorTest, PassesOverTextBrokenAndIncompleteRecordsAndTheTrailer) {
  std::string noSubsystem = R().t(2).json();
  noSubsystem.replace(noSubsystem.find("\"subsystem\""), 11, "\"subsys\"");
  const std::string store =
      "Signpost export of the last day\r\n\nfields: timestamp, type\n" + R().t(1).json() +
      "\n{\"timestamp\": \"2024-05-01 12:00:01\n" + noSubsystem + "\n" +
      "{\"timestamp\":\"yesterday\",\"eventType\":\"signpostEvent\"}\n" +
      "{\"timestamp\":\"2024-05-01 12:00:03.5+0200\",\"eventType\":\"logEvent\"}\n" +
      R().t(4).kind("begin").in("process", 1, 1).json() + "\n" +
      R().t(5).kind("end").in("process", 1, 1).json() + "\n{\"count\":9,\"finished\":1}\n";
  for (size_t chunk : {size_t{0}, size_t{32}}) {
    StoreRun run(store, chunk);
    ASSERT_TRUE(run.ok);
    EXPECT_EQ(run.events.size(), 1u);
    EXPECT_EQ(run.intervals.size(), 1u);
    const LogStoreReadStatistics& s = run.stats();
    EXPECT_EQ(s.nonObjectLines, 3u);    // two text lines, one broken object
    EXPECT_EQ(s.malformedRecords, 2u);  // no subsystem, unreadable timestamp
    EXPECT_EQ(s.trailers, 1u);
    EXPECT_EQ(run.extractor.processedEventCount(), 5u);  // incl. the log event
  }
}

TEST(LogStoreExtractorTest, WindowEdgesAreInclusive) {
  StoreRun run(Lines({R().t(-0.000001), R().t(0), R().t(10), R().t(10.000001)}), 0, kBase,
               kBase + std::chrono::seconds(10));
  EXPECT_EQ(run.events.size(), 2u);
  EXPECT_EQ(run.extractor.processedEventCount(), 2u);
  EXPECT_EQ(run.stats().recordsOutsideWindow, 2u);
}

TEST(LogStoreExtractorTest, DirectoryFromTheEnvironmentInNameOrderAndMissingStore) {
  StoreRun run;
  WriteFile(run.dir.file("b.json"), R().t(2).kind("end").json());
  WriteFile(run.dir.file("a.ndjson"), R().t(1).kind("begin").json());
  WriteFile(run.dir.file("c.txt"), R().t(3).json());
  std::filesystem::create_directory(run.dir.file("d.json"));
  {
    testing::ScopedEnv store(LogStoreExtractor::kStoreEnvironmentVariable, run.dir.path().c_str());
    ASSERT_TRUE(run.read(std::nullopt).ok);
  }
  EXPECT_EQ(run.intervals.size(), 1u);
  EXPECT_TRUE(run.events.empty());
  EXPECT_EQ(run.stats().files, 2u);
  EXPECT_FALSE(run.read(run.dir.file("absent")).ok);
  ASSERT_TRUE(run.error);
  EXPECT_THAT(run.error->localizedDescription(),
              ::testing::AllOf(HasSubstr(run.dir.file("absent")),
                               HasSubstr("No such file or directory")));
  testing::ScopedEnv empty(LogStoreExtractor::kStoreEnvironmentVariable, "");
  EXPECT_EQ(LogStoreExtractor::defaultStorePath(), "/var/log/lumvane/signposts");
}

TEST(LogStoreExtractorTest, StopFromAnotherThreadEndsAtTheNextRecord) {
  std::vector<R> records;
  for (int i = 0; i < 100; ++i) records.push_back(R().t(i * 0.01));
  TempDir dir;
  WriteFile(dir.file("s.ndjson"), Lines(records));
  StoreRun run;
  run.extractor.setEmitEventProcessingBlock([&](auto e) {
    run.events.push_back(e);
    if (run.events.size() == 10) {
      std::thread([&] {
        run.extractor.stopProcessing();
        run.extractor.stopProcessing();
      }).join();
    }
    return true;
  });
  EXPECT_TRUE(run.read(dir.file("s.ndjson")).ok);
  EXPECT_EQ(run.events.size(), 10u);

  // A stop before processing ends the next one at once, and only that one.
  StoreRun early;
  early.extractor.stopProcessing();
  EXPECT_TRUE(early.read(dir.file("s.ndjson")).ok);
  EXPECT_TRUE(early.events.empty());
  early.read(dir.file("s.ndjson"));
  EXPECT_EQ(early.events.size(), 100u);
}


// `record` grown to exactly `bytes` bytes by an unknown field.
std::string Padded(const std::string& record, size_t bytes) {
  const std::string field = "\"pad\":\"\",";
  return "{" + field.substr(0, 7) + std::string(bytes - record.size() - field.size(), 'x') +
         field.substr(7) + record.substr(1);
}

TEST(LogStoreExtractorTest, RecordsOverOneMebibyteAreCountedAsMalformedAndSkipped) {
  const std::string atLimit = Padded(R().t(1).json(), 1048576);
  const std::string overLimit = Padded(R().t(2).json(), 1048577);
  ASSERT_EQ(atLimit.size(), 1048576u);
  ASSERT_EQ(overLimit.size(), 1048577u);
  const std::string after = R().t(3).json();
  struct Case {
    const char* framing;
    std::string store;
  } cases[] = {
      {"lines", atLimit + "\n" + overLimit + "\n" + after + "\n"},
      {"array", "[" + atLimit + ",\n" + overLimit + ",\n" + after + "]"},
  };
  for (const Case& c : cases) {
    for (size_t chunk : {size_t{0}, size_t{4096}}) {
      SCOPED_TRACE(std::string(c.framing) + ", chunk " + std::to_string(chunk));
      StoreRun run(c.store, chunk);
      ASSERT_TRUE(run.ok);
      ASSERT_EQ(run.events.size(), 2u);
      EXPECT_EQ(run.events[1]->durationSeconds(), 0.0f);
      EXPECT_EQ(run.stats().malformedRecords, 1u);
      EXPECT_EQ(run.stats().nonObjectLines, 0u);
      EXPECT_EQ(run.extractor.processedEventCount(), 2u);
    }
  }
}

// A lone surrogate escape is no character: the record is malformed and
// counted, not delivered with the field left out. A proper pair decodes.
TEST(LogStoreExtractorTest, LoneSurrogateEscapeMakesTheRecordMalformed) {
  struct Case {
    const char* field;
    const char* from;
    const char* to;
  } cases[] = {
      {"name", "\"signpostName\":\"Load\"", "\"signpostName\":\"Lo\\ud800ad\""},
      {"message", "\"eventMessage\":\"\"", "\"eventMessage\":\"x \\udc00\""},
      {"format", "\"formatString\":\"\"", "\"formatString\":\"\\ud83d\""},
      {"image path", "\"processImagePath\":\"", "\"processImagePath\":\"\\udfff"},
      {"scope", "\"signpostScope\":\"process\"", "\"signpostScope\":\"\\ud800process\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.field);
    std::string bad = R().t(1).json();
    ASSERT_NE(bad.find(c.from), std::string::npos);
    bad.replace(bad.find(c.from), std::string(c.from).size(), c.to);
    StoreRun run(bad + "\n");
    EXPECT_TRUE(run.events.empty());
    EXPECT_EQ(run.stats().malformedRecords, 1u);
  }
  std::string pair = R().t(1).json();
  pair.replace(pair.find("\"Load\""), 6, "\"\\ud83d\\ude00\"");
  StoreRun run(pair + "\n");
  ASSERT_EQ(run.events.size(), 1u);
  EXPECT_EQ(run.events[0]->name(), "\xF0\x9F\x98\x80");
}

// Runs `read` on a thread of its own. A read that has not returned when the
// object goes is left behind (it holds only what it was given), so that the
// test fails instead of hanging.
class Background final {
 public:
  explicit Background(std::function<void()> read) {
    auto done = std::make_shared<std::promise<void>>();
    finished_ = done->get_future();
    thread_ = std::thread([done, read = std::move(read)]() mutable {
      read();
      read = nullptr;  // what it holds goes before the test hears of the end
      done->set_value();
    });
  }
  ~Background() {
    if (returnedWithin(std::chrono::milliseconds(0))) {
      thread_.join();
    } else {
      thread_.detach();
    }
  }
  bool returnedWithin(std::chrono::milliseconds limit) {
    return finished_.wait_for(limit) == std::future_status::ready;
  }

 private:
  std::future<void> finished_;
  std::thread thread_;
};

TEST(LogStoreExtractorTest, RefusesSpecialFilesAtOnceNamingThePath) {
  TempDir dir;
  const std::string fifo = dir.file("fifo.ndjson");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {fifo, std::string("/dev/zero"), std::string("/dev/urandom")}) {
    SCOPED_TRACE(path);
    auto run = std::make_shared<StoreRun>();
    Background reading([run, path] { run->read(path); });
    if (!reading.returnedWithin(std::chrono::seconds(3))) {
      run->extractor.stopProcessing();
      const int writer = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);  // frees a blocked open
      ADD_FAILURE() << "reading " << path << " did not return";
      ::close(writer);
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      continue;
    }
    EXPECT_FALSE(run->ok);
    ASSERT_TRUE(run->error);
    EXPECT_EQ(run->error->localizedDescription(), "cannot read " + path + ": not a regular file");
  }
  // In a directory store, such a file is passed over like any non-regular entry.
  WriteFile(dir.file("a.ndjson"), R().t(1).json());
  StoreRun run;
  ASSERT_TRUE(run.read(dir.path()).ok);
  EXPECT_EQ(run.events.size(), 1u);
}

// Standard input as the store: records are read from it, and a stop request
// ends the read within a second, also inside a line that never ends (an
// endless device) or that its writer leaves unfinished (a pipe).
TEST(LogStoreExtractorTest, ReadsStandardInputAndStopsInsideAnEndlessLine) {
  struct Input {
    const char* what;
    std::function<int()> open;  // the descriptor to read as standard input
    bool stop;
    size_t events;
  };
  int writer = -1;
  auto pipeWith = [&writer](const std::string& text, bool close) {
    int fds[2];
    if (::pipe(fds) != 0) return -1;
    if (::write(fds[1], text.data(), text.size()) != static_cast<ssize_t>(text.size())) return -1;
    if (close) {
      ::close(fds[1]);
    } else {
      writer = fds[1];
    }
    return fds[0];
  };
  const Input inputs[] = {
      {"a pipe that ends", [&] { return pipeWith(Lines({R().t(1), R().t(2)}), true); }, false, 2},
      {"a pipe left mid-line", [&] { return pipeWith(Lines({R().t(1)}) + "{\"time", false); },
       true, 1},
      {"/dev/zero", [] { return ::open("/dev/zero", O_RDONLY); }, true, 0},
  };
  const int savedStdin = ::dup(STDIN_FILENO);
  for (const Input& input : inputs) {
    SCOPED_TRACE(input.what);
    const int fd = input.open();
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::dup2(fd, STDIN_FILENO), STDIN_FILENO);
    ::close(fd);
    auto run = std::make_shared<StoreRun>();
    Background reading([run] { run->read("-"); });
    std::chrono::milliseconds limit(3000);
    if (input.stop) {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));  // well inside the line
      run->extractor.stopProcessing();
      limit = std::chrono::milliseconds(1000);
    }
    const bool returned = reading.returnedWithin(limit);
    // The reader took its own copy of standard input when it began.
    ::dup2(savedStdin, STDIN_FILENO);
    if (writer >= 0) ::close(std::exchange(writer, -1));
    ASSERT_TRUE(returned) << "still reading " << limit.count() << " ms later";
    EXPECT_TRUE(run->ok);
    EXPECT_EQ(run->events.size(), input.events);
  }
  ::close(savedStdin);
}

}  // namespace
}  // namespace lumvane

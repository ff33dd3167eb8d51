// The extractor over stores of JSON lines: pairing, clocks, values, what is
// counted, the open-interval cap, store forms, special files, standard input.
#include "lumvane/signpost/LogStoreExtractor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/TestSupport.h"
#include "tests/support/signpost/CollectedObjects.h"

namespace lumvane {
namespace {

using ::testing::HasSubstr;
using testing::TempDir;
using testing::WriteFile;

constexpr uint64_t kBaseUsec = 1714557600000000;  // 2024-05-01 10:00:00 UTC
const Date kBase{std::chrono::microseconds(kBaseUsec)};
const Date kFrom = kBase - std::chrono::hours(1), kTo = kBase + std::chrono::hours(1);

// One entry as journalctl writes it in JSON, with ordinary values for the fields a test does not set.
struct E {
  std::vector<std::pair<std::string, std::string>> fields;  // key, JSON value
  E() {
    set("MESSAGE_ID", "0c7e0296aa5f4fc7af2af7a970a22d31").set("_BOOT_ID", "5d1c0de5b0075a3e");
    set("_PID", "100").set("_EXE", "/usr/bin/tester").set("_COMM", "tester").set("SIGNPOST_TID", "1000");
    set("SIGNPOST_TYPE", "event").set("SIGNPOST_ID", "1").set("SIGNPOST_SCOPE", "process");
    set("SIGNPOST_SUBSYSTEM", "com.test").set("SIGNPOST_CATEGORY", "ui").set("SIGNPOST_NAME", "Load");
    t(0);
  }
  E& raw(const std::string& k, const std::string& json) {
    for (auto& f : fields) {
      if (f.first == k) return f.second = json, *this;
    }
    fields.emplace_back(k, json);
    return *this;
  }
  E& set(const std::string& k, const std::string& v) { return raw(k, "\"" + v + "\""); }
  E& drop(const std::string& k) {
    fields.erase(std::remove_if(fields.begin(), fields.end(), [&](auto& f) { return f.first == k; }),
                 fields.end());
    return *this;
  }
  // Seconds after kBase on the wall clock and on the monotonic clock.
  E& t(double s) { return set("__REALTIME_TIMESTAMP", std::to_string(kBaseUsec + int64_t(s * 1e6))).mono(s); }
  E& mono(double s) { return set("__MONOTONIC_TIMESTAMP", std::to_string(5000000000 + int64_t(s * 1e6))); }
  E& kind(const std::string& k) { return set("SIGNPOST_TYPE", k); }
  E& sid(const std::string& i) { return set("SIGNPOST_ID", i); }
  E& in(const std::string& scope, int pid, int tid) {
    set("SIGNPOST_SCOPE", scope).set("_PID", std::to_string(pid));
    return set("SIGNPOST_TID", std::to_string(tid));
  }
  std::string json() const {
    std::string s = "{";
    for (const auto& [k, v] : fields) s += (s.size() > 1 ? "," : "") + ("\"" + k + "\":" + v);
    return s + "}";
  }
};

std::string Lines(const std::vector<E>& entries) {
  std::string s;
  for (const E& e : entries) s += e.json() + "\n";
  return s;
}

// An extractor over a store in its own temporary directory, keeping what it delivered.
struct StoreRun : testing::CollectedObjects {
  TempDir dir;
  LogStoreExtractor extractor;
  bool ok = false;
  std::optional<Error> error;

  // Given `contents`, writes them as a one-file store and reads it at once.
  explicit StoreRun(const std::optional<std::string>& contents = std::nullopt, size_t chunkBytes = 0,
                    Date start = kFrom, Date end = kTo) {
    extractor.setChunkBytes(chunkBytes);
    attach(extractor);
    if (!contents) return;
    WriteFile(dir.file("s.json"), *contents);
    read(dir.file("s.json"), start, end);
  }
  StoreRun& read(const std::optional<std::string>& path, Date start = kFrom, Date end = kTo) {
    ok = extractor.processLogArchiveWithPath(path, start, end, &error);
    return *this;
  }
  const LogStoreReadStatistics& stats() const { return extractor.lastReadStatistics(); }
  std::vector<float> durations() const {
    std::vector<float> d;
    for (const auto& i : intervals) d.push_back(i->durationSeconds());
    return d;
  }
};

TEST(LogStoreExtractorTest, PairsWithinTheTableOfEachScopeAndBootTimedByTheBestClock) {
  testing::ScopedLogCapture capture;
  StoreRun run(Lines({
      E().t(1).kind("begin").sid("7").in("process", 1, 10),
      E().t(2).kind("end").sid("7").in("process", 2, 10),   // other process
      E().t(3).kind("end").sid("7").in("process", 1, 11),   // same process: 2 s
      E().t(1).kind("begin").sid("8").in("thread", 1, 10),
      E().t(2).kind("end").sid("8").in("thread", 1, 11),    // other thread
      E().t(4).kind("end").sid("8").in("thread", 1, 10),    // same thread: 3 s
      E().t(1).kind("begin").sid("9").in("system", 1, 10),
      E().t(2).kind("end").sid("9").in("system", 3, 30).set("_BOOT_ID", "0002"),  // other boot
      E().t(6).kind("end").sid("9").in("system", 3, 30),    // any process: 5 s
      E().t(1).kind("begin").sid("4").set("SIGNPOST_NAME", "Other"),
      E().t(2).kind("end").sid("4"),                        // other name
      E().t(1).kind("begin").sid("5"), E().t(2).kind("begin").sid("5"),  // the first is kept
      E().t(8).kind("end").sid("5"), E().t(8).kind("end").sid("5"),      // 7 s, then unmatched
      E().t(9).kind("begin").sid("6"), E().t(9).kind("end").sid("6"),    // not strictly after
      E().t(1).kind("begin").sid("18446744073709551615"),
      E().t(2).kind("end").sid("18446744073709551614"),     // equal to it as doubles
      E().t(3).kind("end").sid("18446744073709551615"),     // 2 s
      E().t(4).kind("begin").sid("9223372036854775809"), E().t(5).kind("end").sid("9223372036854775809"),
      // 100 s by the wall clock; CLOCK_BOOTTIME counts where both sides carry it, else the monotonic.
      E().t(10).kind("begin").sid("11").set("SIGNPOST_BOOTTIME_NSEC", "1000000000"),
      E().t(110).mono(17).kind("end").sid("11").set("SIGNPOST_BOOTTIME_NSEC", "3500000000"),
      E().t(10).kind("begin").sid("12").set("SIGNPOST_BOOTTIME_NSEC", "1000000000"),
      E().t(110).mono(17).kind("end").sid("12"),
      E().t(10).kind("begin").sid("13"),
      E().t(110).mono(10.25).kind("end").sid("13").set("SIGNPOST_BOOTTIME_NSEC", "9")}));
  ASSERT_TRUE(run.ok);
  EXPECT_EQ(run.durations(), (std::vector<float>{2, 3, 5, 7, 2, 1, 2.5, 7, 0.25}));
  // The line is written from the statistics, so it checks both.
  EXPECT_THAT(capture.log().messages(),
              ::testing::ElementsAre(HasSubstr("1 duplicate begins, 6 unmatched ends, "
                                               "1 non-positive intervals, 1 unclosed begins")));
}

TEST(LogStoreExtractorTest, AnimationCountsFramesStrictlyInsideAndEventsStillArrive) {
  StoreRun run(Lines({E().t(1).kind("begin").set("SIGNPOST_ANIMATION", "1"), E().t(1),  // at begin
                      E().t(1.5), E().t(2), E().t(2).sid("5"), E().t(2.5),
                      E().t(2.5).drop("MESSAGE_ID"),  // another program's: no frame
                      E().t(3),                       // at the end: not inside
                      E().t(3).kind("end"),
                      E().t(4).kind("begin").set("SIGNPOST_ANIMATION", "1"),
                      E().t(4.5).kind("end").set("SIGNPOST_ANIMATION", "1"),
                      E().t(5).kind("begin").set("SIGNPOST_ANIMATION", "yes"), E().t(6).kind("end")}));
  ASSERT_EQ(run.intervals.size(), 1u);  // only "1" opens an animation
  ASSERT_EQ(run.animations.size(), 2u);
  EXPECT_FLOAT_EQ(run.animations[0]->frameRate(), 1.5f);  // 3 frames in 2 s
  EXPECT_FLOAT_EQ(run.animations[1]->frameRate(), 0.0f);
  EXPECT_EQ(run.events.size(), 6u);
}

TEST(LogStoreExtractorTest, IntervalSlotsPreferTheBeginAttributesAndTelemetryComeFromBoth) {
  E begin = E().t(1).kind("begin").set("SIGNPOST_STRING1_NAME", "Path")
                .set("SIGNPOST_STRING1_VALUE", "Root").set("SIGNPOST_NUMBER1_NAME", "n")
                .raw("SIGNPOST_ATTRIBUTE", R"(["Id=com.begin",[69,113,61,97,61,98],"Twice=1","Twice=2"])");
  E end = E().t(2).kind("end").set("SIGNPOST_STRING1_NAME", "Path").set("SIGNPOST_TELEMETRY", "1")
              .set("SIGNPOST_STRING1_VALUE", "Ext").set("SIGNPOST_NUMBER1_NAME", "n")
              .set("SIGNPOST_NUMBER1_VALUE", "-3").set("SIGNPOST_STRING2_NAME", "Half")
              .raw("SIGNPOST_ATTRIBUTE", R"(["Id=com.end","Mode=fast","NoEquals"])")
              .set("_PID", "99").set("OBJECT_PID", "100").set("OBJECT_EXE", "/usr/bin/script");
  StoreRun run(Lines({begin, end, E().t(3).set("SIGNPOST_TELEMETRY", "1").set("OBJECT_PID", "7"),
                      E().t(3).set("SIGNPOST_TELEMETRY", "true"),
                      E().t(4).kind("begin").sid("2").set("SIGNPOST_TELEMETRY", "1"),
                      E().t(5).kind("end").sid("2"), E().t(4).kind("begin").sid("3"),
                      E().t(5).kind("end").sid("3").set("SIGNPOST_TELEMETRY", "0")}));
  ASSERT_EQ(run.intervals.size(), 3u);
  const SignpostInterval& i = *run.intervals[0];
  EXPECT_EQ(*i.string1Value(), "Root");
  EXPECT_EQ(*i.number1Value(), Number::fromInt64(-3));  // the begin has a name but no value
  EXPECT_FALSE(i.string2Name());                          // a name without a value fills nothing
  // "Eq=a=b" came as byte numbers; "Twice" has no winner and "NoEquals" no value.
  EXPECT_EQ(i.attributes(), (Dictionary{{"Id", "com.begin"}, {"Eq", "a=b"}, {"Mode", "fast"}}))
      << Value(i.attributes()).description();
  EXPECT_EQ(*i.endEvent()->string1Value(), "Ext");
  EXPECT_EQ(*i.beginEvent()->processName(), "tester");
  EXPECT_EQ(*i.endEvent()->processImagePath(), "/usr/bin/script");
  EXPECT_FALSE(i.endEvent()->processName());  // OBJECT_COMM not given: no fallback to _COMM
  EXPECT_FALSE(run.events[0]->processImagePath() || run.events[0]->processName());  // nor to _EXE
  std::vector<bool> telemetry;  // events, then intervals and the first one's begin
  for (const auto& e : run.events) telemetry.push_back(e->telemetryEnabled());
  for (const auto& x : run.intervals) telemetry.push_back(x->telemetryEnabled());
  telemetry.push_back(i.beginEvent()->telemetryEnabled());
  EXPECT_EQ(telemetry, (std::vector<bool>{true, false, true, true, false, false}));
}

TEST(LogStoreExtractorTest, NumberArgumentsReadAsIntegerElseJsonFloatElseEmpty) {
  const std::vector<std::pair<std::string, std::optional<Number>>> cases = {
      {"42", Number::fromInt64(42)}, {"+7", Number::fromInt64(7)},
      {"-9223372036854775808", Number::fromInt64(INT64_MIN)},
      {"9223372036854775808", Number::fromUInt64(9223372036854775808u)},
      {"18446744073709551615", Number::fromUInt64(UINT64_MAX)},
      {"18446744073709551616", Number::fromDouble(18446744073709551616.0)},
      {"-9223372036854775809", Number::fromDouble(-9223372036854775809.0)},
      {"0.5", Number::fromDouble(0.5)}, {"-1.25e2", Number::fromDouble(-125.0)},
      {"+18446744073709551615", std::nullopt},  // a sign asks for signed 64 bits
      {"+1.5", std::nullopt}, {"1.", std::nullopt}, {".5", std::nullopt},
      {"01.5", std::nullopt}, {"1e400", std::nullopt}, {"nan", std::nullopt},
      {"inf", std::nullopt}, {"0x10", std::nullopt}, {"1 ", std::nullopt}, {"", std::nullopt},
      {"--1", std::nullopt}};
  std::vector<E> store;
  for (const auto& c : cases) {
    store.push_back(E().t(1).set("SIGNPOST_NUMBER2_NAME", "n").set("SIGNPOST_NUMBER2_VALUE", c.first));
  }
  StoreRun run(Lines(store));
  ASSERT_EQ(run.events.size(), cases.size());
  for (size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(run.events[i]->number2Value(), cases[i].second) << cases[i].first;
  }
}

// What is counted: signposts of the window (edges included, malformed ones
// too), other programs' entries, entries without a time, lines that are no
// JSON object (a lone surrogate escape makes one); and every value shape that
// journalctl writes is read, wherever the reader's chunks end.
TEST(LogStoreExtractorTest, CountsOnlySignpostEntriesInTheWindowAndPassesOverMalformedOnes) {
  const std::vector<E> malformed = {
      E().drop("SIGNPOST_TYPE"), E().kind("start"), E().drop("SIGNPOST_ID"), E().sid("-1"),
      E().sid("18446744073709551616"), E().sid("0x1"), E().sid(""),
      E().set("SIGNPOST_SCOPE", "global"), E().drop("SIGNPOST_SCOPE"),
      E().drop("SIGNPOST_SUBSYSTEM"), E().raw("SIGNPOST_CATEGORY", "null"),
      E().raw("SIGNPOST_TYPE", R"(["event","begin"])"),  // the journal keeps no order
      E().raw("SIGNPOST_NAME", "[76,255]"),               // not UTF-8
      E().drop("_PID"), E().in("thread", 1, 1).drop("SIGNPOST_TID")};
  const std::vector<E> noObjects = {
      E().raw("SIGNPOST_ID", "7"), E().raw("_PID", "{}"), E().raw("SIGNPOST_NAME", R"("Lo\ud800ad")"),
      E().raw("SIGNPOST_CATEGORY", R"("x \udc00")"), E().raw("_COMM", R"("\ud83d")"),
      E().raw("_EXE", R"("\udfff")"), E().raw("SIGNPOST_SCOPE", R"("\ud800process")")};
  std::string store = "-- journal begins --\n[1,2]\n{\"MESSAGE\":\"broken\"\n" +
                      Lines({E().t(-0.000001), E().t(0), E().t(5).set("MESSAGE_ID", "ffff"),
                             E().t(5).drop("MESSAGE_ID"), E().t(5).drop("__REALTIME_TIMESTAMP"),
                             E().t(6).set("__REALTIME_TIMESTAMP", "soon"), E().t(10),
                             E().t(10.000001), E().t(7).raw("SIGNPOST_NAME", R"("\ud83d\ude00")"),
                             // Equal values of a repeated name are one; bytes that are text are text.
                             E().t(1).raw("SIGNPOST_SUBSYSTEM", "[99,111,109,46,116]")
                                 .raw("SIGNPOST_NAME", R"(["Load","Load"])").raw("_EXE", "null"),
                             E().t(2).drop("SIGNPOST_CATEGORY").raw("SIGNPOST\\u005fCATEGORY", "\"ui\"")
                                 .set("SIGNPOST_STRING1_NAME", "Q")
                                 .set("SIGNPOST_STRING1_VALUE", "\\\"x\\\" \\u00e9")});
  for (E e : malformed) store += e.t(2).json() + "\n";
  for (E e : noObjects) store += e.t(2).json() + "\n";
  for (size_t chunk : {size_t{0}, size_t{32}}) {
    SCOPED_TRACE(chunk);
    StoreRun run(store, chunk, kBase, kBase + std::chrono::seconds(10));
    ASSERT_EQ(run.events.size(), 5u);
    EXPECT_EQ(run.events[2]->name(), "\xF0\x9F\x98\x80");
    EXPECT_EQ(run.events[3]->subsystem(), "com.t");
    EXPECT_EQ(run.events[3]->name(), "Load");
    EXPECT_FALSE(run.events[3]->processImagePath());
    EXPECT_EQ(run.events[4]->category(), "ui");
    EXPECT_EQ(run.events[4]->string1Value(), "\"x\" \xc3\xa9");
    EXPECT_EQ(run.extractor.processedEventCount(), 5u + malformed.size());
    EXPECT_EQ(run.stats().recordsOutsideWindow, 2u);
    EXPECT_EQ(run.stats().otherEntries, 2u);
    EXPECT_EQ(run.stats().malformedRecords, 2u + malformed.size());  // no time: not processed
    EXPECT_EQ(run.stats().nonObjectLines, 3u + noObjects.size());
  }
}

// The open begins are capped: the earliest makes room (counted, logged once
// per processing), an end frees its place, the environment sets the cap.
TEST(LogStoreExtractorTest, TheOpenIntervalCapDropsTheEarliestBegin) {
  struct Case {
    const char* what;
    size_t cap;            // 0: from the environment
    const char* envValue;  // nullptr: unset
    const char* script;    // "b<n>": a begin of signpost n, named "S<n>", n s in; "e<n>": its end
    std::vector<std::string> delivered;  // interval names, in order
    uint64_t dropped, unmatchedEnds;
  } cases[] = {
      {"the earliest begin makes room", 2, nullptr, "b1 b2 b3 e1 e2 e3", {"S2", "S3"}, 1, 1},
      {"a late begin older than all open ones is itself dropped", 2, nullptr, "b2 b3 b1 e1 e2 e3",
       {"S2", "S3"}, 1, 1},
      {"an end frees its place", 2, nullptr, "b1 e1 b2 b3 e3 e2", {"S1", "S3", "S2"}, 0, 0},
      {"the environment sets the cap", 0, "1", "b1 b2 e2 e1", {"S2"}, 1, 1},
      {"a bad value leaves the default", 0, "1x", "b1 b2 e2 e1", {"S2", "S1"}, 0, 0},
      {"many drops, one line", 1, nullptr, "b1 b2 b3 b4 b5", {}, 4, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<E> store;
    std::istringstream script(c.script);
    for (std::string w; script >> w;) {
      const bool begin = w[0] == 'b';
      store.push_back(E().t(begin ? std::stoi(w.substr(1)) : 10 + store.size()).sid(w.substr(1))
                          .kind(begin ? "begin" : "end").set("SIGNPOST_NAME", "S" + w.substr(1)));
    }
    testing::ScopedEnv env(LogStoreExtractor::kMaxOpenIntervalsVariable, c.envValue);
    testing::ScopedLogCapture capture(LogLevel::Info);
    StoreRun run;
    run.extractor.setMaxOpenIntervals(c.cap);
    WriteFile(run.dir.file("s.json"), Lines(store));
    for (int pass = 1; pass <= 2; ++pass) {  // each processing counts and logs afresh
      ASSERT_TRUE(run.read(run.dir.file("s.json")).ok);
      EXPECT_EQ(run.stats().droppedOpenBegins, c.dropped);
      EXPECT_EQ(run.stats().unmatchedEnds, c.unmatchedEnds);
      const std::vector<std::string> lines = capture.log().messages();
      EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                              [](const std::string& m) { return m.find("reached the cap") != m.npos; }),
                c.dropped ? pass : 0);
    }
    std::vector<std::string> names;
    for (size_t i = 0; i < run.intervals.size() / 2; ++i) names.push_back(*run.intervals[i]->name());
    EXPECT_EQ(names, c.delivered);
  }
}

TEST(LogStoreExtractorTest, StoreFormsAndTheirErrors) {
  StoreRun run;
  WriteFile(run.dir.file("b.json"), E().t(2).kind("end").json());
  WriteFile(run.dir.file("a.ndjson"), E().t(1).kind("begin").json());
  WriteFile(run.dir.file("c.txt"), E().t(3).json());
  std::filesystem::create_directory(run.dir.file("d.json"));
  {
    testing::ScopedEnv store(LogStoreExtractor::kStoreEnvironmentVariable, run.dir.path().c_str());
    ASSERT_TRUE(run.read(std::nullopt).ok);
  }
  EXPECT_EQ(run.intervals.size(), 1u);  // in name order across files
  EXPECT_TRUE(run.events.empty());
  EXPECT_EQ(run.stats().files, 2u);

  // A file named neither way is read as JSON lines unless it starts like a journal file.
  ASSERT_TRUE(run.read(run.dir.file("c.txt")).ok);
  EXPECT_EQ(run.events.size(), 1u);
  WriteFile(run.dir.file("fake"), std::string("LPKSHHRH") + std::string(300, '\0'));
  std::filesystem::create_directory(run.dir.file("mixed"));
  WriteFile(run.dir.file("mixed/system.journal"), "");
  WriteFile(run.dir.file("mixed/s.json"), "");
  for (const std::string bad : {"fake", "absent", "mixed"}) {
    run.error.reset();
    EXPECT_FALSE(run.read(run.dir.file(bad)).ok) << bad;
    ASSERT_TRUE(run.error) << bad;
    EXPECT_THAT(run.error->localizedDescription(),
                HasSubstr((bad == "fake" ? "journal " : "") + run.dir.file(bad)));
  }
  testing::ScopedEnv empty(LogStoreExtractor::kStoreEnvironmentVariable, "");
  EXPECT_EQ(LogStoreExtractor::configuredStorePath(), std::nullopt);
}

// `record` grown to exactly `bytes` bytes by an unknown field.
std::string Padded(const std::string& record, size_t bytes) {
  const std::string field = "\"pad\":\"\",";
  return "{" + field.substr(0, 7) + std::string(bytes - record.size() - field.size(), 'x') +
         field.substr(7) + record.substr(1);
}

TEST(LogStoreExtractorTest, RecordsOverOneMebibyteAreCountedAsMalformedAndSkipped) {
  const std::string atLimit = Padded(E().t(1).json(), 1048576);
  const std::string overLimit = Padded(E().t(2).json(), 1048577);
  ASSERT_EQ(atLimit.size(), 1048576u);
  ASSERT_EQ(overLimit.size(), 1048577u);
  const std::string after = E().t(3).json();
  for (const std::string& store : {atLimit + "\n" + overLimit + "\n" + after + "\n",
                                   "[" + atLimit + ",\n" + overLimit + ",\n" + after + "]"}) {
    for (size_t chunk : {size_t{0}, size_t{4096}}) {
      SCOPED_TRACE(store.substr(0, 1) + ", chunk " + std::to_string(chunk));
      StoreRun run(store, chunk);
      ASSERT_TRUE(run.ok);
      ASSERT_EQ(run.events.size(), 2u);
      EXPECT_EQ(run.stats().malformedRecords, 1u);
      EXPECT_EQ(run.stats().nonObjectLines, 0u);
      EXPECT_EQ(run.extractor.processedEventCount(), 2u);
    }
  }
}

// Runs `read` on a detached thread, so that a read that never returns fails
// the test instead of hanging it; `read` is let go before the future is ready.
std::future<void> Detached(std::function<void()> read) {
  auto done = std::make_shared<std::promise<void>>();
  std::future<void> finished = done->get_future();
  std::thread([done, read = std::move(read)]() mutable {
    read();
    read = nullptr;
    done->set_value();
  }).detach();
  return finished;
}

TEST(LogStoreExtractorTest, RefusesSpecialFilesAtOnceNamingThePath) {
  TempDir dir;
  const std::string fifo = dir.file("fifo.ndjson");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {fifo, std::string("/dev/zero"), std::string("/dev/urandom")}) {
    SCOPED_TRACE(path);
    auto run = std::make_shared<StoreRun>();
    std::future<void> reading = Detached([run, path] { run->read(path); });
    if (reading.wait_for(std::chrono::seconds(3)) != std::future_status::ready) {
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
  WriteFile(dir.file("a.ndjson"), E().t(1).json());
  StoreRun run;
  ASSERT_TRUE(run.read(dir.path()).ok);
  EXPECT_EQ(run.events.size(), 1u);
}

// Standard input as the store; a stop ends the read within a second, also inside an endless line.
TEST(LogStoreExtractorTest, ReadsStandardInputAndStopsInsideAnEndlessLine) {
  const struct {
    const char* what;
    std::string piped;  // "": /dev/zero
    bool endless;       // the line never ends: the writer stays, or the device
    size_t events;
  } inputs[] = {{"a pipe that ends", Lines({E().t(1), E().t(2)}), false, 2},
                {"a pipe left mid-line", Lines({E().t(1)}) + "{\"time", true, 1},
                {"/dev/zero", "", true, 0}};
  const int savedStdin = ::dup(STDIN_FILENO);
  for (const auto& input : inputs) {
    SCOPED_TRACE(input.what);
    int fds[2] = {::open("/dev/zero", O_RDONLY), -1};
    if (!input.piped.empty()) {
      ::close(fds[0]);
      ASSERT_EQ(::pipe(fds), 0);
      ASSERT_EQ(::write(fds[1], input.piped.data(), input.piped.size()), ssize_t(input.piped.size()));
      if (!input.endless) ::close(std::exchange(fds[1], -1));
    }
    ASSERT_EQ(::dup2(fds[0], STDIN_FILENO), STDIN_FILENO);
    ::close(fds[0]);
    auto run = std::make_shared<StoreRun>();
    std::future<void> reading = Detached([run] { run->read("-"); });
    if (input.endless) {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));  // well inside the line
      run->extractor.stopProcessing();
    }
    const bool returned = reading.wait_for(std::chrono::milliseconds(input.endless ? 1000 : 3000)) ==
                          std::future_status::ready;
    ::dup2(savedStdin, STDIN_FILENO);  // the reader took its own copy when it began
    if (fds[1] >= 0) ::close(fds[1]);
    ASSERT_TRUE(returned) << "still reading";
    EXPECT_TRUE(run->ok);
    EXPECT_EQ(run->events.size(), input.events);
  }
  ::close(savedStdin);
}

}  // namespace
}  // namespace lumvane

// The extractor over journal files made by systemd-journal-remote, and its callbacks' store order.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "lumvane/signpost/JournalEntryText.h"
#include "lumvane/signpost/JournalReader.h"
#include "lumvane/signpost/LogStoreExtractor.h"
#include "tests/support/JournalFiles.h"
#include "tests/support/TestSupport.h"
#include "tests/support/signpost/CollectedObjects.h"

namespace lumvane {
namespace {

using Fields = std::vector<std::pair<std::string, std::string>>;
constexpr uint64_t kBaseUsec = 1714557600000000;  // 2024-05-01 10:00:00 UTC
const Date kBase{std::chrono::microseconds(kBaseUsec)};
constexpr char kBootA[] = "0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a";

// A signpost entry of process 42 ("tool") `at` seconds after kBase (the
// monotonic clock `mono` seconds, 1000 ahead by default) holding `fields` too.
JournalEntryText Entry(double at, const Fields& fields, std::optional<double> mono = std::nullopt,
                       const char* boot = kBootA, bool signpost = true) {
  JournalEntryText e;
  e.add("__REALTIME_TIMESTAMP", std::to_string(kBaseUsec + std::llround(at * 1e6)));
  e.add("__MONOTONIC_TIMESTAMP", std::to_string(std::llround(mono.value_or(1000 + at) * 1e6)));
  e.add("_BOOT_ID", boot);
  e.add("_PID", "42");
  e.add("_COMM", "tool");
  if (signpost) e.add("MESSAGE_ID", "0c7e0296aa5f4fc7af2af7a970a22d31");
  for (const auto& [k, v] : Fields{{"SIGNPOST_SCOPE", "process"}, {"SIGNPOST_SUBSYSTEM", "s"},
                                   {"SIGNPOST_CATEGORY", "c"}}) {
    e.add(k, v);
  }
  for (const auto& [k, v] : fields) e.add(k, v);
  return e;
}

Fields Sp(const char* type, const std::string& id, Fields more = {}) {
  more.insert(more.begin(), {{"SIGNPOST_TYPE", type}, {"SIGNPOST_ID", id}});
  return more;
}

// `entries` in the export form, or as JSON lines in shuffled key order.
std::string Text(const std::vector<JournalEntryText>& entries, bool json = false) {
  std::string text;
  for (const JournalEntryText& e : entries) json ? e.appendJson(&text, 7) : e.appendExport(&text);
  return text;
}

TEST(LogStoreExtractorJournalTest, ReadsTheWindowOfEveryJournalFormWithTheJournalsOwnClocks) {
  LUMVANE_SKIP_WITHOUT_JOURNAL_REMOTE();
  testing::TempDir dir;
  const std::string machineDir = dir.file("journal/0123456789abcdef0123456789abcdef");
  std::filesystem::create_directories(machineDir);
  const std::string file = testing::MakeJournalFile(machineDir, "system", Text({
      Entry(-5, Sp("event", "1")),  // before the window: sought past
      Entry(0, Sp("event", "2")),   // the window's first instant
      Entry(1, Sp("begin", "7", {{"SIGNPOST_BOOTTIME_NSEC", "1000000000"},
                                 {"SIGNPOST_ATTRIBUTE", "Id=a"}, {"SIGNPOST_ATTRIBUTE", "Mode=b=c"}})),
      Entry(2, Sp("event", "3"), std::nullopt, kBootA, false),  // another program's
      Entry(3, Sp("begin", "8")),
      Entry(4, Sp("end", "7", {{"SIGNPOST_BOOTTIME_NSEC", "3500000000"}})),  // 2.5 s
      Entry(5, Sp("end", "8"), 1004.5),                                      // 1.5 s
      Entry(5.5, Sp("begin", "9")),
      Entry(6, Sp("end", "9"), 9000, "0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b"),  // rebooted: no pair
      Entry(6, Sp("bogus", "10")),
      Entry(6, Sp("event", "11", {{"SIGNPOST_NAME",
                                   std::string(JournalReader::kMaxValueBytes + 1, 'n')}})),
      Entry(10, Sp("event", "12")),  // the window's last instant
      Entry(20, Sp("event", "13")),  // past the end: ends the walk
      Entry(30, Sp("event", "14"))}));
  ASSERT_FALSE(file.empty());
  std::filesystem::copy_file(file, dir.file("unnamed"));

  for (const std::string& store : {dir.file("journal"), file, dir.file("unnamed")}) {
    SCOPED_TRACE(store);
    testing::CollectedObjects got;
    LogStoreExtractor extractor;
    got.attach(extractor);
    std::optional<Error> error;
    ASSERT_TRUE(extractor.processLogArchiveWithPath(store, kBase, kBase + std::chrono::seconds(10),
                                                    &error))
        << error->localizedDescription();
    ASSERT_EQ(got.intervals.size(), 2u);
    EXPECT_FLOAT_EQ(got.intervals[0]->durationSeconds(), 2.5f);
    EXPECT_FLOAT_EQ(got.intervals[1]->durationSeconds(), 1.5f);
    // Repeated fields come back in no particular order.
    const Dictionary& attributes = got.intervals[0]->attributes();
    EXPECT_EQ(attributes.size(), 2u);
    EXPECT_TRUE(attributes.find("Mode") && *attributes.find("Mode") == Value("b=c"));
    ASSERT_EQ(got.events.size(), 2u);
    EXPECT_EQ(got.events[0]->processName(), "tool");
    const LogStoreReadStatistics& s = extractor.lastReadStatistics();
    EXPECT_EQ(extractor.processedEventCount(), 10u);  // the window's signposts, malformed ones too
    EXPECT_EQ(s.malformedRecords, 2u);
    EXPECT_EQ(s.recordsOutsideWindow, 1u);
    EXPECT_EQ(s.unmatchedEnds, 1u);
  }
}

constexpr int kSteps = 3000;  // entries: many batches of the reading pipe

// A day of begins, events and ends (each end closes the begin made 8 steps
// before, so three are open at once) with what must be delivered, in order:
// "E<n>" for the event of step n, "I<n>" for the interval begun at step n.
struct Day {
  std::vector<JournalEntryText> entries;
  std::vector<std::string> expected;

  Day() {
    for (int i = 0; i < kSteps; ++i) {
      const int id = i % 3 == 2 && i >= 8 ? i - 8 : i;
      if (i % 3 != 0) expected.push_back((id != i ? "I" : "E") + std::to_string(id));
      const char* type = i % 3 == 0 ? "begin" : id != i ? "end" : "event";
      entries.push_back(Entry(i * 0.001, Sp(type, std::to_string(id + 1),
                                            {{"SIGNPOST_NAME", std::to_string(id)}})));
    }
  }
  // The day as a store of `form` ("json" or "journal") under `dir`; "" when it cannot be made.
  std::string writeTo(const std::string& form, const testing::TempDir& dir) const {
    if (form == "json") {
      testing::WriteFile(dir.file("day.json"), Text(entries, true));
      return dir.file("day.json");
    }
    if (!testing::JournalRemoteAvailable()) return "";
    return testing::MakeJournalFile(dir.path(), "day", Text(entries)).empty() ? "" : dir.path();
  }
};

TEST(LogStoreExtractorJournalTest, CallbacksComeOneAtATimeInStoreOrderOnTheCallingThread) {
  const Day day;
  for (const std::string form : {"json", "journal"}) {
    SCOPED_TRACE(form);
    testing::TempDir dir;
    const std::string store = day.writeTo(form, dir);
    if (store.empty()) GTEST_SKIP() << testing::kJournalRemotePath << " is missing";
    LogStoreExtractor extractor;
    const std::thread::id caller = std::this_thread::get_id();
    std::vector<std::string> delivered;
    std::atomic<int> inside{0};
    int overlaps = 0, elsewhere = 0;
    auto record = [&](const std::string& what) {
      overlaps += inside.fetch_add(1) != 0;
      elsewhere += std::this_thread::get_id() != caller;
      // Now and then a slow receiver, so that the worker fills the pipe.
      if (delivered.size() % 128 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
      delivered.push_back(what);
      inside.fetch_sub(1);
      return true;
    };
    extractor.setEmitEventProcessingBlock([&](auto e) { return record("E" + *e->name()); });
    extractor.setIntervalCompletionProcessingBlock([&](auto i) { return record("I" + *i->name()); });
    ASSERT_TRUE(extractor.processLogArchiveWithPath(store, kBase, kBase + std::chrono::hours(1),
                                                    nullptr));
    EXPECT_EQ(overlaps, 0);
    EXPECT_EQ(elsewhere, 0);
    EXPECT_EQ(delivered, day.expected);
    EXPECT_EQ(extractor.processedEventCount(), uint64_t(kSteps));
  }
}

// A stop ends the processing under way at the next entry, within a second
// even while callbacks are slow; one that comes before processing ends the
// next processing at once, and only that one.
TEST(LogStoreExtractorJournalTest, AStopEndsAReadingWithinASecondWhileTheCallbackIsSlow) {
  testing::TempDir dir;
  const std::string store = Day().writeTo("json", dir);
  LogStoreExtractor extractor;
  std::atomic<int> calls{0};
  bool slow = true;
  extractor.setEmitEventProcessingBlock([&](auto) {
    if (slow && ++calls == 10) extractor.stopProcessing();
    if (slow) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return true;
  });
  auto process = [&] {
    return extractor.processLogArchiveWithPath(store, kBase, kBase + std::chrono::hours(1), nullptr);
  };
  extractor.stopProcessing();
  extractor.stopProcessing();
  EXPECT_TRUE(process());
  EXPECT_EQ(extractor.processedEventCount(), 0u);

  const auto t0 = std::chrono::steady_clock::now();
  EXPECT_TRUE(process());
  EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(1));
  EXPECT_EQ(calls.load(), 10);

  slow = false;
  EXPECT_TRUE(process());
  EXPECT_EQ(extractor.processedEventCount(), uint64_t(kSteps));
}

}  // namespace
}  // namespace lumvane

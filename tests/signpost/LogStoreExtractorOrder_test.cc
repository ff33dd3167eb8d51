// Reading runs on a worker thread, pairing on the caller's: the callbacks
// must still come one at a time, on the calling thread, in store order,
// however far the worker runs ahead, and a stop must still end a reading
// whose callbacks are slow.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "lumvane/signpost/JournalEntryText.h"
#include "lumvane/signpost/LogStoreExtractor.h"
#include "tests/support/JournalFiles.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

constexpr uint64_t kBaseUsec = 1714557600000000;
const Date kBase{std::chrono::microseconds(kBaseUsec)};
constexpr int kSteps = 3000;  // entries: many batches of the pipe

// A day of begins, events and ends (ends close the oldest open begin, so
// several are open at once), with what must be delivered, in order: "E<n>"
// for the event of step n, "I<n>" for the interval begun at step n.
struct Day {
  std::vector<JournalEntryText> entries;
  std::vector<std::string> expected;

  Day() {
    std::deque<int> open;
    for (int i = 0; i < kSteps; ++i) {
      const bool closes = i % 3 == 2 && open.size() > 2;
      const int id = closes ? open.front() : i;
      const char* type = i % 3 == 0 ? "begin" : closes ? "end" : "event";
      if (i % 3 == 0) open.push_back(i);
      if (closes) open.pop_front();
      expected.push_back(i % 3 == 0 ? "" : (closes ? "I" : "E") + std::to_string(id));
      if (expected.back().empty()) expected.pop_back();
      JournalEntryText e;
      e.add("__REALTIME_TIMESTAMP", std::to_string(kBaseUsec + 1000u * uint64_t(i)));
      e.add("__MONOTONIC_TIMESTAMP", std::to_string(9000000u + 1000u * uint64_t(i)));
      e.add("_BOOT_ID", "0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a");
      e.add("_PID", "42");
      e.add("MESSAGE_ID", "0c7e0296aa5f4fc7af2af7a970a22d31");
      e.add("SIGNPOST_TYPE", type);
      e.add("SIGNPOST_ID", std::to_string(id + 1));
      e.add("SIGNPOST_SCOPE", "process");
      e.add("SIGNPOST_SUBSYSTEM", "s");
      e.add("SIGNPOST_CATEGORY", "c");
      e.add("SIGNPOST_NAME", std::to_string(id));
      entries.push_back(std::move(e));
    }
  }
};

// Writes `day` in the form `form` ("json" or "journal") under `dir`; the
// store's path, or "" when it cannot be made here.
std::string WriteStore(const Day& day, const std::string& form, const testing::TempDir& dir) {
  std::string text;
  for (const JournalEntryText& e : day.entries) {
    if (form == "json") {
      e.appendJson(&text, 7);
    } else {
      e.appendExport(&text);
    }
  }
  if (form == "json") {
    testing::WriteFile(dir.file("day.json"), text);
    return dir.file("day.json");
  }
  if (!testing::JournalRemoteAvailable()) return "";
  return testing::MakeJournalFile(dir.path(), "day", text).empty() ? "" : dir.path();
}

TEST(LogStoreExtractorOrderTest, CallbacksComeOneAtATimeInStoreOrderOnTheCallingThread) {
  const Day day;
  for (const std::string form : {"json", "journal"}) {
    SCOPED_TRACE(form);
    testing::TempDir dir;
    const std::string store = WriteStore(day, form, dir);
    if (store.empty()) {
      ASSERT_FALSE(testing::JournalRemoteAvailable());
      GTEST_SKIP() << testing::kJournalRemotePath << " is missing";
    }
    LogStoreExtractor extractor;
    const std::thread::id caller = std::this_thread::get_id();
    std::vector<std::string> delivered;
    std::atomic<int> inside{0};
    int overlaps = 0, elsewhere = 0;
    auto record = [&](const std::string& what) {
      overlaps += inside.fetch_add(1) != 0;
      elsewhere += std::this_thread::get_id() != caller;
      // Now and then a slow receiver, so that the worker fills the pipe and
      // has to wait for room.
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

TEST(LogStoreExtractorOrderTest, AStopEndsAReadingWithinASecondWhileTheCallbackIsSlow) {
  const Day day;
  testing::TempDir dir;
  const std::string store = WriteStore(day, "json", dir);
  LogStoreExtractor extractor;
  std::atomic<int> calls{0};
  extractor.setEmitEventProcessingBlock([&](auto) {
    if (++calls == 10) extractor.stopProcessing();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return true;
  });
  const auto t0 = std::chrono::steady_clock::now();
  EXPECT_TRUE(extractor.processLogArchiveWithPath(store, kBase, kBase + std::chrono::hours(1),
                                                  nullptr));
  EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(1));
  // The stop takes effect at the next entry: no callback after it.
  EXPECT_EQ(calls.load(), 10);
}

}  // namespace
}  // namespace lumvane

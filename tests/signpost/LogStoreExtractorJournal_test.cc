// The reader over journal files: entries written as export text, turned into
// .journal files by systemd-journal-remote, read back through the extractor.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <vector>

#include "lumvane/signpost/LogStoreExtractor.h"
#include "tests/support/JournalFiles.h"
#include "tests/support/TestSupport.h"
#include "tests/support/signpost/CollectedObjects.h"

namespace lumvane {
namespace {

// 2024-05-01 10:00:00 UTC.
const Date kBase{std::chrono::seconds(1714557600)};
const char kBootA[] = "0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a0a";
const char kBootB[] = "0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b";

// One journal entry; a signpost unless `signpost` is false. Times are
// seconds after kBase; the monotonic clock reads 1000 s more than that,
// CLOCK_BOOTTIME 5000 s more, unless a test sets them apart.
struct E {
  double at = 0;
  std::string type = "event", id = "1", scope = "process", sub = "com.test", cat = "ui",
              name = "Load", boot = kBootA;
  int pid = 100, tid = 1000;
  std::optional<double> mono, boottime;
  bool signpost = true, hasBoottime = true;
  std::vector<std::pair<std::string, std::string>> extra;

  E& t(double s) { return at = s, *this; }
  E& kind(std::string k) { return type = std::move(k), *this; }
  E& sid(std::string i) { return id = std::move(i), *this; }
  E& in(std::string s, int p, int th) { return scope = std::move(s), pid = p, tid = th, *this; }
  E& on(const char* b) { return boot = b, *this; }
  E& with(std::string f, std::string v) {
    return extra.emplace_back(std::move(f), std::move(v)), *this;
  }
  E& clocks(double m, std::optional<double> b) {
    return mono = m, boottime = b, hasBoottime = b.has_value(), *this;
  }
  E& other() { return signpost = false, *this; }

  std::string text() const {
    const auto us = [](double s) { return std::to_string(std::llround(s * 1e6)); };
    std::string s = "__REALTIME_TIMESTAMP=" +
                    std::to_string(kBase.time_since_epoch().count() + std::llround(at * 1e6)) +
                    "\n__MONOTONIC_TIMESTAMP=" + us(mono.value_or(at + 1000)) +
                    "\n_BOOT_ID=" + boot + "\n_PID=" + std::to_string(pid) +
                    "\n_COMM=tester\n_EXE=/usr/bin/tester\n_TRANSPORT=journal\nPRIORITY=6\n";
    for (const auto& [f, v] : extra) s += f + "=" + v + "\n";
    if (!signpost) return s + "MESSAGE=unrelated line\n\n";
    s += "MESSAGE_ID=0c7e0296aa5f4fc7af2af7a970a22d31\nMESSAGE=signpost\nSIGNPOST_TYPE=" + type +
         "\nSIGNPOST_ID=" + id + "\nSIGNPOST_SCOPE=" + scope + "\nSIGNPOST_SUBSYSTEM=" + sub +
         "\nSIGNPOST_CATEGORY=" + cat + "\nSIGNPOST_NAME=" + name +
         "\nSIGNPOST_TID=" + std::to_string(tid) + "\n";
    if (hasBoottime) s += "SIGNPOST_BOOTTIME_NSEC=" + us(boottime.value_or(at + 5000)) + "000\n";
    return s + "\n";
  }
};

// Makes a journal file of `entries` and reads its directory over [start, end].
struct JournalRun : testing::CollectedObjects {
  testing::TempDir dir;
  LogStoreExtractor extractor;
  bool ok = false;
  std::optional<Error> error;

  void read(const std::vector<E>& entries, Date start = kBase - std::chrono::hours(1),
            Date end = kBase + std::chrono::hours(1)) {
    std::string text;
    for (const E& e : entries) text += e.text();
    ASSERT_FALSE(testing::MakeJournalFile(dir.path(), "system", text).empty());
    attach(extractor);
    ok = extractor.processLogArchiveWithPath(dir.path(), start, end, &error);
    ASSERT_TRUE(ok) << (error ? error->localizedDescription() : "");
  }
};

TEST(LogStoreExtractorJournalTest, PairsWithinEachScopeAndBootAndTakesTheObjectProcess) {
  LUMVANE_SKIP_WITHOUT_JOURNAL_REMOTE();
  JournalRun run;
  run.read(
      {E().t(1).kind("begin").sid("7").in("process", 1, 10),
       E().t(1.1).kind("begin").sid("8").in("thread", 1, 10),
       E().t(1.2).kind("begin").sid("9").in("system", 1, 10),
       E().t(1.3).kind("begin").sid("10").in("system", 1, 10),
       E().t(1.4)
           .kind("begin")
           .sid("12")
           .in("process", 500, 500)
           .with("OBJECT_PID", "77")
           .with("OBJECT_EXE", "/usr/bin/bash")
           .with("OBJECT_COMM", "backup"),
       E().t(1.5).other().in("process", 1, 10),
       E().t(2).kind("end").sid("7").in("process", 2, 10),     // other process
       E().t(2.1).kind("end").sid("8").in("thread", 1, 11),    // other thread
       E().t(2.25).kind("end").sid("7").in("process", 1, 11),  // same process: 1.25 s
       E().t(2.3).other().in("process", 2, 20),
       E().t(3.1).kind("end").sid("8").in("thread", 1, 10),  // same thread: 2 s
       E().t(3.4).kind("end").sid("12").in("process", 501, 501).with("OBJECT_PID", "77"),  // 2 s
       E().t(4.2).kind("end").sid("9").in("system", 3, 30),  // anywhere: 3 s
       // Rebooted: same ID, clocks past the begin's, but never paired across boots.
       E().t(5).kind("end").sid("10").in("system", 1, 10).on(kBootB).clocks(9000, 9005),
       E().t(6).sid("3").in("process", 600, 600).with("OBJECT_PID", "78").on(kBootB),
       // Realtime says 1 s each; the monotonic clock 3 s; CLOCK_BOOTTIME 5 s
       // (a suspend in between) where both sides carry it.
       E().t(7).kind("begin").sid("1").clocks(100, 200),
       E().t(8).kind("end").sid("1").clocks(103, 205),
       E().t(8.1).kind("begin").sid("2").clocks(110, 210),
       E().t(9).kind("end").sid("2").clocks(113, std::nullopt),
       E().t(9.1).kind("begin").sid("3").clocks(120, std::nullopt),
       E().t(10).kind("end").sid("3").clocks(123, 225)});
  std::vector<float> durations;
  for (const auto& i : run.intervals) durations.push_back(i->durationSeconds());
  EXPECT_EQ(durations, (std::vector<float>{1.25f, 2.0f, 2.0f, 3.0f, 5.0f, 3.0f, 3.0f}));
  ASSERT_EQ(run.intervals.size(), 7u);
  EXPECT_EQ(*run.intervals[0]->endEvent()->processImagePath(), "/usr/bin/tester");
  EXPECT_EQ(*run.intervals[2]->beginEvent()->processName(), "backup");
  EXPECT_EQ(*run.intervals[2]->beginEvent()->processImagePath(), "/usr/bin/bash") << "not _EXE";
  EXPECT_FALSE(run.intervals[2]->endEvent()->processImagePath()) << "OBJECT_PID without OBJECT_EXE";
  // OBJECT_PID without OBJECT_EXE/OBJECT_COMM: the process is named by neither.
  ASSERT_EQ(run.events.size(), 1u);
  EXPECT_FALSE(run.events[0]->processImagePath());
  EXPECT_FALSE(run.events[0]->processName());
  EXPECT_EQ(run.extractor.processedEventCount(), 19u);  // signposts only
}

TEST(LogStoreExtractorJournalTest, BeginWinsEachSlotAndAttributesMergeWithTelemetryFromEitherSide) {
  LUMVANE_SKIP_WITHOUT_JOURNAL_REMOTE();
  JournalRun run;
  run.read({E().t(1)
                .kind("begin")
                .sid("1")
                .with("SIGNPOST_STRING1_NAME", "Path")
                .with("SIGNPOST_STRING1_VALUE", "Root")
                .with("SIGNPOST_ATTRIBUTE", "Id=com.begin")
                .with("SIGNPOST_ATTRIBUTE", "Mode=a=b"),
            E().t(2)
                .kind("end")
                .sid("1")
                .with("SIGNPOST_TELEMETRY", "1")
                .with("SIGNPOST_STRING1_NAME", "Path")
                .with("SIGNPOST_STRING1_VALUE", "Ext")
                .with("SIGNPOST_NUMBER1_NAME", "n")
                .with("SIGNPOST_NUMBER1_VALUE", "-3")
                .with("SIGNPOST_ATTRIBUTE", "Id=com.end")
                .with("SIGNPOST_ATTRIBUTE", "Extra=1"),
            E().t(3).kind("begin").sid("2").with("SIGNPOST_TELEMETRY", "1"),
            E().t(4).kind("end").sid("2"), E().t(5).kind("begin").sid("3"),
            E().t(6).kind("end").sid("3").with("SIGNPOST_TELEMETRY", "0")});
  ASSERT_EQ(run.intervals.size(), 3u);
  const SignpostInterval& i = *run.intervals[0];
  EXPECT_EQ(*i.string1Name(), "Path");
  EXPECT_EQ(*i.string1Value(), "Root");
  EXPECT_EQ(*i.number1Name(), "n");
  EXPECT_EQ(*i.number1Value(), Number::fromInt64(-3));
  EXPECT_FALSE(i.string2Name());
  EXPECT_EQ(*i.endEvent()->string1Value(), "Ext");
  // The journal keeps no order among repeated fields: look keys up.
  EXPECT_EQ(i.attributes().size(), 3u);
  const std::map<std::string, std::string> expected = {
      {"Id", "com.begin"}, {"Mode", "a=b"}, {"Extra", "1"}};
  for (const auto& [key, value] : expected) {
    const Value* v = i.attributes().find(key);
    ASSERT_TRUE(v && v->asString()) << key;
    EXPECT_EQ(*v->asString(), value) << key;
  }
  std::vector<bool> enabled;
  for (const auto& x : run.intervals) enabled.push_back(x->telemetryEnabled());
  EXPECT_EQ(enabled, (std::vector<bool>{true, true, false}));
}

TEST(LogStoreExtractorJournalTest, FullRangeIdsWindowEdgesAndWhatCountsAsProcessed) {
  LUMVANE_SKIP_WITHOUT_JOURNAL_REMOTE();
  const std::string foreign = "5e1fa3b77c0d4e2b9a8f6d3c2b1a0f9e";
  JournalRun run;
  run.read({E().t(-0.000001),                                    // before
            E().t(0).kind("begin").sid("18446744073709551615"),  // edge: in
            E().t(1).kind("end").sid("18446744073709551614"),    // equal as doubles: unmatched
            E().t(2).other(),
            E().t(4).kind("start"),  // malformed, still processed
            E().t(5)
                .with("MESSAGE_ID", foreign)
                .other()
                .with("SIGNPOST_TYPE", "event")
                .with("SIGNPOST_ID", "1"),                      // not a signpost
            E().t(6).kind("end").sid("18446744073709551615"),   // 6 s
            E().t(7).kind("begin").sid("9223372036854775809"),  // still open at the end
            E().t(10),                                          // edge: in
            E().t(10.000001)},                                  // after
           kBase, kBase + std::chrono::seconds(10));
  ASSERT_EQ(run.intervals.size(), 1u);
  EXPECT_FLOAT_EQ(run.intervals[0]->durationSeconds(), 6.0f);
  EXPECT_EQ(run.events.size(), 1u);
  // The six signposts in the window, the malformed one included; neither the
  // other program's entry nor the foreign one.
  EXPECT_EQ(run.extractor.processedEventCount(), 6u);
}

}  // namespace
}  // namespace lumvane

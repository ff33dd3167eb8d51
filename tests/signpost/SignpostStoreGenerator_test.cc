#include "lumvane/signpost/SignpostStoreGenerator.h"

#include <gtest/gtest.h>
#include <simdjson.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

#include "lumvane/signpost/LogStoreExtractor.h"
#include "tests/support/JournalFiles.h"
#include "tests/support/TestSupport.h"
#include "tests/support/signpost/CollectedObjects.h"

namespace lumvane {
namespace {

const Date kEnd{std::chrono::seconds(1714557600)};  // 2024-05-01 12:00:00 +02:00
constexpr char kJournalctl[] = "/usr/bin/journalctl";
using Entry = std::map<std::string, std::string>;

// JSON lines as field -> JSON text, arrays sorted (the journal keeps no order among repeated
// fields), the cursor left out (systemd-journal-remote writes its own); non-objects go to `broken`.
std::vector<Entry> Entries(const std::string& text, uint64_t* broken) {
  simdjson::dom::parser parser;
  std::vector<Entry> entries;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    simdjson::dom::object object;
    if (parser.parse(line).get(object) != simdjson::SUCCESS) {
      ++*broken;
      continue;
    }
    Entry& entry = entries.emplace_back();
    for (auto [key, value] : object) {
      std::vector<std::string> items;
      simdjson::dom::array array;
      if (value.get(array) == simdjson::SUCCESS) {
        for (auto item : array) items.push_back(simdjson::minify(item));
      } else {
        items.push_back(simdjson::minify(value));
      }
      std::sort(items.begin(), items.end());
      for (const std::string& i : items) entry[std::string(key)] += i + "|";
    }
    entry.erase("__CURSOR");
  }
  return entries;
}

SignpostStoreCounts Generate(SignpostStoreGeneratorOptions o, const std::string& path) {
  SignpostStoreGenerator generator(o);
  EXPECT_FALSE(generator.writeTo(path));
  return generator.counts();
}

// The JSON form is what journalctl prints of the journal file made from the
// export form of the same seed (apart from the lines cut short), and the
// counts agree with what the lines hold and with what the reader finds.
TEST(SignpostStoreGeneratorTest, JsonFormIsWhatJournalctlPrintsAndTheReaderFindsTheCounts) {
  LUMVANE_SKIP_WITHOUT_JOURNAL_REMOTE();
  if (::access(kJournalctl, X_OK) != 0) GTEST_SKIP() << kJournalctl << " is missing";
  testing::TempDir dir;
  SignpostStoreGeneratorOptions o;
  o.seed = 5;
  o.records = 1500;
  o.end = kEnd;
  const SignpostStoreCounts c = Generate(o, dir.file("a.json"));
  Generate(o, dir.file("b.json"));
  EXPECT_EQ(testing::ReadFile(dir.file("a.json")), testing::ReadFile(dir.file("b.json")));
  o.format = SignpostStoreFormat::JournalExport;
  const SignpostStoreCounts ce = Generate(o, dir.file("day.export"));
  EXPECT_EQ(ce.records + c.brokenLines, c.records);
  EXPECT_EQ(ce.signposts, c.signposts);

  ASSERT_TRUE(std::filesystem::create_directory(dir.file("journal")));
  ASSERT_NE(testing::MakeJournalFile(dir.file("journal"), "day", testing::ReadFile(dir.file("day.export"))),
            "");
  testing::ChildProcess journalctl({kJournalctl, "-D", dir.file("journal"), "-o", "json"}, {},
                                   dir.file("journalctl"));
  ASSERT_EQ(journalctl.wait(std::chrono::seconds(60)), 0) << journalctl.err();

  uint64_t broken = 0, printedBroken = 0, signposts = 0;
  const std::vector<Entry> ours = Entries(testing::ReadFile(dir.file("a.json")), &broken);
  const std::vector<Entry> printed = Entries(journalctl.out(), &printedBroken);
  const uint64_t first = (kEnd - std::chrono::hours(24)).time_since_epoch().count();
  const uint64_t last = kEnd.time_since_epoch().count();
  for (const Entry& e : ours) {
    signposts += e.count("MESSAGE_ID") && e.at("MESSAGE_ID") == "\"0c7e0296aa5f4fc7af2af7a970a22d31\"|";
    const uint64_t at = std::stoull(e.at("__REALTIME_TIMESTAMP").substr(1));
    EXPECT_TRUE(at >= first && at <= last) << at;
  }
  EXPECT_EQ(ours.size() + broken, c.records);
  EXPECT_EQ(broken, c.brokenLines);
  EXPECT_GT(broken, 0u);
  EXPECT_EQ(printedBroken, 0u);
  EXPECT_EQ(signposts, c.signposts);
  EXPECT_NEAR(static_cast<double>(signposts) / c.records, 0.7, 0.05);
  ASSERT_EQ(ours.size(), printed.size());
  for (size_t i = 0; i < ours.size(); ++i) ASSERT_EQ(ours[i], printed[i]) << "entry " << i;

  // The reader, given the day in either form, finds what the generator counted.
  ASSERT_GT(c.unclosedBegins, 0u);
  ASSERT_GT(c.unmatchedEnds, 0u);
  for (const std::string& store : {dir.file("a.json"), dir.file("journal")}) {
    LogStoreExtractor extractor;
    testing::CollectedObjects got;
    got.attach(extractor);
    ASSERT_TRUE(extractor.processLogArchiveWithPath(store, kEnd - std::chrono::hours(24), kEnd, nullptr))
        << store;
    uint64_t telemetry = 0;
    for (const auto& i : got.intervals) telemetry += i->telemetryEnabled();
    for (const auto& a : got.animations) telemetry += a->telemetryEnabled();
    for (const auto& e : got.events) telemetry += e->telemetryEnabled();
    EXPECT_EQ(extractor.processedEventCount(), c.signposts) << store;
    EXPECT_EQ(got.intervals.size(), c.intervals) << store;
    EXPECT_EQ(got.animations.size(), c.animationIntervals) << store;
    EXPECT_EQ(got.events.size(), c.events) << store;
    EXPECT_EQ(telemetry, c.telemetryObjects) << store;
  }

  o.accept = false;
  o.format = SignpostStoreFormat::JournalJson;
  Generate(o, dir.file("c.json"));
  EXPECT_EQ(testing::ReadFile(dir.file("c.json")).find("SIGNPOST_TELEMETRY"), std::string::npos);
}

// The same options write the same bytes, with every compiler: the bundled sample is this run's output, and the
// README's figures for it are what the generator counts.
TEST(SignpostStoreGeneratorTest, WritesTheBundledSampleByteForByte) {
  testing::TempDir dir;
  SignpostStoreGeneratorOptions o;
  o.seed = 42, o.records = 3000, o.end = Date{std::chrono::seconds(1714557600)};  // 2024-05-01T12:00:00+02:00
  const SignpostStoreCounts c = Generate(o, dir.file("sample.ndjson"));
  EXPECT_TRUE(testing::ReadFile(dir.file("sample.ndjson")) ==
              testing::ReadFile(LUMVANE_SOURCE_DIR "/examples/signpost-store/signposts.ndjson"));
  EXPECT_EQ(std::vector<uint64_t>({c.signposts, c.intervals, c.animationIntervals, c.events, c.telemetryObjects}),
            std::vector<uint64_t>({2149, 544, 124, 786, 672}));
}

}  // namespace
}  // namespace lumvane

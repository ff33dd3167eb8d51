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

namespace lumvane {
namespace {

// 2024-05-01 12:00:00 +02:00.
const Date kEnd{std::chrono::seconds(1714557600)};
constexpr char kJournalctl[] = "/usr/bin/journalctl";

// One JSON line as field -> value text: a string as itself, null as
// "(null)", an array (of strings or of byte numbers) as its sorted elements
// joined by "|", since the journal keeps no order among repeated fields.
// The cursor is left out: systemd-journal-remote writes its own.
using Entry = std::map<std::string, std::string>;
std::optional<Entry> Canonical(simdjson::ondemand::parser& parser, const std::string& line) {
  simdjson::padded_string padded(line);
  simdjson::ondemand::document doc;
  simdjson::ondemand::object object;
  if (parser.iterate(padded).get(doc) || doc.get_object().get(object)) return std::nullopt;
  Entry entry;
  for (auto field : object) {
    std::string_view key;
    simdjson::ondemand::value v;
    if (field.unescaped_key().get(key) || field.value().get(v)) return std::nullopt;
    if (key == "__CURSOR") continue;
    bool isNull = false;
    simdjson::ondemand::json_type type;
    if (v.type().get(type)) return std::nullopt;
    std::string text;
    if (type == simdjson::ondemand::json_type::null && !v.is_null().get(isNull) && isNull) {
      text = "(null)";
    } else if (type == simdjson::ondemand::json_type::array) {
      std::vector<std::string> items;
      simdjson::ondemand::array array;
      if (v.get_array().get(array)) return std::nullopt;
      for (auto item : array) {
        std::string_view raw;
        if (item.raw_json_token().get(raw)) return std::nullopt;
        items.emplace_back(raw);
      }
      std::sort(items.begin(), items.end());
      for (const auto& i : items) text += i + "|";
    } else {
      std::string_view s;
      if (v.get_string().get(s)) return std::nullopt;
      text = s;
    }
    entry.emplace(std::string(key), text);
  }
  return entry;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
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
  ASSERT_NE(testing::MakeJournalFile(dir.file("journal"), "day",
                                     testing::ReadFile(dir.file("day.export"))),
            "");
  testing::ChildProcess journalctl({kJournalctl, "-D", dir.file("journal"), "-o", "json"}, {},
                                   dir.file("journalctl"));
  ASSERT_EQ(journalctl.wait(std::chrono::seconds(60)), 0) << journalctl.err();

  simdjson::ondemand::parser parser;
  std::vector<Entry> ours, printed;
  uint64_t broken = 0, signposts = 0;
  const std::string kSignpostId = "0c7e0296aa5f4fc7af2af7a970a22d31";
  const uint64_t first = (kEnd - std::chrono::hours(24)).time_since_epoch().count();
  const uint64_t last = kEnd.time_since_epoch().count();
  const std::vector<std::string> lines = Lines(testing::ReadFile(dir.file("a.json")));
  EXPECT_EQ(lines.size(), c.records);
  for (const std::string& line : lines) {
    std::optional<Entry> e = Canonical(parser, line);
    if (!e) {
      ++broken;
      continue;
    }
    signposts += e->count("MESSAGE_ID") && e->at("MESSAGE_ID") == kSignpostId;
    const uint64_t at = std::stoull(e->at("__REALTIME_TIMESTAMP"));
    EXPECT_TRUE(at >= first && at <= last) << line;
    ours.push_back(std::move(*e));
  }
  for (const std::string& line : Lines(journalctl.out())) {
    std::optional<Entry> e = Canonical(parser, line);
    ASSERT_TRUE(e) << line;
    printed.push_back(std::move(*e));
  }
  EXPECT_EQ(broken, c.brokenLines);
  EXPECT_GT(broken, 0u);
  EXPECT_EQ(signposts, c.signposts);
  EXPECT_NEAR(static_cast<double>(signposts) / c.records, 0.7, 0.05);
  ASSERT_EQ(ours.size(), printed.size());
  for (size_t i = 0; i < ours.size(); ++i) ASSERT_EQ(ours[i], printed[i]) << "entry " << i;

  // The reader, given the day in either form, finds what the generator counted.
  ASSERT_GT(c.unclosedBegins, 0u);
  ASSERT_GT(c.unmatchedEnds, 0u);
  for (const std::string& store : {dir.file("a.json"), dir.file("journal")}) {
    LogStoreExtractor extractor;
    uint64_t intervals = 0, animations = 0, events = 0, telemetry = 0;
    extractor.setIntervalCompletionProcessingBlock(
        [&](auto i) { return ++intervals, telemetry += i->telemetryEnabled(), true; });
    extractor.setAnimationIntervalCompletionProcessingBlock(
        [&](auto i) { return ++animations, telemetry += i->telemetryEnabled(), true; });
    extractor.setEmitEventProcessingBlock(
        [&](auto e) { return ++events, telemetry += e->telemetryEnabled(), true; });
    std::optional<Error> error;
    ASSERT_TRUE(
        extractor.processLogArchiveWithPath(store, kEnd - std::chrono::hours(24), kEnd, &error))
        << store << ": " << (error ? error->localizedDescription() : "");
    EXPECT_EQ(extractor.processedEventCount(), c.signposts) << store;
    EXPECT_EQ(intervals, c.intervals) << store;
    EXPECT_EQ(animations, c.animationIntervals) << store;
    EXPECT_EQ(events, c.events) << store;
    EXPECT_EQ(telemetry, c.telemetryObjects) << store;
  }

  o.accept = false;
  o.format = SignpostStoreFormat::JournalJson;
  Generate(o, dir.file("c.json"));
  EXPECT_EQ(testing::ReadFile(dir.file("c.json")).find("SIGNPOST_TELEMETRY"), std::string::npos);
}

}  // namespace
}  // namespace lumvane

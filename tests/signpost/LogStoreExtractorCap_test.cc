// The cap on begins waiting for their end: which begin makes room, that an
// end frees its place, and how the cap is configured.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "lumvane/signpost/LogStoreExtractor.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

constexpr uint64_t kBaseUsec = 1714557600000000;
const Date kBase{std::chrono::microseconds(kBaseUsec)};

// A process-scoped begin or end of signpost `id`, named "S<id>", `second`
// seconds after kBase.
std::string Line(const char* type, int id, int second) {
  const std::string us = std::to_string(kBaseUsec + uint64_t(second) * 1000000);
  return std::string("{\"MESSAGE_ID\":\"0c7e0296aa5f4fc7af2af7a970a22d31\",\"_PID\":\"7\",") +
         "\"_BOOT_ID\":\"b\",\"SIGNPOST_TYPE\":\"" + type + "\",\"SIGNPOST_ID\":\"" +
         std::to_string(id) + "\",\"SIGNPOST_SCOPE\":\"process\",\"SIGNPOST_SUBSYSTEM\":\"s\"," +
         "\"SIGNPOST_CATEGORY\":\"c\",\"SIGNPOST_NAME\":\"S" + std::to_string(id) +
         "\",\"__REALTIME_TIMESTAMP\":\"" + us + "\"}\n";
}

struct CapCase {
  const char* what;
  size_t cap;            // 0: from the environment
  const char* envValue;  // nullptr: unset
  std::vector<std::string> lines;
  std::vector<std::string> delivered;  // interval names, in order
  uint64_t dropped, unmatchedEnds;
};

TEST(LogStoreExtractorCapTest, DropsTheEarliestOpenBeginWhenFull) {
  const std::vector<CapCase> cases = {
      {"the earliest begin makes room", 2, nullptr,
       {Line("begin", 1, 1), Line("begin", 2, 2), Line("begin", 3, 3), Line("end", 1, 4),
        Line("end", 2, 5), Line("end", 3, 6)},
       {"S2", "S3"}, 1, 1},
      {"a late begin older than all open ones is itself dropped", 2, nullptr,
       {Line("begin", 2, 2), Line("begin", 3, 3), Line("begin", 1, 1), Line("end", 1, 4),
        Line("end", 2, 5), Line("end", 3, 6)},
       {"S2", "S3"}, 1, 1},
      {"an end frees its place", 2, nullptr,
       {Line("begin", 1, 1), Line("end", 1, 2), Line("begin", 2, 3), Line("begin", 3, 4),
        Line("end", 3, 5), Line("end", 2, 6)},
       {"S1", "S3", "S2"}, 0, 0},
      {"the environment sets the cap", 0, "1",
       {Line("begin", 1, 1), Line("begin", 2, 2), Line("end", 2, 3), Line("end", 1, 4)},
       {"S2"}, 1, 1},
      {"a bad value leaves the default", 0, "1x",
       {Line("begin", 1, 1), Line("begin", 2, 2), Line("end", 2, 3), Line("end", 1, 4)},
       {"S2", "S1"}, 0, 0},
  };
  for (const CapCase& c : cases) {
    SCOPED_TRACE(c.what);
    testing::TempDir dir;
    std::string store;
    for (const std::string& l : c.lines) store += l;
    testing::WriteFile(dir.file("s.json"), store);
    if (c.envValue) {
      setenv(LogStoreExtractor::kMaxOpenIntervalsVariable, c.envValue, 1);
    } else {
      unsetenv(LogStoreExtractor::kMaxOpenIntervalsVariable);
    }
    testing::ScopedLogCapture capture(LogLevel::Info);
    LogStoreExtractor extractor;
    extractor.setMaxOpenIntervals(c.cap);
    std::vector<std::string> names;
    extractor.setIntervalCompletionProcessingBlock([&](auto interval) {
      names.push_back(interval->name().value_or("?"));
      return true;
    });
    ASSERT_TRUE(extractor.processLogArchiveWithPath(
        dir.file("s.json"), kBase, kBase + std::chrono::seconds(10), nullptr));
    unsetenv(LogStoreExtractor::kMaxOpenIntervalsVariable);
    EXPECT_EQ(names, c.delivered);
    EXPECT_EQ(extractor.lastReadStatistics().droppedOpenBegins, c.dropped);
    EXPECT_EQ(extractor.lastReadStatistics().unmatchedEnds, c.unmatchedEnds);
    size_t capLines = 0;
    for (const std::string& m : capture.log().messages()) {
      capLines += m.find("reached the cap") != std::string::npos;
    }
    EXPECT_EQ(capLines, c.dropped ? 1u : 0u);
  }
}

TEST(LogStoreExtractorCapTest, LogsTheCapOncePerProcessing) {
  testing::TempDir dir;
  std::string store;
  for (int id = 1; id <= 5; ++id) store += Line("begin", id, id);
  testing::WriteFile(dir.file("s.json"), store);
  testing::ScopedLogCapture capture(LogLevel::Info);
  LogStoreExtractor extractor;
  extractor.setMaxOpenIntervals(1);
  for (int run = 0; run < 2; ++run) {
    ASSERT_TRUE(extractor.processLogArchiveWithPath(
        dir.file("s.json"), kBase, kBase + std::chrono::seconds(10), nullptr));
    EXPECT_EQ(extractor.lastReadStatistics().droppedOpenBegins, 4u);
    EXPECT_EQ(extractor.lastReadStatistics().unclosedBegins, 1u);
  }
  size_t capLines = 0;
  for (const std::string& m : capture.log().messages()) {
    capLines += m.find("reached the cap") != std::string::npos;
  }
  EXPECT_EQ(capLines, 2u);
}

}  // namespace
}  // namespace lumvane

#include "lumvane/signpost/SignpostStoreGenerator.h"

#include <gtest/gtest.h>

#include "lumvane/signpost/LogStoreExtractor.h"
#include "lumvane/signpost/LogStoreTimestamp.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

TEST(SignpostStoreGeneratorTest, SameSeedSameStoreThatTheReaderTakesWhole) {
  testing::TempDir dir;
  SignpostStoreGeneratorOptions o;
  o.records = 800;
  o.end = *ParseLogStoreTimestamp("2024-05-01 12:00:00+0200");
  o.offsetMinutes = 120;
  ASSERT_FALSE(SignpostStoreGenerator(o).writeTo(dir.file("a.ndjson")));
  ASSERT_FALSE(SignpostStoreGenerator(o).writeTo(dir.file("b.ndjson")));
  o.accept = false;
  ASSERT_FALSE(SignpostStoreGenerator(o).writeTo(dir.file("c.ndjson")));
  EXPECT_EQ(testing::ReadFile(dir.file("a.ndjson")), testing::ReadFile(dir.file("b.ndjson")));
  EXPECT_EQ(testing::ReadFile(dir.file("c.ndjson")).find("enableTelemetry=YES"),
            std::string::npos);

  LogStoreExtractor extractor;
  uint64_t enabled = 0;
  extractor.setEmitEventProcessingBlock(
      [&](auto e) { return enabled += e->telemetryEnabled(), true; });
  ASSERT_TRUE(extractor.processLogArchiveWithPath(dir.file("a.ndjson"),
                                                  o.end - std::chrono::hours(24), o.end, nullptr));
  const LogStoreReadStatistics& s = extractor.lastReadStatistics();
  EXPECT_EQ(s.recordsOutsideWindow, 0u);
  EXPECT_EQ(s.duplicateBegins + s.unmatchedEnds + s.nonPositiveIntervals, 0u);
  // Every record is inside the day it covers except the lines cut short;
  // the two preamble lines are the other non-object lines.
  EXPECT_EQ(extractor.processedEventCount() + s.nonObjectLines - 2, 800u);
  EXPECT_GT(s.intervals, 0u);
  EXPECT_GT(s.animationIntervals, 0u);
  EXPECT_GT(enabled, 0u);
}

}  // namespace
}  // namespace lumvane

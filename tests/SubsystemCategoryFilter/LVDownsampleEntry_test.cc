#include "lumvane/SubsystemCategoryFilter/LVDownsampleEntry.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

// The call numbers (1-based) answered true out of `calls` calls.
std::vector<uint64_t> PassingCalls(LVDownsampleEntry& entry, uint64_t calls) {
  std::vector<uint64_t> passed;
  for (uint64_t i = 1; i <= calls; ++i) {
    if (entry.shouldReportThisTime()) passed.push_back(i);
  }
  return passed;
}

TEST(LVDownsampleEntryTest, CapIsTestedBeforeRatioAndEveryCallCounts) {
  auto capped = LVDownsampleEntry::initWithCap(5, 1);
  ASSERT_TRUE(capped);
  EXPECT_EQ(PassingCalls(*capped, 8), (std::vector<uint64_t>{1, 2, 3, 4, 5}));
  EXPECT_EQ(capped->eventsSeen(), 8u);
  EXPECT_EQ(capped->eventsReported(), 5u);

  auto closed = LVDownsampleEntry::initWithCap(0, 1);
  EXPECT_TRUE(PassingCalls(*closed, 4).empty());
  EXPECT_EQ(closed->eventsSeen(), 4u);
  EXPECT_EQ(closed->eventsReported(), 0u);

  // Once the cap is reached, a multiple of the ratio still fails: the count
  // keeps going but nothing more is reported.
  auto two = LVDownsampleEntry::initWithCap(2, 3);
  EXPECT_EQ(PassingCalls(*two, 12), (std::vector<uint64_t>{3, 6}));
  EXPECT_EQ(two->eventsSeen(), 12u);
  // Lowering the reported count reopens the entry at the next multiple only.
  two->setEventsReported(1);
  EXPECT_FALSE(two->shouldReportThisTime());  // call 13
  EXPECT_FALSE(two->shouldReportThisTime());  // call 14
  EXPECT_TRUE(two->shouldReportThisTime());   // call 15
  EXPECT_EQ(two->eventsReported(), 2u);
  EXPECT_EQ(two->cap(), 2u);
  EXPECT_EQ(two->downsampleRatio(), 3u);
}

TEST(LVDownsampleEntryTest, ZeroRatioIsRefusedWithOneMessagePerAttempt) {
  testing::ScopedLogCapture capture;
  EXPECT_EQ(LVDownsampleEntry::initWithCap(5, 0), nullptr);
  EXPECT_EQ(LVDownsampleEntry::initWithCap(0, 0), nullptr);
  EXPECT_EQ(capture.log().messages(),
            std::vector<std::string>(2, "Tried to create a downsample entry with 0 downsample ratio"));
}

}  // namespace
}  // namespace lumvane

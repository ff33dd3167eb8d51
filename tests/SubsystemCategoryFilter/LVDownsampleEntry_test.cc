#include "lumvane/SubsystemCategoryFilter/LVDownsampleEntry.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>


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
  // Once the cap is reached, a multiple of the ratio still fails: the count
  // keeps going but nothing more is reported.
  const std::vector<std::tuple<uint64_t, uint64_t, uint64_t, std::vector<uint64_t>>> rows = {
      {5, 1, 8, {1, 2, 3, 4, 5}}, {0, 1, 4, {}}, {2, 3, 12, {3, 6}}};
  for (const auto& [cap, ratio, calls, passing] : rows) {
    auto entry = LVDownsampleEntry::initWithCap(cap, ratio);
    ASSERT_TRUE(entry);
    EXPECT_EQ(PassingCalls(*entry, calls), passing) << cap << "/" << ratio;
    EXPECT_EQ(entry->eventsSeen(), calls);
    EXPECT_EQ(entry->eventsReported(), passing.size());
  }
  // Lowering the reported count reopens the entry at the next multiple only.
  auto two = LVDownsampleEntry::initWithCap(2, 3);
  PassingCalls(*two, 12);
  two->setEventsReported(1);
  EXPECT_EQ(PassingCalls(*two, 3), std::vector<uint64_t>{3});  // calls 13, 14, 15
  EXPECT_EQ(two->eventsReported(), 2u);
}

}  // namespace
}  // namespace lumvane

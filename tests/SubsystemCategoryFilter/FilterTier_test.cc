#include "lumvane/SubsystemCategoryFilter/FilterTier.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "lumvane/SubsystemCategoryFilter/FilterNameTier.h"
#include "lumvane/SubsystemCategoryFilter/FilterRootTier.h"
#include "lumvane/SubsystemCategoryFilter/LVDownsampleEntry.h"
#include "lumvane/platform/AssertionFailure.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using Key = FilterQuery::Key;
constexpr std::nullopt_t kAbsent = std::nullopt;

FilterQuery Q(Key s, Key c, Key n) { return FilterQuery::initWithSubsystem(s, c, n); }

// Entries are told apart by their cap; 0 stands for "no entry".
uint64_t Label(const std::shared_ptr<LVDownsampleEntry>& entry) { return entry ? entry->cap() : 0; }

// The call numbers (1-based) answered true out of `calls` calls.
std::vector<uint64_t> PassingCalls(LVDownsampleEntry& entry, uint64_t calls) {
  std::vector<uint64_t> passed;
  for (uint64_t i = 1; i <= calls; ++i) {
    if (entry.shouldReportThisTime()) passed.push_back(i);
  }
  return passed;
}

// Once the cap is reached, a multiple of the ratio still fails: the count
// keeps going but nothing more is reported.
TEST(LVDownsampleEntryTest, CapIsTestedBeforeRatioAndEveryCallCounts) {
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

TEST(FilterTierTest, LookupReturnsTheDeepestEntryOnThePath) {
  struct Insert { Key s, c, n; uint64_t label; };
  const uint64_t A = 1, B = 2, R = 3;
  const std::vector<Insert> sub = {{"S", kAbsent, kAbsent, A}}, leaf = {{"S", "C", "N", B}};
  const std::vector<Insert> both = {{"S", kAbsent, kAbsent, A}, {"S", "C", "N", B}};
  const struct { std::vector<Insert> tree; Key s, c, n; uint64_t expected; } rows[] = {
      {sub, "S", "C", "N", A}, {sub, "S", kAbsent, kAbsent, A}, {sub, "T", "C", "N", 0},
      {both, "S", "C", "N", B}, {both, "S", "C", "M", A}, {both, "S", "D", "N", A},
      {{{"S", "C", kAbsent, A}}, "S", "C", "N", A}, {leaf, "S", "C", kAbsent, 0},
      {leaf, "S", kAbsent, "N", 0}, {{{kAbsent, kAbsent, kAbsent, R}, sub[0]}, "T", "C", "N", R},
      {{{"S", kAbsent, "N", A}}, "S", "C", "N", A},  // a name without a category: subsystem tier
      {sub, "s", "C", "N", 0},  // keys are exact: letter case makes another subsystem
      {{}, kAbsent, kAbsent, kAbsent, 0}, {{}, "S", "C", "N", 0}};
  for (const auto& row : rows) {
    FilterRootTier root;
    for (const Insert& in : row.tree) root.setCap(in.label, 1, Q(in.s, in.c, in.n));
    EXPECT_EQ(Label(root.entryForQuery(Q(row.s, row.c, row.n))), row.expected)
        << "row " << (&row - rows);
  }
}

TEST(FilterTierTest, ReinsertionReplacesAndZeroRatioDrops) {
  testing::ScopedLogCapture capture;
  FilterRootTier root;
  root.setCap(7, 1, Q("S", kAbsent, kAbsent));
  root.setCap(5, 1, Q("S", "C", "N"));
  auto first = root.entryForQuery(Q("S", "C", "N"));
  ASSERT_TRUE(first && first->shouldReportThisTime());

  // Same path again: a fresh entry with counters at 0 replaces the old one.
  root.setCap(9, 1, Q("S", "C", "N"));
  auto second = root.entryForQuery(Q("S", "C", "N"));
  ASSERT_TRUE(second);
  EXPECT_NE(second, first);
  EXPECT_EQ(second->cap(), 9u);
  EXPECT_EQ(second->eventsSeen(), 0u);

  // Ratio 0 on that path drops its entry; the subsystem's entry takes over.
  root.setCap(9, 0, Q("S", "C", "N"));
  EXPECT_EQ(Label(root.entryForQuery(Q("S", "C", "N"))), 7u);
  EXPECT_EQ(capture.log().count("Tried to create a downsample entry with 0 downsample ratio"), 1u);

  // Ratio 0 on a new path builds its tiers but changes no answer.
  root.setCap(4, 0, Q("U", "C", "N"));
  EXPECT_EQ(root.childTiers()->count("U"), 1u);
  EXPECT_EQ(root.entryForQuery(Q("U", "C", "N")), nullptr);
}

TEST(FilterTierDeathTest, BaseOperationsStopTheProcess) {
  FilterRootTier root;
  FilterNameTier leaf;
  const FilterQuery query = Q("S", "C", "N");
  const std::string file = "lumvane/SubsystemCategoryFilter/LVSubsystemCategoryNameFilter";
  EXPECT_DEATH(root.FilterTier::keyForChildren(query),
               "^lumvane_SubsystemCategoryFilter_tests: " + file +
                   ":[0-9]+: -\\[FilterTier keyForChildren:\\]: Assertion 'false' failed\\.\n");
  EXPECT_DEATH(leaf.newChildInstance(),
               "^lumvane_SubsystemCategoryFilter_tests: " + file +
                   ":[0-9]+: -\\[FilterTier newChildInstance\\]: Assertion 'false' failed\\.\n");
  EXPECT_DEATH(LVAssertionFailure("f()", "some/file", 12, "x > 0"),
               "^lumvane_SubsystemCategoryFilter_tests: some/file:12: f\\(\\): "
               "Assertion 'x > 0' failed\\.\n");
}

}  // namespace
}  // namespace lumvane

#include "lumvane/SubsystemCategoryFilter/FilterTier.h"

#include <gtest/gtest.h>

#include <vector>

#include "lumvane/SubsystemCategoryFilter/FilterNameTier.h"
#include "lumvane/SubsystemCategoryFilter/FilterRootTier.h"
#include "lumvane/platform/AssertionFailure.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using Key = FilterQuery::Key;
constexpr std::nullopt_t kAbsent = std::nullopt;

FilterQuery Q(Key s, Key c, Key n) { return FilterQuery::initWithSubsystem(s, c, n); }

// Entries are told apart by their cap; 0 stands for "no entry".
uint64_t Label(const std::shared_ptr<LVDownsampleEntry>& entry) { return entry ? entry->cap() : 0; }

TEST(FilterTierTest, LookupReturnsTheDeepestEntryOnThePath) {
  struct Insert { Key s, c, n; uint64_t label; };
  struct Row { std::vector<Insert> tree; Key s, c, n; uint64_t expected; };
  const uint64_t A = 1, B = 2, R = 3;
  const std::vector<Row> rows = {
      {{{"S", kAbsent, kAbsent, A}}, "S", "C", "N", A},
      {{{"S", kAbsent, kAbsent, A}}, "S", kAbsent, kAbsent, A},
      {{{"S", kAbsent, kAbsent, A}}, "T", "C", "N", 0},
      {{{"S", kAbsent, kAbsent, A}, {"S", "C", "N", B}}, "S", "C", "N", B},
      {{{"S", kAbsent, kAbsent, A}, {"S", "C", "N", B}}, "S", "C", "M", A},
      {{{"S", kAbsent, kAbsent, A}, {"S", "C", "N", B}}, "S", "D", "N", A},
      {{{"S", "C", kAbsent, A}}, "S", "C", "N", A},
      {{{"S", "C", "N", B}}, "S", "C", kAbsent, 0},
      {{{"S", "C", "N", B}}, "S", kAbsent, "N", 0},
      {{{kAbsent, kAbsent, kAbsent, R}, {"S", kAbsent, kAbsent, A}}, "T", "C", "N", R},
      // A name without a category lands at the subsystem tier.
      {{{"S", kAbsent, "N", A}}, "S", "C", "N", A},
      // Keys are exact: letter case makes another subsystem.
      {{{"S", kAbsent, kAbsent, A}}, "s", "C", "N", 0},
      {{}, kAbsent, kAbsent, kAbsent, 0},
      {{}, "S", "C", "N", 0},
  };
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    FilterRootTier root;
    for (const Insert& in : row.tree) root.setCap(in.label, 1, Q(in.s, in.c, in.n));
    EXPECT_EQ(Label(root.entryForQuery(Q(row.s, row.c, row.n))), row.expected) << "row " << i;
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

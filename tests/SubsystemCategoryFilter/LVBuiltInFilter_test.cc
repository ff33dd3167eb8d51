#include "lumvane/SubsystemCategoryFilter/LVBuiltInFilter.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "tests/SubsystemCategoryFilter/TestObjects.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using testing::Object;

// Under ctest each test runs in its own process, so this is a true first
// request; run in one process with the others it still checks identity.
TEST(LVBuiltInFilterTest, ConcurrentFirstRequestsGetOneFilter) {
  constexpr int kThreads = 8;
  std::vector<LVSubsystemCategoryNameFilter*> seen(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back(
        [t, &seen] { seen[t] = LVBuiltInFilterForPlatform(LVPlatformBelvos).get(); });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(std::set<LVSubsystemCategoryNameFilter*>(seen.begin(), seen.end()).size(), 1u);
  EXPECT_NE(seen[0], nullptr);
}

TEST(LVBuiltInFilterTest, OnlyArdenosAndBelvosHaveFiltersWithTheirOwnRules) {
  for (uint32_t p : {0u, 3u, 4u, 5u, 6u, 0xffffffffu}) {
    EXPECT_EQ(LVBuiltInFilterForPlatform(static_cast<LVPlatform>(p)), nullptr) << p;
  }
  testing::ScopedLogCapture capture;
  auto ardenos = LVBuiltInFilterForPlatform(LVPlatformArdenos);
  auto belvos = LVBuiltInFilterForPlatform(LVPlatformBelvos);
  ASSERT_TRUE(ardenos && belvos);
  EXPECT_NE(ardenos, belvos);
  const SignpostObject tallowmark = Object("com.orvel.velmarsh.quillary", "signpost", "Tallowmark");
  for (int i = 0; i < 1010; ++i) {
    ASSERT_FALSE(ardenos->shouldReportObject(tallowmark));
    ASSERT_TRUE(ardenos->shouldReportObject(
        Object("com.orvel.velmarsh.quillary", "signpost", "Other")));
  }
  EXPECT_TRUE(ardenos->shouldReportObject(Object("com.orvel.Lanternfield", "C", "N")));
  EXPECT_TRUE(capture.log().messages().empty());

  // Belvos: these rules sit at the name level only.
  const std::pair<SignpostObject, bool> rules[] = {
      {tallowmark, false},
      {Object("com.orvel.Pettimore.HighSeverity", "MurkwaterCondition", "HollowgateCondition"),
       false},
      {Object("com.orvel.Pettimore.MediumSeverity", "EmberlockCondition", "FennrowBatchIndex"),
       false},
      {Object("com.orvel.Pettimore.HighSeverity", "MurkwaterCondition", std::nullopt), true},
      {Object("com.orvel.velmarsh.quillary", "signpost", "tallowmark"), true}};
  for (const auto& [object, reported] : rules) {
    EXPECT_EQ(belvos->shouldReportObject(object), reported) << object.name().value_or("-");
  }

  // Every holder shares the Lanternfield entry: cap 500, one in 503.
  const SignpostObject lantern = Object("com.orvel.Lanternfield", "any", std::nullopt);
  auto entry = belvos->downsampleEntryForObject(lantern);
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->cap(), 500u);
  EXPECT_EQ(entry->downsampleRatio(), 503u);
  // The filter lives as long as the process; other runs of this test in the
  // same process may have counted already, so start from fresh counters.
  entry->setEventsSeen(0);
  entry->setEventsReported(0);
  for (int i = 1; i <= 502; ++i) ASSERT_FALSE(belvos->shouldReportObject(lantern)) << i;
  EXPECT_TRUE(belvos->shouldReportObject(lantern));
  // Another holder's object is number 504 of the same entry.
  EXPECT_FALSE(LVBuiltInFilterForPlatform(LVPlatformBelvos)->shouldReportObject(
      Object("com.orvel.Lanternfield", "x", "y")));
  EXPECT_EQ(entry->eventsSeen(), 504u);
}

}  // namespace
}  // namespace lumvane

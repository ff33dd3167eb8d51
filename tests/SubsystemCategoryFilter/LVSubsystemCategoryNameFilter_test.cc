#include "lumvane/SubsystemCategoryFilter/LVSubsystemCategoryNameFilter.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "lumvane/SubsystemCategoryFilter/LVBuiltInFilter.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using Opt = std::optional<std::string>;

SignpostObject Object(Opt subsystem, Opt category, Opt name) {
  SignpostObjectProperties p;
  p.subsystem = std::move(subsystem), p.category = std::move(category), p.name = std::move(name);
  return SignpostObject(std::move(p));
}

Value Rule(std::initializer_list<Dictionary::Entry> entries) { return Value(Dictionary(entries)); }
Value Int(int64_t v) { return Value(Number::fromInt64(v)); }

TEST(LVSubsystemCategoryNameFilterTest, RequiredKeysAreCheckedInOrderAndStopTheTable) {
  testing::ScopedLogCapture capture;
  EXPECT_EQ(LVSubsystemCategoryNameFilter::initWithDictionaryArray(std::nullopt), nullptr);
  EXPECT_TRUE(capture.log().messages().empty());
  const std::vector<std::pair<Array, std::string>> cases = {
      // The second rule lacks "Cap"; the third is faulty too but is never read.
      {{Rule({{"Subsystem", "S"}, {"Cap", Int(1)}, {"DownsampleRatio", Int(1)}}),
        Rule({{"Subsystem", "T"}, {"DownsampleRatio", Int(1)}}), Rule({{"Cap", Int(1)}})},
       "Missing required cap"},
      {{Rule({{"DownsampleRatio", Int(1)}})}, "Missing required subsystem"},
      {{Rule({{"Subsystem", "S"}})}, "Missing required cap"},
      {{Rule({{"Subsystem", "S"}, {"Cap", Int(1)}})}, "Missing required downsample ratio"},
      {{Value("not a rule")}, "Filter rule 0 is not a dictionary"},
      {{Rule({{"Subsystem", "S"}, {"Cap", "5"}})}, "Filter rule 0: \"Cap\" is not a number"},
      {{Rule({{"Subsystem", "S"}, {"Cap", Int(1)}, {"DownsampleRatio", Int(1)}, {"Category", Int(1)}})},
       "Filter rule 0: \"Category\" is not a string"},
  };
  for (const auto& [rules, message] : cases) {
    capture.log().clear();
    EXPECT_EQ(LVSubsystemCategoryNameFilter::initWithDictionaryArray(rules), nullptr) << message;
    EXPECT_EQ(capture.log().messages(), std::vector<std::string>{message});
  }
}

TEST(LVSubsystemCategoryNameFilterTest, MostSpecificRuleCountsAndUngovernedObjectsPass) {
  testing::ScopedLogCapture capture;
  Array table = {
      Rule({{"Subsystem", "S"}, {"Cap", Int(100)}, {"DownsampleRatio", Int(1)}, {"Extra", "x"}}),
      Rule({{"Subsystem", "S"}, {"Category", "C"}, {"Name", "N"}, {"Cap", Int(0)},
            {"DownsampleRatio", Int(1)}}),
      // A name without a category governs the whole subsystem.
      Rule({{"Subsystem", "W"}, {"Name", "N"}, {"Cap", Int(0)}, {"DownsampleRatio", Int(1)}}),
      // Replaced by the next rule for the same path.
      Rule({{"Subsystem", "V"}, {"Cap", Int(0)}, {"DownsampleRatio", Int(1)}}),
      Rule({{"Subsystem", "V"}, {"Cap", Int(1)}, {"DownsampleRatio", Int(1)}}),
  };
  auto filter = LVSubsystemCategoryNameFilter::initWithDictionaryArray(table);
  ASSERT_TRUE(filter);
  auto wide = filter->downsampleEntryForObject(Object("S", "Z", std::nullopt));
  auto narrow = filter->downsampleEntryForObject(Object("S", "C", "N"));
  ASSERT_TRUE(wide && narrow);
  EXPECT_FALSE(filter->shouldReportObject(Object("S", "C", "N")));
  EXPECT_FALSE(filter->shouldReportObject(Object("S", "C", "N")));
  EXPECT_TRUE(filter->shouldReportObject(Object("S", "C", "M")));
  EXPECT_EQ(narrow->eventsSeen(), 2u);
  EXPECT_EQ(wide->eventsSeen(), 1u);
  EXPECT_EQ(filter->downsampleEntryForObject(Object("U", "C", "N")), nullptr);
  EXPECT_TRUE(filter->shouldReportObject(Object("U", "C", "N")));
  EXPECT_FALSE(filter->shouldReportObject(Object("W", "any", "other")));
  EXPECT_TRUE(filter->shouldReportObject(Object("V", "C", "N")));   // new entry, cap 1
  EXPECT_FALSE(filter->shouldReportObject(Object("V", "C", "N")));  // cap reached
  EXPECT_TRUE(capture.log().messages().empty());
}

// Under ctest each test runs in its own process, so this is a true first
// request; run in one process with the others it still checks identity.
TEST(LVBuiltInFilterTest, ConcurrentFirstRequestsGetOneFilter) {
  std::vector<LVSubsystemCategoryNameFilter*> seen(8);
  std::vector<std::thread> threads;
  for (auto& s : seen) threads.emplace_back([&s] { s = LVBuiltInFilterForPlatform(LVPlatformBelvos).get(); });
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
    ASSERT_TRUE(ardenos->shouldReportObject(Object("com.orvel.velmarsh.quillary", "signpost", "Other")));
  }
  EXPECT_TRUE(ardenos->shouldReportObject(Object("com.orvel.Lanternfield", "C", "N")));
  EXPECT_TRUE(capture.log().messages().empty());

  // Belvos: these rules sit at the name level only.
  const std::pair<SignpostObject, bool> rules[] = {
      {tallowmark, false},
      {Object("com.orvel.Pettimore.HighSeverity", "MurkwaterCondition", "HollowgateCondition"), false},
      {Object("com.orvel.Pettimore.MediumSeverity", "EmberlockCondition", "FennrowBatchIndex"), false},
      {Object("com.orvel.Pettimore.HighSeverity", "MurkwaterCondition", std::nullopt), true},
      {Object("com.orvel.velmarsh.quillary", "signpost", "tallowmark"), true}};
  for (const auto& [object, reported] : rules) {
    EXPECT_EQ(belvos->shouldReportObject(object), reported) << object.name().value_or("-");
  }

  // Every holder shares the Lanternfield entry: cap 500, one in 503. The
  // filter lives as long as the process, so start from fresh counters.
  const SignpostObject lantern = Object("com.orvel.Lanternfield", "any", std::nullopt);
  auto entry = belvos->downsampleEntryForObject(lantern);
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->cap(), 500u);
  EXPECT_EQ(entry->downsampleRatio(), 503u);
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

#include "lumvane/SubsystemCategoryFilter/LVSubsystemCategoryNameFilter.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/SubsystemCategoryFilter/TestObjects.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using testing::Object;

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
      {{Rule({{"Subsystem", "S"}, {"Cap", Int(1)}, {"DownsampleRatio", Int(1)},
              {"Category", Int(1)}})},
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

}  // namespace
}  // namespace lumvane

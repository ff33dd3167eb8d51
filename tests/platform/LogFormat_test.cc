#include "lumvane/platform/LogFormat.h"

#include <gtest/gtest.h>

#include "lumvane/signpost/Value.h"

namespace lumvane {
namespace {

TEST(LogFormatTest, ObjectsStringsAndAbsentValues) {
  std::optional<std::string> none;
  std::optional<std::string> some = "sub";
  EXPECT_EQ(LVFormat("%@/%@%@", some, none, std::string("x")), "sub/(null)x");
  EXPECT_EQ(LVFormat("Boot disk type: %@", "SSD"), "Boot disk type: SSD");
  EXPECT_EQ(LVFormat("%@", Value(Number::fromFloat(1.5f))), "1.5");
  EXPECT_EQ(LVFormat("%s|%s", "a", static_cast<const char*>(nullptr)), "a|(null)");
  EXPECT_EQ(LVFormat("Found bundle ID: \"%@\"", "com.x"), "Found bundle ID: \"com.x\"");
}

TEST(LogFormatTest, IntegerAndFloatSpecsFollowTheArgumentNotTheLengthModifier) {
  EXPECT_EQ(LVFormat("%lu elements", 940), "940 elements");
  EXPECT_EQ(LVFormat("%llu", UINT64_MAX), "18446744073709551615");
  EXPECT_EQ(LVFormat("Unknown state %ld\n", -7), "Unknown state -7\n");
  EXPECT_EQ(LVFormat("Sleeping for %u us", 100000u), "Sleeping for 100000 us");
  EXPECT_EQ(LVFormat("%.2fs", 12.3456), "12.35s");
  EXPECT_EQ(LVFormat("%f us", 125000.0), "125000.000000 us");
  EXPECT_EQ(LVFormat("100%% %d", 5), "100% 5");
  // Too few arguments never reads past the end.
  EXPECT_EQ(LVFormat("%@ and %d"), "(null) and 0");
}

}  // namespace
}  // namespace lumvane

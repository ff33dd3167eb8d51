#include "lumvane/signpost/FormatArgumentMatcher.h"

#include <gtest/gtest.h>

#include "lumvane/signpost/LogStoreTimestamp.h"

namespace lumvane {
namespace {

SignpostArguments Extract(const std::string& format, const std::string& message) {
  FormatArgumentMatcher matcher;
  SignpostArguments out;
  matcher.extract(format, message, &out);
  return out;
}

TEST(FormatArgumentMatcherTest, NamesAndValuesComeFromTheTextAroundEachPlaceholder) {
  const SignpostArguments a = Extract(
      "Load %d%% of %{public}s: ErrorCode=%{public,signpost.telemetry:string1}s, "
      "Bytes=%{public,signpost.telemetry:number1}llu Temp=%{ signpost.telemetry:number2 }.1f "
      "%{signpost.telemetry:string2}s.",
      "Load 50% of a, b: ErrorCode=E=1, x, Bytes=18446744073709551615 Temp=-2.5 unnamed.");
  ASSERT_TRUE(a.string1);
  EXPECT_EQ(a.string1->name, "ErrorCode");
  EXPECT_EQ(a.string1->value, "E=1, x");
  ASSERT_TRUE(a.number1);
  EXPECT_EQ(a.number1->name, "Bytes");
  EXPECT_EQ(a.number1->value, Number::fromUInt64(18446744073709551615u));
  ASSERT_TRUE(a.number2);
  EXPECT_EQ(a.number2->value, Number::fromDouble(-2.5));
  EXPECT_FALSE(a.string2);  // no "name=" before it
}

TEST(FormatArgumentMatcherTest, NumberSlotsNeedNumbersAndMismatchesFillNothing) {
  const std::string f = "A=%{signpost.telemetry:number1}d B=%{signpost.telemetry:number2}x";
  SignpostArguments a = Extract(f, "A=abc B=ff");
  EXPECT_FALSE(a.number1);
  ASSERT_TRUE(a.number2);
  EXPECT_EQ(a.number2->value, Number::fromUInt64(255));
  a = Extract(f, "A=-12 B=zz");
  EXPECT_EQ(a.number1->value, Number::fromInt64(-12));
  EXPECT_FALSE(a.number2);
  EXPECT_TRUE(Extract(f, "unrelated message").empty());
  // Adjacent placeholders: the number takes its digits, the string the rest.
  a = Extract("N=%{signpost.telemetry:number1}u%{public}s", "N=42ms");
  EXPECT_EQ(a.number1->value, Number::fromUInt64(42));
}

TEST(LogStoreTimestampTest, ReadsOffsetsAndRejectsMalformedText) {
  const Date utc = *ParseLogStoreTimestamp("2024-03-01 00:00:00.000001+0000");
  EXPECT_EQ(*ParseLogStoreTimestamp("2024-02-29 23:30:00.000001-0030"), utc);
  EXPECT_EQ(*ParseLogStoreTimestamp("2024-03-01T05:30:00.000001+05:30"), utc);
  EXPECT_EQ(FormatLogStoreTimestamp(utc, -30), "2024-02-29 23:30:00.000001-0030");
  for (const char* bad : {"2023-02-29 00:00:00.0+0000", "2024-03-01 00:00:00.000001",
                          "2024-03-01 00:00:00.+0000", "2024-03-01 24:00:00+0000",
                          "2024-03-01 00:00:00+0000x"}) {
    EXPECT_FALSE(ParseLogStoreTimestamp(bad)) << bad;
  }
}

}  // namespace
}  // namespace lumvane

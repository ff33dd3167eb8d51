#include "lumvane/signpost/Value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace lumvane {
namespace {

TEST(NumberTest, KindsAreKeptAndConversionsAreDefinedEverywhere) {
  // Same value, different kind: not equal (a payload must not mix them up).
  // The descriptions below tell float from double and unsigned from signed.
  EXPECT_NE(Number::fromInt64(1), Number::fromUInt64(1));

  EXPECT_EQ(Number::fromInt64(-1).uint64Value(), std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(Number::fromUInt64(UINT64_MAX).uint64Value(), UINT64_MAX);
  EXPECT_EQ(Number::fromDouble(1e30).uint64Value(), UINT64_MAX);
  EXPECT_EQ(Number::fromDouble(std::nan("")).int64Value(), 0);
  EXPECT_EQ(Number::fromDouble(-2.7).int64Value(), -2);
  EXPECT_TRUE(Number::fromDouble(0.25).boolValue());
  EXPECT_FALSE(Number::fromInt64(0).boolValue());

  EXPECT_EQ(Number::fromFloat(0.1f).description(), "0.1");
  EXPECT_EQ(Number::fromUInt64(18446744073709551615ull).description(), "18446744073709551615");
  EXPECT_EQ(Number::fromBool(true).description(), "1");
}

TEST(DictionaryTest, KeepsFirstSetOrderReplacesInPlaceAndSkipsAbsentValues) {
  Dictionary d;
  d.set("b", "1");
  d.set("a", Number::fromInt64(2));
  d.set("missing", std::optional<std::string>());
  d.set("b", "3");
  ASSERT_EQ(d.keys(), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(*d.find("b"), Value("3"));
  EXPECT_EQ(d.find("a")->asString(), nullptr);

  Value nested(Array{Value("x"), Value(Dictionary{{"k", Value(Number::fromInt64(1))}})});
  EXPECT_EQ(nested.description(), "(x, {k = 1})");
}

}  // namespace
}  // namespace lumvane

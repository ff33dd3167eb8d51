#include "lumvane/filter/LumvaneAggregation.h"

#include <gtest/gtest.h>

#include "lumvane/signpost/SignpostObject.h"

namespace lumvane {
namespace {

using Key = LumvaneAggregationKey;

// A key subclass with a meaning of its own: a plain key never equals it.
class TaggedKey final : public Key {
 public:
  using Key::Key;

 protected:
  bool isSameOrDerivedType(const Key& other) const override {
    return dynamic_cast<const TaggedKey*>(&other) != nullptr;
  }
};

TEST(LumvaneAggregationKeyTest, EqualityHashCopyAndText) {
  Key a("com.orvel.a", "cat");
  EXPECT_TRUE(a.isEqual(Key("com.orvel.a", "cat")));
  EXPECT_EQ(a.hash(), Key("com.orvel.a", "cat").hash());
  EXPECT_FALSE(a.isEqual(Key("com.orvel.a", "other")));
  EXPECT_FALSE(Key("ab", "c").isEqual(Key("a", "bc")));
  EXPECT_FALSE(a.isEqual(SignpostObject(SignpostObjectProperties{})));

  // An absent part equals nothing, not even another absent part; a key
  // always equals itself.
  Key noCategory("com.orvel.a", std::nullopt);
  EXPECT_FALSE(noCategory.isEqual(Key("com.orvel.a", std::nullopt)));
  EXPECT_TRUE(noCategory.isEqual(noCategory));
  EXPECT_EQ(noCategory.hash(), std::hash<std::string>()("com.orvel.a"));
  EXPECT_EQ(noCategory.description(), "com.orvel.a/(null)");

  // The receiver's class decides; a copy is always a plain key.
  TaggedKey tagged("com.orvel.a", "cat");
  EXPECT_TRUE(a.isEqual(tagged));
  EXPECT_FALSE(tagged.isEqual(a));
  auto copied = tagged.copy();
  EXPECT_EQ(typeid(*copied), typeid(Key));
  EXPECT_TRUE(copied->isEqual(a));
}

TEST(LumvaneAggregationTest, CountsTotalsAndStableDescendingOrder) {
  LumvaneAggregation agg;
  EXPECT_TRUE(agg.keysInDescendingCountOrder().empty());
  // Insert order: b (1), a (3), c (1), d (3), a second-category pair (1), and
  // twice a pair without category, which never finds its earlier entry.
  for (const char* s : {"b", "a", "a", "a", "c", "d", "d", "d"}) agg.incrementSubsystem(s, "x");
  agg.incrementSubsystem("a", "y");
  agg.incrementSubsystem("s", std::nullopt);
  agg.incrementSubsystem("s", std::nullopt);

  EXPECT_EQ(agg.countForSubsystem("a", "x"), 3u);
  EXPECT_EQ(agg.countForSubsystem("a", "z"), 0u);
  EXPECT_EQ(agg.countForSubsystem("s", std::nullopt), 0u);
  EXPECT_EQ(agg.totalCount(), 11u);
  std::vector<std::string> order;
  for (const auto& key : agg.keysInDescendingCountOrder()) {
    order.push_back(key->description() + "=" +
                    std::to_string(agg.aggregationDictionary().at(key)));
  }
  EXPECT_EQ(order, (std::vector<std::string>{"a/x=3", "d/x=3", "b/x=1", "c/x=1", "a/y=1",
                                             "s/(null)=1", "s/(null)=1"}));
}

}  // namespace
}  // namespace lumvane

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
  bool isKindOfThisClass(const Key& other) const override {
    return dynamic_cast<const TaggedKey*>(&other) != nullptr;
  }
};

TEST(LumvaneAggregationKeyTest, EqualityHashCopyAndText) {
  Key a("com.orvel.a", "cat");
  Key same("com.orvel.a", "cat");
  EXPECT_TRUE(a.isEqual(same));
  EXPECT_EQ(a.hash(), same.hash());
  EXPECT_FALSE(a.isEqual(Key("com.orvel.a", "other")));
  EXPECT_FALSE(a.isEqual(Key("com.orvel.b", "cat")));
  // Parts are compared separately, never as a joined string.
  EXPECT_FALSE(Key("ab", "c").isEqual(Key("a", "bc")));

  // An absent part equals nothing, not even another absent part, yet a key
  // always equals itself.
  Key noCategory("com.orvel.a", std::nullopt);
  EXPECT_FALSE(noCategory.isEqual(Key("com.orvel.a", std::nullopt)));
  EXPECT_TRUE(noCategory.isEqual(noCategory));
  EXPECT_FALSE(a.isEqual(noCategory));
  EXPECT_FALSE(noCategory.isEqual(a));
  EXPECT_EQ(noCategory.hash(), std::hash<std::string>()("com.orvel.a"));
  EXPECT_EQ(Key(std::nullopt, std::nullopt).hash(), 0u);

  SignpostObject unrelated(SignpostObjectProperties{});
  EXPECT_FALSE(a.isEqual(unrelated));
  EXPECT_FALSE(a.isEqual(std::string("com.orvel.a/cat")));

  // The receiver's class decides: a plain key accepts a subclass instance,
  // the subclass rejects a plain key.
  TaggedKey tagged("com.orvel.a", "cat");
  EXPECT_TRUE(a.isEqual(tagged));
  EXPECT_FALSE(tagged.isEqual(a));

  auto copied = tagged.copy();
  EXPECT_NE(copied.get(), static_cast<const Key*>(&tagged));
  EXPECT_EQ(typeid(*copied), typeid(Key));
  EXPECT_TRUE(copied->isEqual(a));

  std::string subsystem = "com.orvel.mutable";
  auto original = Key::initWithSubsystem(subsystem, std::string("cat"));
  auto copy = original->copy();
  subsystem[0] = 'X';
  EXPECT_EQ(copy->subsystem(), "com.orvel.mutable");
  EXPECT_TRUE(copy->isEqual(*original));

  EXPECT_EQ(a.description(), "com.orvel.a/cat");
  EXPECT_EQ(noCategory.description(), "com.orvel.a/(null)");
}

TEST(LumvaneAggregationTest, CountsTotalsAndStableDescendingOrder) {
  LumvaneAggregation agg;
  EXPECT_EQ(agg.totalCount(), 0u);
  EXPECT_TRUE(agg.keysInDescendingCountOrder().empty());
  EXPECT_EQ(agg.countForSubsystem("s", "c"), 0u);

  // Insert order: b (1), a (3), c (1), d (3), a second-category pair (1).
  agg.incrementSubsystem("b", "x");
  for (int i = 0; i < 3; ++i) agg.incrementSubsystem("a", "x");
  agg.incrementSubsystem("c", "x");
  for (int i = 0; i < 3; ++i) agg.incrementSubsystem("d", "x");
  agg.incrementSubsystem("a", "y");

  EXPECT_EQ(agg.countForSubsystem("a", "x"), 3u);
  EXPECT_EQ(agg.countForSubsystem("a", "y"), 1u);
  EXPECT_EQ(agg.countForSubsystem("a", "z"), 0u);
  EXPECT_EQ(agg.totalCount(), 9u);

  std::vector<std::string> order;
  uint64_t sum = 0;
  for (const auto& key : agg.keysInDescendingCountOrder()) {
    order.push_back(key->description());
    sum += agg.aggregationDictionary().at(key);
  }
  EXPECT_EQ(order, (std::vector<std::string>{"a/x", "d/x", "b/x", "c/x", "a/y"}));
  EXPECT_EQ(sum, agg.totalCount());
}

TEST(LumvaneAggregationTest, PairsWithAnAbsentPartGetAnEntryPerIncrement) {
  LumvaneAggregation agg;
  agg.incrementSubsystem("s", std::nullopt);
  agg.incrementSubsystem("s", std::nullopt);
  agg.incrementSubsystem(std::nullopt, std::nullopt);
  EXPECT_EQ(agg.totalCount(), 3u);
  EXPECT_EQ(agg.aggregationDictionary().size(), 3u);
  EXPECT_EQ(agg.countForSubsystem("s", std::nullopt), 0u);
  auto keys = agg.keysInDescendingCountOrder();
  ASSERT_EQ(keys.size(), 3u);
  for (const auto& key : keys) EXPECT_EQ(agg.aggregationDictionary().at(key), 1u);
  EXPECT_EQ(keys[0]->description(), "s/(null)");
  EXPECT_EQ(keys[2]->description(), "(null)/(null)");
}

}  // namespace
}  // namespace lumvane

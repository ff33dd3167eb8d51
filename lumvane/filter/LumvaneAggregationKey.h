// Names one (subsystem, category) pair of a count table. Immutable once built.
//
// Identity is deliberately strict: two keys are equal only when both parts
// are present and equal, so a key with an absent subsystem or category equals
// no key but itself. A count table therefore never merges pairs it cannot
// name, and gives each such increment an entry of its own.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

namespace lumvane {

class LumvaneAggregationKey {
 public:
  LumvaneAggregationKey(std::optional<std::string> subsystem, std::optional<std::string> category)
      : subsystem_(std::move(subsystem)), category_(std::move(category)) {}
  virtual ~LumvaneAggregationKey() = default;

  static std::shared_ptr<const LumvaneAggregationKey> initWithSubsystem(
      std::optional<std::string> subsystem, std::optional<std::string> category);

  const std::optional<std::string>& subsystem() const { return subsystem_; }
  const std::optional<std::string>& category() const { return category_; }

  // Equal to itself; otherwise `other` must be a key of this key's class (or
  // a subclass of it) whose subsystem, then category, are present and equal
  // to this key's. Any object of an unrelated class is not equal.
  template <typename T>
  bool isEqual(const T& other) const {
    if (static_cast<const void*>(std::addressof(other)) == static_cast<const void*>(this)) {
      return true;
    }
    if constexpr (std::is_polymorphic_v<T>) {
      return isEqualToKey(dynamic_cast<const LumvaneAggregationKey*>(std::addressof(other)));
    } else {
      return false;
    }
  }

  // hash(subsystem) XOR hash(category); an absent part contributes 0.
  std::size_t hash() const;

  // A new key of exactly this class holding copies of both strings, also
  // when this key is of a subclass.
  std::shared_ptr<const LumvaneAggregationKey> copy() const;

  // "subsystem/category"; an absent part prints as "(null)".
  std::string description() const;

 protected:
  LumvaneAggregationKey(const LumvaneAggregationKey&) = default;
  LumvaneAggregationKey& operator=(const LumvaneAggregationKey&) = delete;

  // Whether `other`'s dynamic type is this key's type or derives from it. A
  // subclass that adds meaning to keys overrides this with a dynamic_cast to
  // its own type, so that a plain key never equals it.
  virtual bool isSameOrDerivedType(const LumvaneAggregationKey& other) const;

 private:
  bool isEqualToKey(const LumvaneAggregationKey* other) const;

  const std::optional<std::string> subsystem_;
  const std::optional<std::string> category_;
};

// Hasher and equality for hashed containers of shared keys, reproducing the
// key's own identity rules (an instance always finds itself).
struct LumvaneAggregationKeyHash {
  std::size_t operator()(const std::shared_ptr<const LumvaneAggregationKey>& key) const {
    return key ? key->hash() : 0;
  }
};
struct LumvaneAggregationKeyEqual {
  bool operator()(const std::shared_ptr<const LumvaneAggregationKey>& a,
                  const std::shared_ptr<const LumvaneAggregationKey>& b) const {
    if (a == b) return true;
    return a && b && a->isEqual(*b);
  }
};

}  // namespace lumvane

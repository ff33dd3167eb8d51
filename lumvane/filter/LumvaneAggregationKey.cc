#include "lumvane/filter/LumvaneAggregationKey.h"

#include <functional>

namespace lumvane {
namespace {

// String equality in which an absent string on either side never matches.
bool PresentAndEqual(const std::optional<std::string>& mine,
                     const std::optional<std::string>& theirs) {
  return mine.has_value() && theirs.has_value() && *mine == *theirs;
}

std::size_t HashOf(const std::optional<std::string>& s) {
  return s ? std::hash<std::string>()(*s) : 0;
}

}  // namespace

std::shared_ptr<const LumvaneAggregationKey> LumvaneAggregationKey::initWithSubsystem(
    std::optional<std::string> subsystem, std::optional<std::string> category) {
  return std::make_shared<const LumvaneAggregationKey>(std::move(subsystem), std::move(category));
}

bool LumvaneAggregationKey::isSameOrDerivedType(const LumvaneAggregationKey&) const {
  return true;
}

bool LumvaneAggregationKey::isEqualToKey(const LumvaneAggregationKey* other) const {
  if (other == nullptr || !isSameOrDerivedType(*other)) return false;
  // The category is looked at only once the subsystems agree.
  if (!PresentAndEqual(subsystem_, other->subsystem_)) return false;
  return PresentAndEqual(category_, other->category_);
}

std::size_t LumvaneAggregationKey::hash() const {
  return HashOf(subsystem_) ^ HashOf(category_);
}

std::shared_ptr<const LumvaneAggregationKey> LumvaneAggregationKey::copy() const {
  return std::make_shared<const LumvaneAggregationKey>(subsystem_, category_);
}

std::string LumvaneAggregationKey::description() const {
  std::string text = subsystem_.value_or("(null)");
  text += '/';
  text += category_.value_or("(null)");
  return text;
}

}  // namespace lumvane

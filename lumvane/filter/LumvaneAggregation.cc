#include "lumvane/filter/LumvaneAggregation.h"

#include <algorithm>

namespace lumvane {

void LumvaneAggregation::incrementSubsystem(const std::optional<std::string>& subsystem,
                                            const std::optional<std::string>& category) {
  // The key is built from copies of the strings, so the stored key never
  // depends on the caller's objects.
  auto key = LumvaneAggregationKey::initWithSubsystem(subsystem, category);
  auto [it, inserted] = dictionary_.try_emplace(key, 0);
  it->second += 1;
  if (inserted) insertionOrder_.push_back(std::move(key));
  totalCount_ += 1;
}

uint64_t LumvaneAggregation::countForSubsystem(const std::optional<std::string>& subsystem,
                                               const std::optional<std::string>& category) const {
  auto it = dictionary_.find(LumvaneAggregationKey::initWithSubsystem(subsystem, category));
  return it == dictionary_.end() ? 0 : it->second;
}

std::vector<std::shared_ptr<const LumvaneAggregationKey>>
LumvaneAggregation::keysInDescendingCountOrder() const {
  std::vector<std::pair<uint64_t, std::shared_ptr<const LumvaneAggregationKey>>> ranked;
  ranked.reserve(insertionOrder_.size());
  for (const auto& key : insertionOrder_) ranked.emplace_back(dictionary_.at(key), key);
  std::stable_sort(ranked.begin(), ranked.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  std::vector<std::shared_ptr<const LumvaneAggregationKey>> keys;
  keys.reserve(ranked.size());
  for (auto& entry : ranked) keys.push_back(std::move(entry.second));
  return keys;
}

}  // namespace lumvane

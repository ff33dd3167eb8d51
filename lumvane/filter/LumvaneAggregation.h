// Counts signpost objects per (subsystem, category) pair and keeps a grand
// total. The object filter owns several of these for one run; the end-of-run
// report reads them afterwards.
//
// Not thread-safe: one thread at a time updates or reads an aggregation (the
// extractor's callbacks during a run, the report after it).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "lumvane/filter/LumvaneAggregationKey.h"

namespace lumvane {

class LumvaneAggregation {
 public:
  using Dictionary = std::unordered_map<std::shared_ptr<const LumvaneAggregationKey>, uint64_t,
                                        LumvaneAggregationKeyHash, LumvaneAggregationKeyEqual>;

  LumvaneAggregation() = default;

  // Adds one to the pair's count and to the total. A pair with an absent part
  // matches no stored key, so each such increment adds a fresh entry.
  void incrementSubsystem(const std::optional<std::string>& subsystem,
                          const std::optional<std::string>& category);

  // The pair's count, 0 when it has none (always 0 for a pair with an absent
  // part).
  uint64_t countForSubsystem(const std::optional<std::string>& subsystem,
                             const std::optional<std::string>& category) const;

  // Every stored key, highest count first; keys with equal counts keep the
  // order in which they were first counted.
  std::vector<std::shared_ptr<const LumvaneAggregationKey>> keysInDescendingCountOrder() const;

  uint64_t totalCount() const { return totalCount_; }

  // Key -> count. Look up with the keys of keysInDescendingCountOrder() (a
  // stored key always finds itself). Every count is at least 1.
  const Dictionary& aggregationDictionary() const { return dictionary_; }

 private:
  Dictionary dictionary_;
  // The stored keys in first-insertion order, for a stable ranking.
  std::vector<std::shared_ptr<const LumvaneAggregationKey>> insertionOrder_;
  uint64_t totalCount_ = 0;
};

}  // namespace lumvane

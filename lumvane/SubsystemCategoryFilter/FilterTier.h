// One tier of the subsystem/category/name filter tree, a prefix tree of fixed
// depth: the root's children are keyed by subsystem, a subsystem tier's by
// category, a category tier's by name, and name tiers are leaves. Any tier
// may carry one downsample entry. Lookup returns the entry of the deepest
// tier on the query's path that carries one, so the most specific rule wins
// and a less specific one is the fallback.
//
// FilterTier is the abstract base: the concrete tiers (FilterRootTier,
// FilterSubsystemTier, FilterCategoryTier, FilterNameTier) say which string
// of a query keys their children and which tier comes next.
//
// Thread-safety: no locks. Insertion (setCap) mutates child maps and must not
// overlap any other operation on the same tree; once built, the tree's shape
// never changes and lookups only read it. The two fields are read and written
// indivisibly: a reader always gets a whole reference.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lumvane/SubsystemCategoryFilter/FilterQuery.h"
#include "lumvane/SubsystemCategoryFilter/LVDownsampleEntry.h"

namespace lumvane {

class FilterTier {
 public:
  // Children by exact key (case matters, nothing is trimmed); std::less<>
  // lets a lookup by string_view proceed without building a string.
  using ChildMap = std::map<std::string, std::unique_ptr<FilterTier>, std::less<>>;

  virtual ~FilterTier() = default;
  FilterTier(const FilterTier&) = delete;
  FilterTier& operator=(const FilterTier&) = delete;

  // The entry governing objects addressed by query, or null. Never changes
  // the tree and never creates anything.
  std::shared_ptr<LVDownsampleEntry> entryForQuery(const FilterQuery& query) const;

  // The query's string for this tier's level, or absent when the path ends
  // here. The base version is a programming error that stops the process.
  virtual FilterQuery::Key keyForChildren(const FilterQuery& query) const;

  // A new tier of the next level down, owned by the caller. The base version
  // (inherited by the name tier, which never has children) stops the process.
  virtual std::unique_ptr<FilterTier> newChildInstance() const;

  // Creates the missing tiers along the query's path and sets, at the tier
  // where the path ends, a new entry with counters at 0, replacing any
  // earlier one. A ratio of 0 leaves that tier without an entry.
  void setCap(uint64_t cap, uint64_t downsampleRatio, const FilterQuery& query);

  std::shared_ptr<ChildMap> childTiers() const;
  void setChildTiers(std::shared_ptr<ChildMap> childTiers);
  std::shared_ptr<LVDownsampleEntry> downsampleEntry() const;
  void setDownsampleEntry(std::shared_ptr<LVDownsampleEntry> entry);

 protected:
  FilterTier() = default;

 private:
  // Accessed only through std::atomic_load/std::atomic_store.
  std::shared_ptr<ChildMap> childTiers_;
  std::shared_ptr<LVDownsampleEntry> downsampleEntry_;
};

}  // namespace lumvane

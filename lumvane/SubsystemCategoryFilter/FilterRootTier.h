// The root of the filter tree: children keyed by subsystem. Its own entry, if
// any, is the default for every object no deeper rule governs.
#pragma once

#include <memory>

#include "lumvane/SubsystemCategoryFilter/FilterTier.h"

namespace lumvane {

class FilterRootTier final : public FilterTier {
 public:
  // Starts with an empty child map and no entry.
  FilterRootTier();

  // The query's subsystem (or absent, which ends the path here).
  FilterQuery::Key keyForChildren(const FilterQuery& query) const override;
  // A new, empty FilterSubsystemTier.
  std::unique_ptr<FilterTier> newChildInstance() const override;
};

}  // namespace lumvane

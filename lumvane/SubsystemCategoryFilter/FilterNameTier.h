// A (subsystem, category, name) tier of the filter tree: a leaf. It has no
// child map and keys nothing, so an insertion that reaches it always sets
// its entry and never asks it for a child.
#pragma once

#include "lumvane/SubsystemCategoryFilter/FilterTier.h"

namespace lumvane {

class FilterNameTier final : public FilterTier {
 public:
  FilterNameTier() = default;

  // Always absent: the path ends at a name tier.
  FilterQuery::Key keyForChildren(const FilterQuery& query) const override;
};

}  // namespace lumvane

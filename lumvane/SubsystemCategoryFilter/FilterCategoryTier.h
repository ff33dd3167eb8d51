// A (subsystem, category) tier of the filter tree: children keyed by name.
// Its entry governs the category's objects that no name rule governs.
#pragma once

#include <memory>

#include "lumvane/SubsystemCategoryFilter/FilterTier.h"

namespace lumvane {

class FilterCategoryTier final : public FilterTier {
 public:
  // Starts with an empty child map and no entry.
  FilterCategoryTier();

  // The query's name (or absent, which ends the path here).
  FilterQuery::Key keyForChildren(const FilterQuery& query) const override;
  // A new, empty FilterNameTier.
  std::unique_ptr<FilterTier> newChildInstance() const override;
};

}  // namespace lumvane

// A subsystem's tier of the filter tree: children keyed by category. Its
// entry governs every object of the subsystem that no deeper rule governs.
#pragma once

#include <memory>

#include "lumvane/SubsystemCategoryFilter/FilterTier.h"

namespace lumvane {

class FilterSubsystemTier final : public FilterTier {
 public:
  // Starts with an empty child map and no entry.
  FilterSubsystemTier();

  // The query's category (or absent, which ends the path here).
  FilterQuery::Key keyForChildren(const FilterQuery& query) const override;
  // A new, empty FilterCategoryTier.
  std::unique_ptr<FilterTier> newChildInstance() const override;
};

}  // namespace lumvane

#include "lumvane/SubsystemCategoryFilter/FilterCategoryTier.h"

#include "lumvane/SubsystemCategoryFilter/FilterNameTier.h"

namespace lumvane {

FilterCategoryTier::FilterCategoryTier() { setChildTiers(std::make_shared<ChildMap>()); }

FilterQuery::Key FilterCategoryTier::keyForChildren(const FilterQuery& query) const {
  return query.name();
}

std::unique_ptr<FilterTier> FilterCategoryTier::newChildInstance() const {
  return std::make_unique<FilterNameTier>();
}

}  // namespace lumvane

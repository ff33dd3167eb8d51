#include "lumvane/SubsystemCategoryFilter/FilterSubsystemTier.h"

#include "lumvane/SubsystemCategoryFilter/FilterCategoryTier.h"

namespace lumvane {

FilterSubsystemTier::FilterSubsystemTier() { setChildTiers(std::make_shared<ChildMap>()); }

FilterQuery::Key FilterSubsystemTier::keyForChildren(const FilterQuery& query) const {
  return query.category();
}

std::unique_ptr<FilterTier> FilterSubsystemTier::newChildInstance() const {
  return std::make_unique<FilterCategoryTier>();
}

}  // namespace lumvane

#include "lumvane/SubsystemCategoryFilter/FilterRootTier.h"

#include "lumvane/SubsystemCategoryFilter/FilterSubsystemTier.h"

namespace lumvane {

FilterRootTier::FilterRootTier() { setChildTiers(std::make_shared<ChildMap>()); }

FilterQuery::Key FilterRootTier::keyForChildren(const FilterQuery& query) const {
  return query.subsystem();
}

std::unique_ptr<FilterTier> FilterRootTier::newChildInstance() const {
  return std::make_unique<FilterSubsystemTier>();
}

}  // namespace lumvane

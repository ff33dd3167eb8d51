#include "lumvane/SubsystemCategoryFilter/FilterNameTier.h"

namespace lumvane {

FilterQuery::Key FilterNameTier::keyForChildren(const FilterQuery& /*query*/) const {
  return std::nullopt;
}

}  // namespace lumvane

#include "lumvane/SubsystemCategoryFilter/FilterTier.h"

#include <utility>

#include "lumvane/platform/AssertionFailure.h"

namespace lumvane {
namespace {

// The tiers belong to the name filter; their failure reports name its file.
constexpr char kFilterSourceFile[] = "lumvane/SubsystemCategoryFilter/LVSubsystemCategoryNameFilter";

}  // namespace

std::shared_ptr<LVDownsampleEntry> FilterTier::entryForQuery(const FilterQuery& query) const {
  // A child without an entry anywhere below it on the path must not hide
  // this tier's entry, so the child's answer wins only when it has one.
  if (FilterQuery::Key key = keyForChildren(query)) {
    if (std::shared_ptr<ChildMap> children = childTiers()) {
      auto it = children->find(*key);
      if (it != children->end()) {
        if (auto entry = it->second->entryForQuery(query)) return entry;
      }
    }
  }
  return downsampleEntry();
}

FilterQuery::Key FilterTier::keyForChildren(const FilterQuery& /*query*/) const {
  LVAssertionFailure("-[FilterTier keyForChildren:]", kFilterSourceFile, __LINE__, "false");
}

std::unique_ptr<FilterTier> FilterTier::newChildInstance() const {
  LVAssertionFailure("-[FilterTier newChildInstance]", kFilterSourceFile, __LINE__, "false");
}

void FilterTier::setCap(uint64_t cap, uint64_t downsampleRatio, const FilterQuery& query) {
  FilterQuery::Key key = keyForChildren(query);
  if (!key) {
    // A zero ratio yields no entry, which drops any earlier one here.
    setDownsampleEntry(LVDownsampleEntry::initWithCap(cap, downsampleRatio));
    return;
  }
  std::shared_ptr<ChildMap> children = childTiers();
  if (!children) {
    // Only a tier that keys children reaches here, and every such tier is
    // created with a map; a missing one is made rather than dereferenced.
    children = std::make_shared<ChildMap>();
    setChildTiers(children);
  }
  auto it = children->find(*key);
  if (it == children->end()) {
    it = children->emplace(std::string(*key), newChildInstance()).first;
  }
  it->second->setCap(cap, downsampleRatio, query);
}

std::shared_ptr<FilterTier::ChildMap> FilterTier::childTiers() const {
  return std::atomic_load(&childTiers_);
}

void FilterTier::setChildTiers(std::shared_ptr<ChildMap> childTiers) {
  std::atomic_store(&childTiers_, std::move(childTiers));
}

std::shared_ptr<LVDownsampleEntry> FilterTier::downsampleEntry() const {
  return std::atomic_load(&downsampleEntry_);
}

void FilterTier::setDownsampleEntry(std::shared_ptr<LVDownsampleEntry> entry) {
  std::atomic_store(&downsampleEntry_, std::move(entry));
}

}  // namespace lumvane

#include "lumvane/SubsystemCategoryFilter/LVSubsystemCategoryNameFilter.h"

#include "lumvane/SubsystemCategoryFilter/FilterQuery.h"
#include "lumvane/SubsystemCategoryFilter/FilterRootTier.h"
#include "lumvane/filter/LVLog.h"

namespace lumvane {
namespace {

// An optional string key of a rule. False (after a debug message) when the
// key is present with a value that is not a string: treating it as absent
// would quietly widen the rule to the whole subsystem or category.
bool readOptionalString(const Dictionary& rule, const char* key, std::size_t index,
                        std::optional<std::string>* out) {
  const Value* value = rule.find(key);
  if (!value) return true;
  if (!value->isString()) {
    LVLogDebug("Filter rule %lu: \"%s\" is not a string", index, key);
    return false;
  }
  *out = *value->asString();
  return true;
}

}  // namespace

LVSubsystemCategoryNameFilter::LVSubsystemCategoryNameFilter(PassKey)
    : filterTreeRoot_(std::make_shared<FilterRootTier>()) {}

std::shared_ptr<LVSubsystemCategoryNameFilter>
LVSubsystemCategoryNameFilter::initWithDictionaryArray(const std::optional<Array>& table) {
  if (!table) return nullptr;
  auto filter = std::make_shared<LVSubsystemCategoryNameFilter>(PassKey());
  // The first unusable rule refuses the whole table: the rules added so far
  // go with the filter, and later rules are never read.
  for (std::size_t i = 0; i < table->size(); ++i) {
    if (!filter->addRule(i, (*table)[i])) return nullptr;
  }
  return filter;
}

bool LVSubsystemCategoryNameFilter::addRule(std::size_t index, const Value& value) {
  const Dictionary* rule = value.asDictionary();
  if (!rule) {
    LVLogDebug("Filter rule %lu is not a dictionary", index);
    return false;
  }
  // The required keys are checked in this order, so a rule lacking several
  // of them names only the first.
  const Value* subsystem = rule->find("Subsystem");
  if (!subsystem) {
    LVLogDebug("Missing required subsystem");
    return false;
  }
  if (!subsystem->isString()) {
    LVLogDebug("Filter rule %lu: \"Subsystem\" is not a string", index);
    return false;
  }
  const Value* cap = rule->find("Cap");
  if (!cap) {
    LVLogDebug("Missing required cap");
    return false;
  }
  if (!cap->isNumber()) {
    LVLogDebug("Filter rule %lu: \"Cap\" is not a number", index);
    return false;
  }
  const Value* ratio = rule->find("DownsampleRatio");
  if (!ratio) {
    LVLogDebug("Missing required downsample ratio");
    return false;
  }
  if (!ratio->isNumber()) {
    LVLogDebug("Filter rule %lu: \"DownsampleRatio\" is not a number", index);
    return false;
  }
  std::optional<std::string> category;
  std::optional<std::string> name;
  if (!readOptionalString(*rule, "Category", index, &category) ||
      !readOptionalString(*rule, "Name", index, &name)) {
    return false;
  }
  addEntryWithSubsystem(*subsystem->asString(), category, name, cap->asNumber()->uint64Value(),
                        ratio->asNumber()->uint64Value());
  return true;
}

void LVSubsystemCategoryNameFilter::addEntryWithSubsystem(
    const std::optional<std::string>& subsystem, const std::optional<std::string>& category,
    const std::optional<std::string>& name, uint64_t cap, uint64_t downsampleRatio) {
  filterTreeRoot_->setCap(cap, downsampleRatio,
                          FilterQuery::initWithSubsystem(subsystem, category, name));
}

std::shared_ptr<LVDownsampleEntry> LVSubsystemCategoryNameFilter::downsampleEntryForObject(
    const SignpostObject& object) const {
  return filterTreeRoot_->entryForQuery(
      FilterQuery::initWithSubsystem(object.subsystem(), object.category(), object.name()));
}

bool LVSubsystemCategoryNameFilter::shouldReportObject(const SignpostObject& object) {
  std::shared_ptr<LVDownsampleEntry> entry = downsampleEntryForObject(object);
  // An object no rule governs passes and is not counted anywhere.
  if (!entry) return true;
  return entry->shouldReportThisTime();
}

}  // namespace lumvane

#include "lumvane/SubsystemCategoryFilter/LVBuiltInFilter.h"

#include <cstdint>
#include <optional>

#include "lumvane/platform/NoDestructor.h"
#include "lumvane/signpost/Value.h"

namespace lumvane {
namespace {

// The compiled-in tables keep their numbers as signed 32-bit integers; the
// filter reads them back as unsigned 64-bit.
Value Int32(int32_t v) { return Value(Number::fromInt64(v)); }

Dictionary Rule(const char* subsystem, const char* category, const char* name, int32_t cap,
                int32_t downsampleRatio) {
  Dictionary rule;
  rule.set("Subsystem", subsystem);
  if (category) rule.set("Category", category);
  if (name) rule.set("Name", name);
  rule.set("Cap", Int32(cap));
  rule.set("DownsampleRatio", Int32(downsampleRatio));
  return rule;
}

// Function-local statics are the once-only guards: C++ initialises each one
// exactly once, and concurrent first callers wait for it.
const Array& ArdenosTable() {
  static NoDestructor<Array> table(Array{
      Rule("com.orvel.velmarsh.quillary", "signpost", "Tallowmark", 0, 503),
  });
  return *table;
}

const Array& BelvosTable() {
  static NoDestructor<Array> table(Array{
      Rule("com.orvel.Lanternfield", nullptr, nullptr, 500, 503),
      Rule("com.orvel.velmarsh.quillary", "signpost", "Tallowmark", 0, 1),
      Rule("com.orvel.Pettimore.HighSeverity", "MurkwaterCondition", "HollowgateCondition", 0, 1),
      Rule("com.orvel.Pettimore.MediumSeverity", "EmberlockCondition", "FennrowBatchIndex", 0, 1),
  });
  return *table;
}

using SharedFilter = std::shared_ptr<LVSubsystemCategoryNameFilter>;

const SharedFilter& ArdenosFilter() {
  static NoDestructor<SharedFilter> filter(
      LVSubsystemCategoryNameFilter::initWithDictionaryArray(ArdenosTable()));
  return *filter;
}

const SharedFilter& BelvosFilter() {
  static NoDestructor<SharedFilter> filter(
      LVSubsystemCategoryNameFilter::initWithDictionaryArray(BelvosTable()));
  return *filter;
}

}  // namespace

std::shared_ptr<LVSubsystemCategoryNameFilter> LVBuiltInFilterForPlatform(LVPlatform platform) {
  switch (platform) {
    case LVPlatformBelvos:
      return BelvosFilter();
    case LVPlatformArdenos:
      return ArdenosFilter();
    default:
      return nullptr;
  }
}

}  // namespace lumvane

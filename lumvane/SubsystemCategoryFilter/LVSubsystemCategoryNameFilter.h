// Decides, object by object, whether a signpost object may be reported, by
// its subsystem, category and name. Built once from a rule table; each rule
// names a subsystem and optionally a category and a name, and gives a cap and
// a downsample ratio. Objects no rule governs always pass; a governed object
// passes only when the most specific rule on its path lets it through (every
// n-th object, at most cap of them over the filter's life).
//
// The rule table is an Array of Dictionary values, so it can come from code
// or from a parsed JSON document alike. Keys of a rule:
//   "Subsystem"        string, required
//   "Category"         string, optional (absent: the rule governs the subsystem)
//   "Name"             string, optional, used only with "Category"
//   "Cap"              number, required, taken as unsigned 64-bit
//   "DownsampleRatio"  number, required, taken as unsigned 64-bit; 0 leaves the
//                      rule's place without an entry
// Other keys are ignored. Rules apply in order; a later rule for the same path
// replaces the earlier one's entry.
//
// Thread-safety: no locks. Building (including addEntryWithSubsystem) must be
// finished before the filter is shared. shouldReportObject() updates counters
// through separate reads and writes, so all its calls on one filter must be
// serialised by the callers, across every holder of the filter.
// downsampleEntryForObject() only reads.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "lumvane/SubsystemCategoryFilter/FilterTier.h"
#include "lumvane/SubsystemCategoryFilter/LVDownsampleEntry.h"
#include "lumvane/signpost/SignpostObject.h"
#include "lumvane/signpost/Value.h"

namespace lumvane {

class LVSubsystemCategoryNameFilter final {
  struct PassKey {
    explicit PassKey() = default;
  };

 public:
  // The filter built from table, or null: silently for an absent table;
  // after a debug message when a rule lacks "Subsystem", "Cap" or
  // "DownsampleRatio" (checked in that order, so only the first missing key
  // is named), or when a rule is not a dictionary or holds a key of the wrong
  // type. Rules after a failing one are never read. An empty table gives a
  // filter that passes everything.
  static std::shared_ptr<LVSubsystemCategoryNameFilter> initWithDictionaryArray(
      const std::optional<Array>& table);

  // True if the object may be reported. Counts the object in its governing
  // entry, if any: every call counts, so asking twice counts twice.
  bool shouldReportObject(const SignpostObject& object);

  // The entry of the most specific rule on the object's path, or null.
  // Changes nothing.
  std::shared_ptr<LVDownsampleEntry> downsampleEntryForObject(const SignpostObject& object) const;

  // Adds or replaces the entry at the rule's path (see FilterTier::setCap).
  void addEntryWithSubsystem(const std::optional<std::string>& subsystem,
                             const std::optional<std::string>& category,
                             const std::optional<std::string>& name, uint64_t cap,
                             uint64_t downsampleRatio);

  // The root of the filter tree, always a FilterRootTier, owned by the filter.
  const std::shared_ptr<FilterTier>& filterTreeRoot() const { return filterTreeRoot_; }

  // Only initWithDictionaryArray() can name PassKey.
  explicit LVSubsystemCategoryNameFilter(PassKey);
  LVSubsystemCategoryNameFilter(const LVSubsystemCategoryNameFilter&) = delete;
  LVSubsystemCategoryNameFilter& operator=(const LVSubsystemCategoryNameFilter&) = delete;

 private:
  // Applies one rule of the table; false (after a debug message) when the
  // rule is unusable and the whole table must be refused.
  bool addRule(std::size_t index, const Value& rule);

  const std::shared_ptr<FilterTier> filterTreeRoot_;
};

}  // namespace lumvane

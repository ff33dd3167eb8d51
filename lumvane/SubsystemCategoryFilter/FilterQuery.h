// The address of one place in the subsystem/category/name filter tree: a
// subsystem, a category and a name, any of which may be absent. A query is
// made for one lookup or one insertion and dropped right after it, so it
// borrows the three strings instead of copying them: the strings it was made
// from must outlive it. Never store a query.
#pragma once

#include <optional>
#include <string_view>

namespace lumvane {

class FilterQuery final {
 public:
  using Key = std::optional<std::string_view>;

  // Keeps views of the three strings as given: no copy, no check. Accepts
  // std::optional<std::string> (converted to a view of the held string),
  // string literals and std::nullopt.
  static FilterQuery initWithSubsystem(Key subsystem, Key category, Key name) {
    return FilterQuery(subsystem, category, name);
  }

  const Key& subsystem() const { return subsystem_; }
  const Key& category() const { return category_; }
  const Key& name() const { return name_; }

 private:
  FilterQuery(Key subsystem, Key category, Key name)
      : subsystem_(subsystem), category_(category), name_(name) {}

  const Key subsystem_;
  const Key category_;
  const Key name_;
};

}  // namespace lumvane

// Signpost objects addressed by subsystem, category and name only: all the
// name filter reads of an object.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "lumvane/signpost/SignpostObject.h"

namespace lumvane::testing {

inline SignpostObject Object(std::optional<std::string> subsystem,
                             std::optional<std::string> category,
                             std::optional<std::string> name) {
  SignpostObjectProperties p;
  p.subsystem = std::move(subsystem);
  p.category = std::move(category);
  p.name = std::move(name);
  return SignpostObject(std::move(p));
}

}  // namespace lumvane::testing

// The telemetry arguments and description attributes that a signpost's
// format string marks, with the values its message gave them. Owned copies:
// an interval's begin keeps its arguments until the end arrives.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lumvane/signpost/Number.h"
#include "lumvane/signpost/SignpostObject.h"
#include "lumvane/signpost/Value.h"

namespace lumvane {

struct SignpostArguments {
  // A slot is filled when it has a name and a value; never half filled.
  struct StringSlot {
    std::string name;
    std::string value;
  };
  struct NumberSlot {
    std::string name;
    Number value;
  };

  std::optional<StringSlot> string1;
  std::optional<StringSlot> string2;
  std::optional<NumberSlot> number1;
  std::optional<NumberSlot> number2;
  // In the order of the format string; a name appears once (first wins).
  std::vector<std::pair<std::string, std::string>> attributes;

  bool empty() const {
    return !string1 && !string2 && !number1 && !number2 && attributes.empty();
  }

  // Writes the slots into the matching properties of a signpost object.
  void applyTo(SignpostObjectProperties* properties) const;
  // The same, slot by slot this object's value where it has one, else
  // `fallback`'s: what an interval takes from its begin and its end.
  void applyOver(const SignpostArguments& fallback, SignpostObjectProperties* properties) const;
  // Adds the attributes of both to `*out`, this object's winning on a clash.
  void attributesOver(const SignpostArguments& fallback, Dictionary* out) const;
};

}  // namespace lumvane

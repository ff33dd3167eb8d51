// JSON text to the system's dynamic Value: an object becomes a Dictionary
// (keys in document order, a repeated key keeps its last value in the place
// of its first), an array an Array, a string a string, true/false a Boolean
// Number, an integer a Signed Number when negative and an Unsigned one
// otherwise, any other number a Float64 Number. JSON null has no Value: at
// the top level it gives an absent result, inside a container the entry is
// left out (no key ever holds a null marker).
#pragma once

#include <optional>
#include <string_view>

#include "lumvane/platform/Error.h"
#include "lumvane/signpost/Value.h"

namespace lumvane {

// Parses `text` into `out` (absent for a top-level null). On malformed JSON
// returns the parser's reason and leaves `out` untouched.
[[nodiscard]] std::optional<Error> ParseJsonValue(std::string_view text,
                                                  std::optional<Value>* out);

}  // namespace lumvane

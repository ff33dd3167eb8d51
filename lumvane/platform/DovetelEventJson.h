// The line format of the telemetry event file: one JSON object per line,
//   {"name": "<event name>", "payload": {<keys in payload order>}, "sent": <µs>}
// followed by a line feed. "sent" is the send time in microseconds since the
// Unix epoch (UTC).
//
// Strings are written as valid JSON: quote, backslash and control characters
// escaped, valid UTF-8 kept as it is, and each ill-formed byte sequence
// replaced by U+FFFD. Integers keep their full value (uint64 included); a
// float is the shortest decimal that reads back as the same value of its
// width, always with a fraction or an exponent so that it reads back as a
// float; NaN and infinities have no JSON form and are written as null;
// booleans are true/false; arrays and dictionaries nest.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "lumvane/signpost/Value.h"

namespace lumvane {

std::string EncodeDovetelEventLine(std::string_view name, const Dictionary& payload,
                                   int64_t sentMicroseconds);

// Appends `text` to `out` as a JSON string literal, quotes included.
void AppendJsonString(std::string& out, std::string_view text);

// Appends the JSON form of `number` to `out`.
void AppendJsonNumber(std::string& out, const Number& number);

}  // namespace lumvane

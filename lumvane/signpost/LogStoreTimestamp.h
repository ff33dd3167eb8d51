// Timestamps of the signpost log store: local time with its UTC offset,
// "YYYY-MM-DD HH:MM:SS.ffffff+HHMM". Reading them is on the hot path of the
// store reader (every record carries one), so parsing is hand-written,
// allocation-free and independent of the process's time zone.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "lumvane/platform/Date.h"

namespace lumvane {

// Accepts the store's form and, for command-line use, its ISO 8601 relatives:
// "T" instead of the blank, a fraction of 0 to 9 digits (microseconds kept,
// the rest truncated), an offset "+HHMM", "+HH:MM", "+HH" or "Z". Anything
// else (missing offset, out-of-range fields, trailing text) gives nullopt.
std::optional<Date> ParseLogStoreTimestamp(std::string_view text);

// Formats `date` as the local time at `offsetMinutes` east of UTC, in the
// store's form with six fraction digits.
std::string FormatLogStoreTimestamp(Date date, int offsetMinutes);

// The offset, in minutes east of UTC, written at the end of `text`, when
// `text` parses as a timestamp.
std::optional<int> LogStoreTimestampOffsetMinutes(std::string_view text);

}  // namespace lumvane

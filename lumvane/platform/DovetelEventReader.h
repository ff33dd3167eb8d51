// Reads back the telemetry event file that the machine sink writes (see
// DovetelEventJson.h), for tests and tools. Number kinds come back as well as
// JSON allows: a negative integer as Signed, a non-negative one as Unsigned,
// a number with a fraction or an exponent as Float64, true/false as Boolean.
// A null (a NaN or infinity when written) leaves its key out.
//
// A line that does not parse as an event, a torn last line without its line
// feed above all, is skipped and counted.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "lumvane/platform/Error.h"
#include "lumvane/signpost/Value.h"

namespace lumvane {

struct DovetelEvent {
  std::string name;
  Dictionary payload;
};

struct DovetelEventFile {
  std::vector<DovetelEvent> events;  // in file order
  std::size_t skippedLines = 0;
  std::optional<Error> error;  // the file could not be read at all
};

[[nodiscard]] DovetelEventFile ReadDovetelEvents(const std::string& path);

}  // namespace lumvane

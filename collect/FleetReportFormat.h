// The fleet report (FleetReport.h) as text for people, or as JSON for
// programs.
#pragma once

#include <string>
#include <vector>

#include "collect/FleetReport.h"

namespace lumvane::collect {

// The report as text for people, or as one JSON object:
//   {"since": "YYYY-MM-DD" or null,
//    "days": [{"day": "YYYY-MM-DD", "machines": N,
//              "events": {"<event name>": N, ...},
//              "signposts": [{"subsystem": S or null, "category": S or null, "name": S,
//                             "count": N, "p50": X, "p90": X, "p99": X}, ...],
//              "runs": {"runs": N, "interrupted": N, "logObjectsProcessed": N, "reported": N}}, ...]}
std::string FormatFleetReportText(const std::vector<DayReport>& days);
std::string FormatFleetReportJson(const std::string& since, const std::vector<DayReport>& days);

}  // namespace lumvane::collect

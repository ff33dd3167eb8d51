// Per-day fleet aggregates over the collector's database, days being UTC
// days of the events' send time:
//   - the machines that sent anything;
//   - the events per event name;
//   - per subsystem, category and name, from the per-object events under
//     "com.orvel.performance.signpost" only (each object also arrives under
//     its own event name, which would count it twice), the count and the
//     nearest-rank percentiles p50, p90 and p99 of "DurationInSeconds";
//   - the run statistics ("com.orvel.performance.signpost_reporting_stats"):
//     runs, interrupted runs, the sum of "LogObjectsProcessed" and the sum
//     of "AnimationsReported", "IntervalsReported" and "EventsReported".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "collect/SqliteDatabase.h"
#include "lumvane/platform/Error.h"

namespace lumvane::collect {

inline constexpr const char* kSignpostEventName = "com.orvel.performance.signpost";
inline constexpr const char* kRunStatsEventName = "com.orvel.performance.signpost_reporting_stats";

struct SignpostDurations {
  std::optional<std::string> subsystem, category;  // absent when the payload has none
  std::string name;
  int64_t count = 0;
  // Over the events whose duration is a number; absent when none is.
  std::optional<double> p50, p90, p99;
};

struct RunTotals {
  int64_t runs = 0;
  int64_t interrupted = 0;
  int64_t logObjectsProcessed = 0;
  int64_t reported = 0;  // animations + intervals + events reported
};

struct DayReport {
  std::string day;  // YYYY-MM-DD
  int64_t machines = 0;
  std::vector<std::pair<std::string, int64_t>> events;  // by event name
  std::vector<SignpostDurations> signposts;            // by subsystem, category, name
  RunTotals runs;
};

// The nearest-rank percentile `p` (1..100) of `sorted` (ascending, not
// empty): the value at rank ceil(p/100 * n).
double NearestRank(const std::vector<double>& sorted, int p);

// Days from `since` (YYYY-MM-DD, inclusive; "" for all) in ascending order.
[[nodiscard]] std::optional<Error> BuildFleetReport(SqliteDatabase& db, const std::string& since,
                                                    std::vector<DayReport>* out);

// True when `text` is a real date written YYYY-MM-DD.
bool IsIsoDay(const std::string& text);

}  // namespace lumvane::collect

#include "collect/FleetReport.h"

#include <map>
#include <memory>

#include "collect/SqliteStatement.h"

namespace lumvane::collect {
namespace {

// Runs `sql` with ?1 bound to `since` and hands each row to `row`.
template <typename Row>
std::optional<Error> ForEachRow(SqliteDatabase& db, const std::string& sql, const std::string& since, Row row) {
  std::unique_ptr<SqliteStatement> stmt;
  if (auto error = db.prepare(sql, &stmt)) return error;
  stmt->bindText(1, since);
  std::optional<Error> error;
  while (stmt->step(&error)) row(*stmt);
  return error;
}

std::optional<std::string> OptionalText(const SqliteStatement& stmt, int column) {
  if (stmt.isNull(column)) return std::nullopt;
  return stmt.text(column);
}

}  // namespace

double NearestRank(const std::vector<double>& sorted, int p) {
  const std::size_t n = sorted.size();
  std::size_t rank = (static_cast<std::size_t>(p) * n + 99) / 100;
  if (rank < 1) rank = 1;
  return sorted[rank - 1];
}

std::optional<Error> BuildFleetReport(SqliteDatabase& db, const std::string& since, std::vector<DayReport>* out) {
  std::map<std::string, DayReport> days;
  auto dayOf = [&](const std::string& day) -> DayReport& {
    DayReport& report = days[day];
    report.day = day;
    return report;
  };

  if (auto error = ForEachRow(db,
                              "SELECT day, count(DISTINCT machine) FROM events WHERE day >= ?1 "
                              "GROUP BY day",
                              since, [&](SqliteStatement& s) { dayOf(s.text(0)).machines = s.int64(1); })) {
    return error;
  }
  if (auto error = ForEachRow(db,
                              "SELECT day, name, count(*) FROM events WHERE day >= ?1 "
                              "GROUP BY day, name ORDER BY day, name",
                              since,
                              [&](SqliteStatement& s) { dayOf(s.text(0)).events.emplace_back(s.text(1), s.int64(2)); })) {
    return error;
  }

  // One pass over the per-object events, sorted so that each key's
  // durations arrive together and in ascending order (events without a
  // numeric duration first, as NULL).
  struct Group {
    DayReport* day = nullptr;
    SignpostDurations key;
    std::vector<double> durations;
  };
  std::optional<Group> group;
  auto flush = [&] {
    if (!group) return;
    if (!group->durations.empty()) {
      group->key.p50 = NearestRank(group->durations, 50);
      group->key.p90 = NearestRank(group->durations, 90);
      group->key.p99 = NearestRank(group->durations, 99);
    }
    group->day->signposts.push_back(std::move(group->key));
    group.reset();
  };
  const std::string signpostSql =
      "SELECT day, json_extract(payload, '$.Subsystem') AS subsystem, json_extract(payload, '$.Category') AS category, "
      "json_extract(payload, '$.Name') AS object, "
      "CASE WHEN json_type(payload, '$.DurationInSeconds') IN ('real', 'integer') "
      "THEN json_extract(payload, '$.DurationInSeconds') END AS duration "
      "FROM events WHERE name = '" + std::string(kSignpostEventName) + "' AND day >= ?1 "
      "ORDER BY day, subsystem, category, object, duration";
  if (auto error = ForEachRow(db, signpostSql, since, [&](SqliteStatement& s) {
        const std::string day = s.text(0);
        const std::optional<std::string> subsystem = OptionalText(s, 1), category = OptionalText(s, 2);
        const std::string name = s.isNull(3) ? "Unknown" : s.text(3);
        if (!group || group->day->day != day || group->key.subsystem != subsystem ||
            group->key.category != category || group->key.name != name) {
          flush();
          group.emplace();
          group->day = &dayOf(day);
          group->key.subsystem = subsystem;
          group->key.category = category;
          group->key.name = name;
        }
        ++group->key.count;
        if (!s.isNull(4)) group->durations.push_back(s.real(4));
      })) {
    return error;
  }
  flush();

  const std::string runSql =
      "SELECT day, count(*), "
      "sum(coalesce(json_extract(payload, '$.WasInterrupted'), 0) <> 0), "
      "sum(coalesce(json_extract(payload, '$.LogObjectsProcessed'), 0)), "
      "sum(coalesce(json_extract(payload, '$.AnimationsReported'), 0) + "
      "coalesce(json_extract(payload, '$.IntervalsReported'), 0) + "
      "coalesce(json_extract(payload, '$.EventsReported'), 0)) "
      "FROM events WHERE name = '" + std::string(kRunStatsEventName) + "' AND day >= ?1 GROUP BY day";
  if (auto error = ForEachRow(db, runSql, since, [&](SqliteStatement& s) {
        RunTotals& runs = dayOf(s.text(0)).runs;
        runs.runs = s.int64(1);
        runs.interrupted = s.int64(2);
        runs.logObjectsProcessed = s.int64(3);
        runs.reported = s.int64(4);
      })) {
    return error;
  }

  out->clear();
  for (auto& [day, report] : days) out->push_back(std::move(report));
  return std::nullopt;
}

bool IsIsoDay(const std::string& text) {
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') return false;
  for (int i : {0, 1, 2, 3, 5, 6, 8, 9}) {
    if (text[i] < '0' || text[i] > '9') return false;
  }
  const int year = std::stoi(text.substr(0, 4)), month = std::stoi(text.substr(5, 2)),
            day = std::stoi(text.substr(8, 2));
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12 || day < 1) return false;
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return day <= kDays[month - 1] + (month == 2 && leap ? 1 : 0);
}

}  // namespace lumvane::collect

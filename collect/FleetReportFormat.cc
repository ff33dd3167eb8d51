#include "collect/FleetReportFormat.h"

#include <charconv>
#include <cstdio>

#include "lumvane/platform/DovetelEventJson.h"

namespace lumvane::collect {
namespace {

// The shortest decimal that reads back as the same double.
std::string Shortest(double value) {
  char text[32];
  auto result = std::to_chars(text, text + sizeof text, value);
  return std::string(text, result.ptr);
}

std::string OptionalNumber(const std::optional<double>& value, const char* absent) {
  return value ? Shortest(*value) : absent;
}

void AppendOptionalString(std::string& out, const std::optional<std::string>& text) {
  if (text) {
    AppendJsonString(out, *text);
  } else {
    out += "null";
  }
}

}  // namespace

std::string FormatFleetReportText(const std::vector<DayReport>& days) {
  if (days.empty()) return "No events.\n";
  std::string out;
  char line[512];
  for (const DayReport& d : days) {
    std::snprintf(line, sizeof line,
                  "%s: %lld machines reporting; %lld runs (%lld interrupted), %lld log objects processed, "
                  "%lld objects reported\n",
                  d.day.c_str(), static_cast<long long>(d.machines), static_cast<long long>(d.runs.runs),
                  static_cast<long long>(d.runs.interrupted), static_cast<long long>(d.runs.logObjectsProcessed),
                  static_cast<long long>(d.runs.reported));
    out += line;
    out += "  events per name:\n";
    for (const auto& [name, count] : d.events) {
      std::snprintf(line, sizeof line, "    %8lld  ", static_cast<long long>(count));
      out += line + name + "\n";
    }
    if (!d.signposts.empty()) {
      out += "  signpost durations in seconds, from \"com.orvel.performance.signpost\":\n";
      std::snprintf(line, sizeof line, "    %8s %10s %10s %10s  %s\n", "count", "p50", "p90", "p99",
                    "subsystem/category/name");
      out += line;
    }
    for (const SignpostDurations& s : d.signposts) {
      std::snprintf(line, sizeof line, "    %8lld %10s %10s %10s  ", static_cast<long long>(s.count),
                    OptionalNumber(s.p50, "-").c_str(), OptionalNumber(s.p90, "-").c_str(),
                    OptionalNumber(s.p99, "-").c_str());
      out += line + s.subsystem.value_or("") + "/" + s.category.value_or("") + "/" + s.name + "\n";
    }
  }
  return out;
}

std::string FormatFleetReportJson(const std::string& since, const std::vector<DayReport>& days) {
  std::string out = "{\"since\": ";
  if (since.empty()) {
    out += "null";
  } else {
    AppendJsonString(out, since);
  }
  out += ", \"days\": [";
  for (std::size_t i = 0; i < days.size(); ++i) {
    const DayReport& d = days[i];
    out += i ? ", {\"day\": " : "{\"day\": ";
    AppendJsonString(out, d.day);
    out += ", \"machines\": " + std::to_string(d.machines) + ", \"events\": {";
    for (std::size_t j = 0; j < d.events.size(); ++j) {
      if (j) out += ", ";
      AppendJsonString(out, d.events[j].first);
      out += ": " + std::to_string(d.events[j].second);
    }
    out += "}, \"signposts\": [";
    for (std::size_t j = 0; j < d.signposts.size(); ++j) {
      const SignpostDurations& s = d.signposts[j];
      out += j ? ", {\"subsystem\": " : "{\"subsystem\": ";
      AppendOptionalString(out, s.subsystem);
      out += ", \"category\": ";
      AppendOptionalString(out, s.category);
      out += ", \"name\": ";
      AppendJsonString(out, s.name);
      out += ", \"count\": " + std::to_string(s.count);
      out += ", \"p50\": " + OptionalNumber(s.p50, "null");
      out += ", \"p90\": " + OptionalNumber(s.p90, "null");
      out += ", \"p99\": " + OptionalNumber(s.p99, "null") + "}";
    }
    out += "], \"runs\": {\"runs\": " + std::to_string(d.runs.runs) +
           ", \"interrupted\": " + std::to_string(d.runs.interrupted) +
           ", \"logObjectsProcessed\": " + std::to_string(d.runs.logObjectsProcessed) +
           ", \"reported\": " + std::to_string(d.runs.reported) + "}}";
  }
  out += "]}\n";
  return out;
}

}  // namespace lumvane::collect

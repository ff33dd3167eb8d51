// generate_signpost_store: writes a synthetic signpost store, the journal
// entries of the day before an end time as journalctl prints them, the same
// for the same seed, and optionally what it wrote as counts.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "lumvane/signpost/SignpostStoreGenerator.h"

namespace {

const char kUsage[] =
    "usage: generate_signpost_store [--seed N] [--records N] [--end TIME] [--out PATH]\n"
    "                               [--format json|export] [--counts PATH] [--no-accept]\n"
    "                               [--help]\n"
    "\n"
    "Writes the journal entries of the 86400 seconds before TIME, about 70% of them\n"
    "signposts, as `journalctl -o json` or `journalctl -o export` prints them.\n"
    "  --seed N        seed of the generator (default 1); equal seeds give equal stores\n"
    "  --records N     number of journal entries (JSON lines) to write (default 10000)\n"
    "  --end TIME      end of the day covered, ISO 8601 with offset,\n"
    "                  e.g. 2024-05-01T12:00:00+02:00 (default: now)\n"
    "  --out PATH      file to write, \"-\" for standard output (default)\n"
    "  --format F      json (default): one JSON object per line;\n"
    "                  export: the export format, for example for\n"
    "                  /lib/systemd/systemd-journal-remote --output=DIR/NAME.journal PATH\n"
    "  --counts PATH   also write what the store holds (entries, signposts, expected\n"
    "                  intervals, events, ...) as one JSON object to PATH\n"
    "  --no-accept     no signpost enables telemetry, so nothing would be reported\n";

bool ParseCount(const char* text, uint64_t* out) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long v = std::strtoull(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || text[0] == '-') return false;
  *out = v;
  return true;
}

// "YYYY-MM-DDTHH:MM:SS" and an offset ("+02:00", "+0200" or "Z").
bool ParseEnd(const char* text, lumvane::Date* out) {
  std::tm tm{};
  const char* rest = strptime(text, "%Y-%m-%dT%H:%M:%S%z", &tm);
  if (!rest || *rest != '\0') return false;
  const long offset = tm.tm_gmtoff;
  const time_t utc = timegm(&tm) - offset;
  *out = lumvane::Date(std::chrono::seconds(utc));
  return true;
}

bool WriteCounts(const std::string& path, const lumvane::SignpostStoreCounts& c) {
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (!f) return false;
  std::fprintf(
      f,
      "{\"records\": %llu, \"signposts\": %llu, \"malformedSignposts\": %llu, "
      "\"brokenLines\": %llu, \"otherEntries\": %llu, \"intervals\": %llu, "
      "\"animationIntervals\": %llu, \"events\": %llu, \"unclosedBegins\": %llu, "
      "\"unmatchedEnds\": %llu, \"telemetryObjects\": %llu}\n",
      static_cast<unsigned long long>(c.records), static_cast<unsigned long long>(c.signposts),
      static_cast<unsigned long long>(c.malformedSignposts),
      static_cast<unsigned long long>(c.brokenLines),
      static_cast<unsigned long long>(c.otherEntries), static_cast<unsigned long long>(c.intervals),
      static_cast<unsigned long long>(c.animationIntervals),
      static_cast<unsigned long long>(c.events), static_cast<unsigned long long>(c.unclosedBegins),
      static_cast<unsigned long long>(c.unmatchedEnds),
      static_cast<unsigned long long>(c.telemetryObjects));
  return std::fclose(f) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  lumvane::SignpostStoreGeneratorOptions options;
  options.end = lumvane::DateNow();
  std::string out = "-";
  std::string countsPath;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (arg == "--no-accept") {
      options.accept = false;
    } else if ((arg == "--seed" || arg == "--records") && hasValue) {
      if (!ParseCount(argv[++i], arg == "--seed" ? &options.seed : &options.records)) {
        std::fprintf(stderr, "generate_signpost_store: bad %s value %s\n", arg.c_str(), argv[i]);
        return 2;
      }
    } else if (arg == "--end" && hasValue) {
      if (!ParseEnd(argv[++i], &options.end)) {
        std::fprintf(stderr,
                     "generate_signpost_store: --end needs a time with its offset, e.g. "
                     "2024-05-01T12:00:00+02:00 (got %s)\n",
                     argv[i]);
        return 2;
      }
    } else if (arg == "--format" && hasValue) {
      const std::string f = argv[++i];
      if (f != "json" && f != "export") {
        std::fprintf(stderr, "generate_signpost_store: --format is json or export, not %s\n",
                     f.c_str());
        return 2;
      }
      options.format = f == "json" ? lumvane::SignpostStoreFormat::JournalJson
                                   : lumvane::SignpostStoreFormat::JournalExport;
    } else if (arg == "--out" && hasValue) {
      out = argv[++i];
    } else if (arg == "--counts" && hasValue) {
      countsPath = argv[++i];
    } else {
      std::fprintf(stderr, "generate_signpost_store: unknown or incomplete option %s\n%s",
                   arg.c_str(), kUsage);
      return 2;
    }
  }
  lumvane::SignpostStoreGenerator generator(options);
  if (const auto error = generator.writeTo(out)) {
    std::fprintf(stderr, "generate_signpost_store: %s\n", error->localizedDescription().c_str());
    return 1;
  }
  if (!countsPath.empty() && !WriteCounts(countsPath, generator.counts())) {
    std::fprintf(stderr, "generate_signpost_store: cannot write %s: %s\n", countsPath.c_str(),
                 std::strerror(errno));
    return 1;
  }
  return 0;
}

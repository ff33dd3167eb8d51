// generate_signpost_store: writes a synthetic signpost log store (JSON
// lines) covering the day before an end time, the same for the same seed.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lumvane/signpost/LogStoreTimestamp.h"
#include "lumvane/signpost/SignpostStoreGenerator.h"

namespace {

const char kUsage[] =
    "usage: generate_signpost_store [--seed N] [--records N] [--end TIME] [--out PATH]\n"
    "                               [--no-accept] [--help]\n"
    "\n"
    "Writes a JSON-lines signpost log store covering the 86400 seconds before TIME.\n"
    "  --seed N      seed of the generator (default 1); equal seeds give equal stores\n"
    "  --records N   number of records between the preamble and the trailer (default 10000)\n"
    "  --end TIME    end of the day covered, ISO 8601 with offset,\n"
    "                e.g. 2024-05-01T12:00:00+02:00 (default: now, UTC)\n"
    "  --out PATH    file to write, \"-\" for standard output (default)\n"
    "  --no-accept   no signpost enables telemetry, so nothing would be reported\n";

bool ParseCount(const char* text, uint64_t* out) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long v = std::strtoull(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || text[0] == '-') return false;
  *out = v;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  lumvane::SignpostStoreGeneratorOptions options;
  options.end = lumvane::DateNow();
  std::string out = "-";
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (arg == "--no-accept") {
      options.accept = false;
    } else if (arg == "--seed" && hasValue) {
      if (!ParseCount(argv[++i], &options.seed)) {
        std::fprintf(stderr, "generate_signpost_store: bad --seed value %s\n", argv[i]);
        return 2;
      }
    } else if (arg == "--records" && hasValue) {
      if (!ParseCount(argv[++i], &options.records)) {
        std::fprintf(stderr, "generate_signpost_store: bad --records value %s\n", argv[i]);
        return 2;
      }
    } else if (arg == "--end" && hasValue) {
      const char* text = argv[++i];
      const auto end = lumvane::ParseLogStoreTimestamp(text);
      if (!end) {
        std::fprintf(stderr,
                     "generate_signpost_store: --end needs a time with its offset, e.g. "
                     "2024-05-01T12:00:00+02:00 (got %s)\n",
                     text);
        return 2;
      }
      options.end = *end;
      options.offsetMinutes = *lumvane::LogStoreTimestampOffsetMinutes(text);
    } else if (arg == "--out" && hasValue) {
      out = argv[++i];
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
  return 0;
}

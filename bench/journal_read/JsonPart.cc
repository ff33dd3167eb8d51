#include "bench/journal_read/JsonPart.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <vector>

#include "bench/journal_read/ReaderRun.h"
#include "bench/support/BenchData.h"
#include "bench/support/JsonParseBaseline.h"
#include "bench/support/RunTimes.h"
#include "lumvane/signpost/SignpostStoreGenerator.h"

namespace lumvane::bench {

int JsonPart(const std::string& dir, uint64_t lines, uint64_t repeat) {
  const std::string path = dir + "/day-" + std::to_string(lines) + ".json";
  const std::string countsPath = path + ".counts";
  uint64_t records = 0, expected = 0;
  if (!LoadCounts(countsPath, &records, &expected)) {
    lumvane::SignpostStoreGeneratorOptions o;
    o.seed = 4;
    o.end = kEnd;
    o.records = lines;
    lumvane::SignpostStoreGenerator generator(o);
    if (const auto e = generator.writeTo(path)) {
      std::fprintf(stderr, "journal_read_bench: %s\n", e->localizedDescription().c_str());
      return 1;
    }
    records = generator.counts().records;
    expected = generator.counts().signposts;
    SaveCounts(countsPath, records, expected);
  }
  const double mb = std::filesystem::file_size(path) / 1e6;
  std::printf("JSON lines: %llu lines, %llu signposts, %.1f MB\n",
              static_cast<unsigned long long>(records), static_cast<unsigned long long>(expected),
              mb);
  Warm(path);
  std::vector<double> baseline, baselineCpu;
  JsonParseRun base;
  ReaderRuns readerRuns;
  for (uint64_t i = 0; i < repeat; ++i) {
    std::vector<std::function<void()>> runs = {
        [&] {
          base = RunJsonParseBaseline(path);
          baseline.push_back(base.seconds);
          baselineCpu.push_back(base.cpuSeconds);
        },
        [&] { readerRuns.add(RunReader(path)); }};
    if (i % 2) std::reverse(runs.begin(), runs.end());
    for (auto& run : runs) run();
  }
  const double b = Median(baseline), r = Median(readerRuns.seconds);
  std::printf(
      "  baseline (simdjson on-demand, 4 MB buffer, same fields): %s s, median %.3f s, "
      "CPU %.3f s, %.1f MB/s, %llu signposts, %llu values read\n",
      Times(baseline).c_str(), b, Median(baselineCpu), mb / b,
      static_cast<unsigned long long>(base.signposts),
      static_cast<unsigned long long>(base.fieldsRead));
  std::printf(
      "  reader: %s s, median %.3f s, CPU %.3f s, %.1f MB/s, %llu signposts processed, %llu "
      "objects delivered\n",
      Times(readerRuns.seconds).c_str(), r, Median(readerRuns.cpuSeconds), mb / r,
      static_cast<unsigned long long>(readerRuns.last.processed),
      static_cast<unsigned long long>(readerRuns.last.objects));
  std::printf("  reader CPU by thread: calling (decode, pair, callbacks) %.3f s, reading %.3f s\n",
              Median(readerRuns.callingCpuSeconds), Median(readerRuns.readingCpuSeconds));
  if (readerRuns.last.processed == 0) {
    std::printf("  baseline time / reader time: not measured (the reader read nothing)\n");
  } else {
    std::printf("  baseline time / reader time: %.2f (goal: at least 1)\n", b / r);
  }
  PrintAllocations(readerRuns.last, records);
  std::printf("  reader peak: VmRSS %ld KiB, RssAnon %ld KiB (whole process)\n",
              readerRuns.rssPeakKiB, readerRuns.anonPeakKiB);
  return 0;
}

}  // namespace lumvane::bench

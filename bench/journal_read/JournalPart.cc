#include "bench/journal_read/JournalPart.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <vector>

#include "bench/journal_read/ReaderRun.h"
#include "bench/support/BenchData.h"
#include "bench/support/JournalWalkBaseline.h"
#include "bench/support/ProgramTimer.h"
#include "bench/support/RunTimes.h"
#include "lumvane/signpost/SignpostStoreGenerator.h"

namespace lumvane::bench {

namespace {

constexpr char kJournalRemote[] = "/lib/systemd/systemd-journal-remote";
constexpr char kJournalctl[] = "/usr/bin/journalctl";

}  // namespace

int JournalPart(const std::string& dir, uint64_t signposts, uint64_t repeat) {
  if (access(kJournalRemote, X_OK) != 0 || access(kJournalctl, X_OK) != 0) {
    std::printf("journal files: skipped (%s or %s missing)\n", kJournalRemote, kJournalctl);
    return 0;
  }
  const std::string journalDir = dir + "/journal-" + std::to_string(signposts);
  const std::string countsPath = journalDir + ".counts";
  uint64_t entries = 0, expected = 0;
  if (!LoadCounts(countsPath, &entries, &expected)) {
    std::filesystem::remove_all(journalDir);
    std::filesystem::create_directory(journalDir);
    lumvane::SignpostStoreGeneratorOptions o;
    o.seed = 3;
    o.end = kEnd;
    o.format = lumvane::SignpostStoreFormat::JournalExport;
    o.records = signposts * 100 / 70;  // about 70% of the entries are signposts
    const std::string command =
        std::string(kJournalRemote) + " --output=" + journalDir + "/system.journal - 2>/dev/null";
    std::FILE* pipe = popen(command.c_str(), "w");
    if (!pipe) return 1;
    lumvane::SignpostStoreGenerator generator(o);
    const auto error = generator.writeTo(pipe, "systemd-journal-remote");
    if (pclose(pipe) != 0 || error) {
      std::fprintf(stderr, "journal_read_bench: making journal files failed\n");
      return 1;
    }
    entries = generator.counts().records;
    expected = generator.counts().signposts;
    SaveCounts(countsPath, entries, expected);
  }
  uint64_t bytes = 0;
  for (const auto& e : std::filesystem::directory_iterator(journalDir)) bytes += e.file_size();
  std::printf("journal files: %llu entries, %llu signposts, %.1f MB in %s\n",
              static_cast<unsigned long long>(entries), static_cast<unsigned long long>(expected),
              bytes / 1e6, journalDir.c_str());
  Warm(journalDir);
  std::vector<double> journalctl, walk, journalctlCpu, walkCpu;
  ReaderRuns readerRuns;
  uint64_t walked = 0;
  const std::vector<std::string> journalctlArgs = {
      kJournalctl, "-D", journalDir, "-o", "export",
      std::string("MESSAGE_ID=") + lumvane::SignpostStoreGenerator::kSignpostMessageId};
  for (uint64_t i = 0; i < repeat; ++i) {
    // Alternate who goes first, so that a burst of load elsewhere does not
    // fall on one contender only.
    std::vector<std::function<void()>> runs = {
        [&] {
          double cpu = 0;
          journalctl.push_back(TimeProgram(journalctlArgs, &cpu));
          journalctlCpu.push_back(cpu);
        },
        [&] {
          double cpu = 0;
          walk.push_back(TimeJournalWalk(journalDir, &walked, &cpu));
          walkCpu.push_back(cpu);
        },
        [&] { readerRuns.add(RunReader(journalDir)); }};
    if (i % 2) std::reverse(runs.begin(), runs.end());
    for (auto& run : runs) run();
  }
  const double j = Median(journalctl), w = Median(walk), r = Median(readerRuns.seconds);
  std::printf("  journalctl -o export MESSAGE_ID=...: %s s, median %.3f s, CPU %.3f s\n",
              Times(journalctl).c_str(), j, Median(journalctlCpu));
  std::printf(
      "  libsystemd walk, one enumeration per entry: %s s, median %.3f s, CPU %.3f s (%llu "
      "entries)\n",
      Times(walk).c_str(), w, Median(walkCpu), static_cast<unsigned long long>(walked));
  std::printf(
      "  reader: %s s, median %.3f s, CPU %.3f s; %llu signposts processed, %llu objects "
      "delivered\n",
      Times(readerRuns.seconds).c_str(), r, Median(readerRuns.cpuSeconds),
      static_cast<unsigned long long>(readerRuns.last.processed),
      static_cast<unsigned long long>(readerRuns.last.objects));
  std::printf("  reader CPU by thread: calling (decode, pair, callbacks) %.3f s, reading %.3f s\n",
              Median(readerRuns.callingCpuSeconds), Median(readerRuns.readingCpuSeconds));
  if (readerRuns.last.processed == 0 || j <= 0) {
    std::printf("  journalctl time / reader time: not measured (a side read nothing)\n");
  } else {
    std::printf("  journalctl time / reader time: %.2f (goal: at least 3)\n", j / r);
    if (w > 0) std::printf("  walk time / reader time: %.2f\n", w / r);
  }
  PrintAllocations(readerRuns.last, entries);
  std::printf("  reader peak: VmRSS %ld KiB (mapped journal files included), RssAnon +%ld KiB\n",
              readerRuns.rssPeakKiB, readerRuns.anonGrowthPeakKiB);
  if (readerRuns.last.processed != expected) {
    std::printf("  note: the reader processed %llu signposts, the files hold %llu\n",
                static_cast<unsigned long long>(readerRuns.last.processed),
                static_cast<unsigned long long>(expected));
  }
  return 0;
}

}  // namespace lumvane::bench

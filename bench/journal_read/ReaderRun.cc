#include "bench/journal_read/ReaderRun.h"

#include <algorithm>

#include <malloc.h>
#include <sys/resource.h>

#include <cstdio>
#include <optional>

#include "bench/support/AllocationCount.h"
#include "bench/support/PeakMemorySampler.h"
#include "bench/support/ResourceUsage.h"
#include "lumvane/signpost/LogStoreExtractor.h"

namespace lumvane::bench {

ReaderRun RunReader(const std::string& store) {
  lumvane::LogStoreExtractor extractor;
  ReaderRun r;
  extractor.setIntervalCompletionProcessingBlock([&](auto) { return ++r.objects, true; });
  extractor.setAnimationIntervalCompletionProcessingBlock([&](auto) { return ++r.objects, true; });
  extractor.setEmitEventProcessingBlock([&](auto) { return ++r.objects, true; });
  std::optional<lumvane::Error> error;
  // Memory freed earlier (the generator's buffers) would otherwise stay
  // resident and hide what the reader takes.
  malloc_trim(0);
  r.anonBeforeKiB = StatusKiB("RssAnon:");
  PeakMemorySampler sampler;
  const double cpu0 = CpuSeconds(RUSAGE_SELF);
  const double callingCpu0 = CpuSeconds(RUSAGE_THREAD);
  // The sampler's thread is out of the count: what moves now is the reader's.
  const uint64_t allocations0 = AllocationCount();
  const auto t0 = std::chrono::steady_clock::now();
  const bool ok = extractor.processLogArchiveWithPath(store, kStart, kEnd, &error);
  r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  r.allocations = AllocationCount() - allocations0;
  r.callingCpuSeconds = CpuSeconds(RUSAGE_THREAD) - callingCpu0;
  double samplerCpu = 0;
  sampler.stop(&r.rssPeakKiB, &r.anonPeakKiB, &samplerCpu);
  r.cpuSeconds = CpuSeconds(RUSAGE_SELF) - cpu0 - samplerCpu;
  r.processed = extractor.processedEventCount();
  if (!ok) {
    std::fprintf(stderr, "journal_read_bench: reading %s failed: %s\n", store.c_str(),
                 error ? error->localizedDescription().c_str() : "(no error given)");
  }
  return r;
}

void ReaderRuns::add(const ReaderRun& run) {
  last = run;
  seconds.push_back(run.seconds);
  cpuSeconds.push_back(run.cpuSeconds);
  callingCpuSeconds.push_back(run.callingCpuSeconds);
  readingCpuSeconds.push_back(run.cpuSeconds - run.callingCpuSeconds);
  rssPeakKiB = std::max(rssPeakKiB, run.rssPeakKiB);
  anonPeakKiB = std::max(anonPeakKiB, run.anonPeakKiB);
  anonGrowthPeakKiB = std::max(anonGrowthPeakKiB, run.anonPeakKiB - run.anonBeforeKiB);
}

void PrintAllocations(const ReaderRun& r, uint64_t records) {
  if (records == 0 || r.processed == 0) return;
  std::printf("  reader heap allocations: %llu, %.2f per store record, %.2f per signpost\n",
              static_cast<unsigned long long>(r.allocations),
              static_cast<double>(r.allocations) / static_cast<double>(records),
              static_cast<double>(r.allocations) / static_cast<double>(r.processed));
}

}  // namespace lumvane::bench

#include "bench/support/PeakMemorySampler.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>

#include "bench/support/AllocationCount.h"
#include "bench/support/ResourceUsage.h"

namespace lumvane::bench {

PeakMemorySampler::PeakMemorySampler()
    : rss_(StatusKiB("VmRSS:")), anon_(StatusKiB("RssAnon:")) {
  thread_ = std::thread([this] {
    // Reading /proc allocates; the measured work's count must not see it.
    StopCountingThisThreadsAllocations();
    while (!stop_) {
      rss_ = std::max<long>(rss_, StatusKiB("VmRSS:"));
      anon_ = std::max<long>(anon_, StatusKiB("RssAnon:"));
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    cpu_ = CpuSeconds(RUSAGE_THREAD);
  });
}

PeakMemorySampler::~PeakMemorySampler() {
  if (thread_.joinable()) {
    stop_ = true;
    thread_.join();
  }
}

void PeakMemorySampler::stop(long* rssKiB, long* anonKiB, double* cpuSeconds) {
  stop_ = true;
  thread_.join();
  *rssKiB = rss_;
  *anonKiB = anon_;
  if (cpuSeconds) *cpuSeconds = cpu_;
}

}  // namespace lumvane::bench

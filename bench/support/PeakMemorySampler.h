// The peak resident (VmRSS) and anonymous (RssAnon) memory of the process
// while some work runs: a thread of its own samples /proc/self/status every
// few milliseconds from construction to stop(). Mapped files count in the
// first, not in the second. The sampling thread is out of the allocation
// count, and its CPU time is answered so that it can be told from the work's.
// Not thread-safe: construct, stop and destroy it from one thread.
#pragma once

#include <atomic>
#include <thread>

namespace lumvane::bench {

class PeakMemorySampler final {
 public:
  PeakMemorySampler();  // takes a first reading, then starts sampling
  ~PeakMemorySampler();  // stops sampling when stop() was not called
  PeakMemorySampler(const PeakMemorySampler&) = delete;
  PeakMemorySampler& operator=(const PeakMemorySampler&) = delete;

  // Stops sampling and answers the peaks in KiB and, when asked, the
  // sampling thread's own CPU seconds. Call once.
  void stop(long* rssKiB, long* anonKiB, double* cpuSeconds = nullptr);

 private:
  std::atomic<bool> stop_{false};
  std::atomic<long> rss_, anon_;
  double cpu_ = 0;  // written by the thread before it ends, read after join
  std::thread thread_;
};

}  // namespace lumvane::bench

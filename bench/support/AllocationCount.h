// A process-wide count of operator new calls, for benchmarks that report the
// heap allocations a piece of code makes. The count moves only in programs
// that also link the counting operator new (the lumvane_bench_counting_new
// object library); anywhere else it stays 0. A thread that measures rather
// than does the work (a memory sampler) takes itself out of the count, so
// that between two readings the count is the measured code's alone.
#pragma once

#include <atomic>
#include <cstdint>

namespace lumvane::bench {

// Read by the counting operator new; constant-initialised, so that the
// thread-local flag is reached without a wrapper call on every allocation.
inline std::atomic<uint64_t> gAllocationCount{0};
inline thread_local bool tAllocationsUncounted = false;

// Allocations counted so far, from every thread not taken out of the count.
inline uint64_t AllocationCount() { return gAllocationCount.load(); }

// The calling thread's allocations are not counted for the rest of its life.
inline void StopCountingThisThreadsAllocations() { tAllocationsUncounted = true; }

}  // namespace lumvane::bench

// CPU time and memory readings of this process, the units every benchmark
// figure is built from. The machine may be shared, so wall time is read next
// to the CPU time that the same work took.
#pragma once

namespace lumvane::bench {

// User and system CPU seconds of this process (RUSAGE_SELF), of the calling
// thread (RUSAGE_THREAD) or of its waited-for children (RUSAGE_CHILDREN).
double CpuSeconds(int who);

// The KiB figure of a line of /proc/self/status, `key` including its colon
// ("VmRSS:", "RssAnon:"); -1 when the line is missing.
long StatusKiB(const char* key);

}  // namespace lumvane::bench

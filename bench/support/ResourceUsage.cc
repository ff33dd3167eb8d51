#include "bench/support/ResourceUsage.h"

#include <sys/resource.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace lumvane::bench {

double CpuSeconds(int who) {
  struct rusage u;
  getrusage(who, &u);
  return u.ru_utime.tv_sec + u.ru_stime.tv_sec + (u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

long StatusKiB(const char* key) {
  std::ifstream in("/proc/self/status");
  const size_t n = std::strlen(key);
  for (std::string line; std::getline(in, line);) {
    if (line.compare(0, n, key) == 0) return std::strtol(line.c_str() + n, nullptr, 10);
  }
  return -1;
}

}  // namespace lumvane::bench

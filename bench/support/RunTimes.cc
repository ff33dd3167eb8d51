#include "bench/support/RunTimes.h"

#include <algorithm>
#include <cstdio>

namespace lumvane::bench {

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const size_t m = v.size() / 2;
  return v.empty() ? 0 : v.size() % 2 ? v[m] : (v[m - 1] + v[m]) / 2;
}

std::string Times(const std::vector<double>& v) {
  std::string s;
  for (double t : v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%s%.3f", s.empty() ? "" : " ", t);
    s += buf;
  }
  return s;
}

}  // namespace lumvane::bench

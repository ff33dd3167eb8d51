// Summaries of repeated runs. Contenders run several times, alternating, on
// a machine that may be shared: the median is the figure compared, and the
// single times are printed beside it so that a noisy run shows.
#pragma once

#include <string>
#include <vector>

namespace lumvane::bench {

// The median of `v`; the mean of the middle two for an even count; 0 when
// empty.
double Median(std::vector<double> v);

// The times in run order, "%.3f" each, separated by single spaces.
std::string Times(const std::vector<double>& v);

}  // namespace lumvane::bench

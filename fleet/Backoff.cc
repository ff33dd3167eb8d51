#include "fleet/Backoff.h"

#include <algorithm>

namespace lumvane::fleet {

Backoff::Backoff(BackoffPolicy policy, uint64_t seed) : policy_(policy), random_(seed) {}

std::chrono::milliseconds Backoff::delay(int failures) {
  double base = static_cast<double>(policy_.initial.count());
  const double cap = static_cast<double>(policy_.maximum.count());
  for (int i = 1; i < failures && base < cap; ++i) base *= 2;
  base = std::min(base, cap);
  double factor = 1.0;
  if (policy_.jitter > 0) {
    std::uniform_real_distribution<double> spread(1.0 - policy_.jitter, 1.0 + policy_.jitter);
    std::lock_guard<std::mutex> lock(mu_);
    factor = spread(random_);
  }
  const auto ms = static_cast<int64_t>(base * factor);
  return std::chrono::milliseconds(std::max<int64_t>(ms, 1));
}

}  // namespace lumvane::fleet

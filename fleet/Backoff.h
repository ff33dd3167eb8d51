// The wait before the next connection attempt: exponential from `initial`,
// doubling per failed attempt up to `maximum`, each wait spread by a random
// factor in [1 - jitter, 1 + jitter] so that a fleet that lost its server at
// the same moment does not come back in lock-step.
//
// Thread-safety: delay() may be called from any thread (the client library
// calls it from its reconnect thread); the random source is guarded.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <random>

namespace lumvane::fleet {

struct BackoffPolicy {
  std::chrono::milliseconds initial{100};
  std::chrono::milliseconds maximum{30000};
  double jitter = 0.2;  // fraction, 0 <= jitter < 1
};

class Backoff final {
 public:
  explicit Backoff(BackoffPolicy policy, uint64_t seed = std::random_device{}());

  // The wait after `failures` failed attempts in a row (1 for the first
  // failure). Never below 1 ms.
  std::chrono::milliseconds delay(int failures);

  const BackoffPolicy& policy() const { return policy_; }

 private:
  const BackoffPolicy policy_;
  std::mutex mu_;
  std::mt19937_64 random_;
};

}  // namespace lumvane::fleet

// The random source of a synthetic signpost store: splitmix64, small, fast
// and the same on every platform, so that a seed always gives the same
// store. Every entry of the store draws from one source in a fixed order;
// the generator's classes share it by reference. Not thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace lumvane {

class SignpostStoreRandom final {
 public:
  explicit SignpostStoreRandom(uint64_t seed) : s_(seed) {}

  uint64_t next() {
    uint64_t z = (s_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  // In [0, n); 0 when n is 0.
  uint64_t below(uint64_t n) { return n ? next() % n : 0; }
  template <typename T, size_t N>
  const T& pick(const T (&items)[N]) {
    return items[below(N)];
  }
  // 128 random bits as 32 lower-case hex digits, the form of the journal's
  // machine, boot and sequence-number IDs. Draws twice.
  std::string hex128();

 private:
  uint64_t s_;
};

}  // namespace lumvane

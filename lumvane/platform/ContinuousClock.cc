#include "lumvane/platform/ContinuousClock.h"

#include <time.h>

#include "lumvane/platform/NoDestructor.h"

namespace lumvane {
namespace {

class BootTimeClock final : public ContinuousClock {
 public:
  uint64_t now() const override {
    struct timespec ts;
    clock_gettime(CLOCK_BOOTTIME, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1'000'000'000ull +
           static_cast<uint64_t>(ts.tv_nsec);
  }
  Timebase timebase() const override { return {1, 1}; }
};

}  // namespace

ContinuousClock& DefaultContinuousClock() {
  static NoDestructor<BootTimeClock> clock;
  return *clock;
}

}  // namespace lumvane

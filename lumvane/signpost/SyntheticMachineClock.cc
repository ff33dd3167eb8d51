#include "lumvane/signpost/SyntheticMachineClock.h"

#include <utility>

namespace lumvane {

SyntheticMachineClock::SyntheticMachineClock(Date dayStart, int64_t sleepAtAwakeMicros,
                                             int64_t sleepMicros, Date bootStart,
                                             std::string bootId)
    : dayStart_(dayStart),
      sleepAt_(sleepAtAwakeMicros),
      sleep_(sleepMicros),
      bootStart_(bootStart),
      bootId_(std::move(bootId)),
      now_(dayStart) {}

void SyntheticMachineClock::advanceToAwake(int64_t awakeMicros) {
  now_ =
      dayStart_ + std::chrono::microseconds(awakeMicros + (awakeMicros >= sleepAt_ ? sleep_ : 0));
}

void SyntheticMachineClock::reboot(Date bootStart, std::string bootId) {
  bootStart_ = bootStart;
  bootId_ = std::move(bootId);
  rebooted_ = true;
}

uint64_t SyntheticMachineClock::monotonicMicros() const {
  const bool sleptBefore = !rebooted_ && (now_ - dayStart_).count() >= sleepAt_ + sleep_;
  return static_cast<uint64_t>((now_ - bootStart_).count() - (sleptBefore ? sleep_ : 0));
}

uint64_t SyntheticMachineClock::boottimeNanos(uint64_t belowMicro) const {
  return static_cast<uint64_t>((now_ - bootStart_).count()) * 1000 + belowMicro;
}

}  // namespace lumvane

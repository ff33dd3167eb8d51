// The clocks of the machine whose day a synthetic signpost store covers:
// the wall clock (an entry's realtime), CLOCK_MONOTONIC (stops while the
// machine sleeps) and CLOCK_BOOTTIME (keeps counting), both from the boot's
// start. The machine sleeps once during its first boot and may reboot once,
// after which both clocks start again under a new boot ID. Used by the
// store generator only (SignpostStoreDay, SignpostStoreEntryWriter); not
// thread-safe.
#pragma once

#include <cstdint>
#include <string>

#include "lumvane/platform/Date.h"

namespace lumvane {

class SyntheticMachineClock final {
 public:
  // The machine is awake from `dayStart` on, except for `sleepMicros` that
  // begin `sleepAtAwakeMicros` of awake time after it; its first boot began
  // at `bootStart`.
  SyntheticMachineClock(Date dayStart, int64_t sleepAtAwakeMicros, int64_t sleepMicros,
                        Date bootStart, std::string bootId);

  // Moves the wall clock to `awakeMicros` of awake time after the day's start.
  void advanceToAwake(int64_t awakeMicros);
  // From now on the machine runs a boot that began at `bootStart` (no later
  // than now) and never sleeps.
  void reboot(Date bootStart, std::string bootId);

  bool rebooted() const { return rebooted_; }
  const std::string& bootId() const { return bootId_; }
  uint64_t realtimeMicros() const { return static_cast<uint64_t>(now_.time_since_epoch().count()); }
  uint64_t monotonicMicros() const;
  // CLOCK_BOOTTIME in nanoseconds; `belowMicro` (0..999) fills the digits
  // that the microsecond clocks do not have.
  uint64_t boottimeNanos(uint64_t belowMicro) const;
  Date now() const { return now_; }

 private:
  const Date dayStart_;
  const int64_t sleepAt_;
  const int64_t sleep_;
  Date bootStart_;
  std::string bootId_;
  bool rebooted_ = false;
  Date now_;
};

}  // namespace lumvane

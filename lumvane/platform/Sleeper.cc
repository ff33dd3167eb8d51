#include "lumvane/platform/Sleeper.h"

#include <errno.h>
#include <time.h>

#include "lumvane/platform/NoDestructor.h"

namespace lumvane {
namespace {

class NanosleepSleeper final : public Sleeper {
 public:
  void sleepMicroseconds(uint32_t microseconds) override {
    struct timespec left;
    left.tv_sec = microseconds / 1'000'000;
    left.tv_nsec = static_cast<long>(microseconds % 1'000'000) * 1000;
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
  }
};

}  // namespace

Sleeper& DefaultSleeper() {
  static NoDestructor<NanosleepSleeper> sleeper;
  return *sleeper;
}

}  // namespace lumvane

#include "lumvane/platform/SignalSource.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

namespace lumvane {
namespace {

// Runs in a child process: the handler must run on the queue, after the
// source is resumed, and its _exit(0) must be the status the parent sees.
[[noreturn]] void InterruptOnceResumed() {
  BlockSignalInProcess(SIGINT);
  auto queue = NewSerialWorkQueue("lumvane processing queue");
  std::optional<Error> error;
  auto source = NewSignalSource(SIGINT, *queue, [&queue] { ::_exit(queue->isCurrent() ? 0 : 3); },
                                &error);
  if (!source) ::_exit(4);
  ::kill(::getpid(), SIGINT);  // stays pending while the source is suspended
  ::usleep(20'000);
  source->resume();
  ParkCallingThreadForever();
}

TEST(SignalSourceDeathTest, InterruptEndsTheProcessThroughTheQueueWithStatusZero) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(InterruptOnceResumed(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace lumvane

#include "lumvane/platform/RepeatingTimer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "lumvane/platform/CountingSemaphore.h"
#include "tests/support/platform/ManualTimerFactory.h"

namespace lumvane {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(RepeatingTimerTest, FiresAtOnceThenPeriodicallyOnItsQueueAndStopsWhenCancelled) {
  auto queue = NewSerialWorkQueue("lumvane defer polling queue");
  CountingSemaphore fired;
  std::atomic<int> firings{0};
  std::atomic<bool> offQueue{false};
  auto timer = DefaultTimerFactory().makeRepeatingTimer(queue, [&] {
    if (!queue->isCurrent()) offQueue = true;
    firings.fetch_add(1);
    fired.signal();
  });
  timer->setSchedule(milliseconds(0), milliseconds(2), milliseconds(1));
  EXPECT_FALSE(fired.waitFor(milliseconds(20))) << "fired before start()";
  timer->start();
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(fired.waitFor(seconds(5))) << i;
  timer->cancel();
  const int atCancel = firings.load();
  std::this_thread::sleep_for(milliseconds(20));  // ten periods
  queue->sync([] {});
  EXPECT_EQ(firings.load(), atCancel);
  EXPECT_FALSE(offQueue.load());
  timer->start();  // no restart after cancel
  EXPECT_FALSE(fired.waitFor(milliseconds(10)));
}

TEST(RepeatingTimerTest, HonoursStartDelayFiresFirstAtOnceAndMayBeCancelledFromItsHandler) {
  auto queue = NewSerialWorkQueue("q");
  std::atomic<int> late{0}, selfFirings{0};
  auto delayed = DefaultTimerFactory().makeRepeatingTimer(queue, [&] { late.fetch_add(1); });
  delayed->setSchedule(hours(1), milliseconds(1), milliseconds(0));
  delayed->start();

  CountingSemaphore fired;
  std::unique_ptr<RepeatingTimer> self;
  self = DefaultTimerFactory().makeRepeatingTimer(queue, [&] {
    selfFirings.fetch_add(1);
    self->cancel();  // must not wait for itself
    fired.signal();
  });
  // A period of an hour: only a first firing at once can come in time, and the leeway (the deferral
  // poll's) must not delay it.
  self->setSchedule(milliseconds(0), hours(1), seconds(10));
  self->start();
  ASSERT_TRUE(fired.waitFor(seconds(5)));
  std::this_thread::sleep_for(milliseconds(10));
  queue->sync([] {});
  EXPECT_EQ(selfFirings.load(), 1);
  EXPECT_EQ(late.load(), 0);
  delayed.reset();  // destruction cancels and does not wait out the hour
}

// The double the run's tests drive: only a started, live timer fires, on its queue; its schedule and firings
// are recorded, and cancelling lets go of the handler.
TEST(ManualTimerFactoryTest, FiresOnlyStartedLiveTimersOnTheirQueueAndLetsGoOfHandlers) {
  ManualTimerFactory factory;
  auto queue = NewSerialWorkQueue("q");
  auto held = std::make_shared<int>(0);
  std::atomic<int> onQueue{0};
  auto timer = factory.makeRepeatingTimer(queue, [&, held] { onQueue += queue->isCurrent() ? 1 : 0; });
  timer->setSchedule(milliseconds(0), seconds(10), seconds(20));
  EXPECT_EQ(factory.fireAll(), 0);  // not started
  timer->start();
  EXPECT_EQ(factory.fireAll(), 1);
  EXPECT_EQ(factory.fireAll(), 1);
  EXPECT_EQ(onQueue.load(), 2);
  EXPECT_EQ(held.use_count(), 2);
  timer.reset();
  EXPECT_EQ(held.use_count(), 1) << "a cancelled timer keeps its handler alive";
  EXPECT_EQ(factory.fireAll(), 0);
  const auto r = factory.timers().at(0);
  EXPECT_EQ(std::make_tuple(r.startDelay, r.period, r.leeway, r.started, r.cancelled, r.firings),
            std::make_tuple(milliseconds(0), seconds(10), seconds(20), true, true, 2));
}

}  // namespace
}  // namespace lumvane

#include "lumvane/filter/LVPlatform.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "lumvane/filter/LVLog.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

TEST(LVPlatformTest, NamesAndNumbersAreInverseAndEverythingElseIsUnknown) {
  EXPECT_EQ(LVCurrentPlatform(), LVPlatformCirros);
  const char* names[] = {"Unknown", "Ardenos", "Belvos", "Cirros", "Dalvos", "Elmos", "Unknown"};
  for (uint32_t p = 0; p <= 6; ++p) {  // 6 is no platform
    EXPECT_STREQ(LVPlatformName(static_cast<LVPlatform>(p)), names[p]);
    EXPECT_EQ(LVPlatformFromName(std::string(names[p])), static_cast<LVPlatform>(p % 6));
  }
  EXPECT_EQ(LVPlatformFromName(std::string("cirros")), LVPlatformUnknown);
  EXPECT_EQ(LVPlatformFromName(std::nullopt), LVPlatformUnknown);
}

TEST(LVLogTest, OneHandleForAllThreadsAndWholeRecordsFromEach) {
  testing::ScopedLogCapture capture;
  constexpr int kThreads = 8, kLines = 200;
  std::vector<SystemLog*> handles(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &handles] {
      handles[t] = &LVLog();
      for (int i = 0; i < kLines; ++i) LVLogDebug("thread %d line %d", t, i);
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(std::set<SystemLog*>(handles.begin(), handles.end()).size(), 1u);
  EXPECT_EQ(LVLog().subsystem() + "/" + LVLog().category(), "com.orvel.Vantrel/lumvane");
  // Each thread's lines arrive whole and in its own order.
  auto records = capture.log().records();
  ASSERT_EQ(records.size(), size_t{kThreads * kLines});
  std::vector<int> next(kThreads, 0);
  for (const auto& r : records) {
    int t = -1, i = -1;
    ASSERT_EQ(std::sscanf(r.message.c_str(), "thread %d line %d", &t, &i), 2) << r.message;
    EXPECT_EQ(i, next[t]++);
    EXPECT_EQ(r.level, LogLevel::Debug);
  }
}

TEST(LVLogTest, DisabledLevelSkipsFormatting) {
  testing::ScopedLogCapture capture(LogLevel::Error);
  struct Costly {
    int* calls;
    std::string description() const {
      ++*calls;
      return "x";
    }
  };
  int calls = 0;
  LVLogDebug("%@", Costly{&calls});
  LVLogError("Could not clear cookie file: %@", Costly{&calls});
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(capture.log().messages(), std::vector<std::string>{"Could not clear cookie file: x"});
}

}  // namespace
}  // namespace lumvane

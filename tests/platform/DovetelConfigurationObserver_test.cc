#include "lumvane/platform/DovetelConfigurationObserver.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <future>
#include <vector>

#include "lumvane/platform/CountingSemaphore.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using Deliveries = std::vector<std::pair<std::optional<Value>, std::string>>;

// Its fields are written on the delivery queue only; the test reads them after a sync with that queue.
class RecordingDelegate final : public DovetelConfigurationObserverDelegate {
 public:
  explicit RecordingDelegate(std::shared_ptr<WorkQueue> queue) : queue(std::move(queue)) {}
  void observer(const std::weak_ptr<DovetelConfigurationObserver>& observer,
                const std::optional<Value>& configuration, const std::string& type) override {
    allOnQueue = allOnQueue && queue->isCurrent();
    deliveries.push_back({configuration, type});
    observerAlive = !observer.expired();
    arrived.signal();
  }
  const std::shared_ptr<WorkQueue> queue;
  Deliveries deliveries;
  bool observerAlive = false, allOnQueue = true;
  CountingSemaphore arrived;
};

// An observer over a temporary Dovetel directory, delivering to a recording delegate on its own queue.
class DovetelConfigurationObserverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(dir);
    observer->setConfigurationObserverDelegate(delegate, queue);
  }
  testing::TempDir dovetel;
  const std::string dir = dovetel.file("configurations");
  testing::ScopedLogCapture capture;
  const std::shared_ptr<WorkQueue> queue = NewSerialWorkQueue("lumvane configuration observing queue");
  const std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>(queue);
  std::shared_ptr<DovetelConfigurationObserver> observer = NewDovetelConfigurationObserver(dovetel.path());
};

TEST_F(DovetelConfigurationObserverTest, DeliversFileContentsAndChanges) {
  testing::WriteFile(dir + "/obj.json", R"({"TaskedOn": 1, "neg": -2, "f": 1.5, "s": "x\u00e9", "b": true,
                                            "n": null, "a": [1, null], "big": 18446744073709551615})");
  testing::WriteFile(dir + "/arr.json", "[\"a\", 2.0]");
  testing::WriteFile(dir + "/null.json", " null ");
  testing::WriteFile(dir + "/bad.json", "{\"TaskedOn\": ");
  for (const char* type : {"obj", "arr", "null", "bad", "missing"}) {
    observer->startObservingConfigurationType(type);
  }
  queue->sync([] {});
  Dictionary expected{{"TaskedOn", Number::fromUInt64(1)}, {"neg", Number::fromInt64(-2)},
                      {"f", Number::fromDouble(1.5)},      {"s", "x\xc3\xa9"},
                      {"b", Number::fromBool(true)},       {"a", Value(Array{Value(Number::fromUInt64(1))})},
                      {"big", Number::fromUInt64(18446744073709551615ull)}};
  EXPECT_EQ(delegate->deliveries, (Deliveries{{Value(expected), "obj"},
                                              {Value(Array{"a", Value(Number::fromDouble(2.0))}), "arr"},
                                              {std::nullopt, "null"}}));
  EXPECT_TRUE(delegate->observerAlive);
  auto records = capture.log().records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, LogLevel::Error);
  EXPECT_NE(records[0].message.find(dir + "/bad.json"), std::string::npos) << records[0].message;

  // A file that appears, and one replaced by rename, are delivered again; one of an unobserved type is not.
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(delegate->arrived.waitFor(std::chrono::seconds(0)));
  testing::WriteFile(dir + "/other.json", "{}");
  testing::WriteFile(dir + "/missing.json", "{\"TaskedOn\": 0}");
  ASSERT_TRUE(delegate->arrived.waitFor(std::chrono::seconds(10)));
  testing::WriteFile(dir + "/obj.json.tmp", "[]");
  ASSERT_EQ(std::rename((dir + "/obj.json.tmp").c_str(), (dir + "/obj.json").c_str()), 0);
  ASSERT_TRUE(delegate->arrived.waitFor(std::chrono::seconds(10)));
  observer.reset();  // stops and joins the watcher
  queue->sync([] {});
  EXPECT_TRUE(delegate->allOnQueue);
  ASSERT_EQ(delegate->deliveries.size(), 5u);
  EXPECT_EQ(Deliveries(delegate->deliveries.begin() + 3, delegate->deliveries.end()),
            (Deliveries{{Value(Dictionary{{"TaskedOn", Number::fromUInt64(0)}}), "missing"},
                        {Value(Array{}), "obj"}}));
}

// A FIFO or a directory in place of a configuration file is refused at once
// with its path: the run's gate must not hang before its own timeout starts.
TEST_F(DovetelConfigurationObserverTest, RefusesSpecialFilesWithoutBlocking) {
  std::filesystem::create_directories(dir + "/directory.json");
  ASSERT_EQ(mkfifo((dir + "/fifo.json").c_str(), 0600), 0);
  auto started = std::async(std::launch::async, [&] {
    for (const char* type : {"fifo", "directory"}) observer->startObservingConfigurationType(type);
  });
  if (started.wait_for(std::chrono::seconds(3)) != std::future_status::ready) {
    ADD_FAILURE() << "blocked on the FIFO";
    // Free it, and take the FIFO away before the watcher sees the writer go.
    int writer = open((dir + "/fifo.json").c_str(), O_WRONLY | O_NONBLOCK);
    started.wait();
    unlink((dir + "/fifo.json").c_str());
    close(writer);
  }
  queue->sync([] {});
  EXPECT_TRUE(delegate->deliveries.empty());
  const std::string refused = ": not a regular file", read = "Could not read configuration file ";
  EXPECT_EQ(capture.log().messages(),
            (std::vector<std::string>{read + dir + "/fifo.json: cannot read " + dir + "/fifo.json" + refused,
                                      read + dir + "/directory.json: cannot read " + dir + "/directory.json" +
                                          refused}));
}

}  // namespace
}  // namespace lumvane

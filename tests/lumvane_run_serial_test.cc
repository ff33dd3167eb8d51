// Runs the `lumvane` command as a child process over generated signpost
// stores and checks, from the outside, what it appends to the telemetry
// service's event file against what the store holds. A run takes the
// machine-wide guard file, so these tests never run alongside one another.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "lumvane/BootFilesystemProbe.h"
#include "lumvane/filter/LumvaneObjectFilter.h"
#include "lumvane/platform/DovetelEventReader.h"
#include "lumvane/platform/InternalDiagnostics.h"
#include "lumvane/signpost/LogStoreExtractor.h"
#include "tests/support/TestSupport.h"

namespace lumvane {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::ChildProcess;
using testing::PathExists;

constexpr char kGuardFile[] = "/var/tmp/lumvane_running";
constexpr char kDiagnosticsMarker[] = "/etc/lumvane/internal-diagnostics";
constexpr char kEnd[] = "2024-05-01T12:00:00+02:00";
const Date kEndDate{std::chrono::seconds(1714557600)};  // kEnd

// What a run over the store must send, worked out here with the store reader
// and a fresh object filter of this build's platform.
struct Expected {
  std::vector<std::shared_ptr<const SignpostObject>> accepted;  // in delivery order
  std::vector<DovetelEvent> countEvents;
  std::shared_ptr<LumvaneObjectFilter> filter;
  uint64_t processed = 0;
  std::optional<std::string> bootFilesystemType;  // as the run finds it
};

Expected ExpectedFor(const std::string& store, Date end) {
  testing::ScopedLogCapture quiet(LogLevel::Error);
  auto previous =
      ExchangeInternalDiagnosticsCheck(std::make_shared<FakeInternalDiagnosticsCheck>(false));
  Expected expected;
  expected.filter = LumvaneObjectFilter::init();
  auto take = [&](std::shared_ptr<const SignpostObject> object) {
    if (expected.filter->shouldReportSignpostObject(*object, nullptr) &&
        object->dovetelPayload()) {
      expected.accepted.push_back(object);
    }
    return true;
  };
  LogStoreExtractor extractor;
  extractor.setIntervalCompletionProcessingBlock(take);
  extractor.setAnimationIntervalCompletionProcessingBlock(take);
  extractor.setEmitEventProcessingBlock(take);
  std::optional<Error> error;
  EXPECT_TRUE(extractor.processLogArchiveWithPath(store, DateByAddingSeconds(end, -86400.0), end,
                                                  &error));
  expected.processed = extractor.processedEventCount();
  expected.bootFilesystemType = bootFilesystemType();
  ExchangeInternalDiagnosticsCheck(previous);

  const LumvaneObjectFilter& f = *expected.filter;
  const std::pair<const LumvaneAggregation*, const char*> dumped[] = {
      {&f.allInspectedSignpostObjectsAggregation(), "AllInspected"},
      {&f.telemetryReportedAggregation(), "Reported"},
      {&f.telemetryReportedEventsAggregation(), "ReportedEvents"},
      {&f.telemetryNotReportedFailedSCFilterAggregation(), "SubsystemCategoryFiltered"},
      {&f.telemetryNotReportedDurationThresholdAggregation(), "DurationThresholdFiltered"},
      {&f.telemetryNotReportedFailedStringWhitelistAggregation(), "StringWhitelistFiltered"}};
  for (const auto& [aggregation, classification] : dumped) {
    auto keys = aggregation->keysInDescendingCountOrder();
    for (size_t i = 0; i < keys.size() && i < 5; ++i) {
      Dictionary payload;
      payload.set("Subsystem", keys[i]->subsystem());
      payload.set("Category", keys[i]->category());
      payload.set("Count", Number::fromUInt64(aggregation->aggregationDictionary().at(keys[i])));
      payload.set("Classification", classification);
      expected.countEvents.push_back({"com.orvel.performance.signpost_counts", payload});
    }
  }
  return expected;
}

std::optional<Value> At(const Dictionary& payload, std::string_view key) {
  const Value* value = payload.find(key);
  return value ? std::optional<Value>(*value) : std::nullopt;
}

std::vector<std::string> Keys(const Dictionary& payload) {
  std::vector<std::string> keys = payload.keys();
  std::sort(keys.begin(), keys.end());
  return keys;
}

class LumvaneRunTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (PathExists(kGuardFile)) {
      GTEST_SKIP() << kGuardFile << " exists (a run under way, or one that never finished); "
                   << "left alone";
    }
    if (PathExists(kDiagnosticsMarker)) GTEST_SKIP() << kDiagnosticsMarker << " exists";
    guardWasAbsent_ = true;
    ASSERT_TRUE(std::filesystem::create_directory(dir_.file("state")));
    ASSERT_TRUE(std::filesystem::create_directories(dir_.file("dovetel/configurations")));
    setTaskedOn(true);
  }

  void TearDown() override {
    // Only a run of this test can have left it: it was absent before.
    if (guardWasAbsent_ && PathExists(kGuardFile)) {
      ADD_FAILURE() << "the run left " << kGuardFile << " behind";
      ::unlink(kGuardFile);
    }
  }

  void setTaskedOn(bool on) {
    const std::string config = "dovetel/configurations/com.orvel.performance.lumvane_tasking.json";
    testing::WriteFile(dir_.file(config), on ? "{\"TaskedOn\": 1}\n" : "{\"TaskedOn\": 0}\n");
  }

  std::string generateStore(uint64_t seed, uint64_t records) {
    const std::string store = dir_.file("store.ndjson");
    ChildProcess generator({LUMVANE_BINARY_DIR "/generate_signpost_store", "--seed",
                            std::to_string(seed), "--records", std::to_string(records), "--end",
                            kEnd, "--out", store},
                           {}, dir_.file("generator"));
    EXPECT_EQ(generator.wait(30s), 0) << generator.err();
    return store;
  }

  std::unique_ptr<ChildProcess> start(std::vector<std::string> args) {
    args.insert(args.begin(), LUMVANE_BINARY_DIR "/lumvane");
    return std::make_unique<ChildProcess>(
        args,
        std::vector<std::string>{"LUMVANE_STATE_DIR=" + dir_.file("state"),
                                 "LUMVANE_DOVETEL_DIR=" + dir_.file("unused-dovetel"),
                                 "LUMVANE_LOG_LEVEL=debug", "LUMVANE_LOG_TARGET=stderr"},
        dir_.file("lumvane"));
  }

  std::unique_ptr<ChildProcess> startRun(const std::string& store) {
    return start({"run", "--store", store, "--dovetel-dir", dir_.file("dovetel"), "--now", kEnd});
  }

  DovetelEventFile events() const { return ReadDovetelEvents(dir_.file("dovetel/events.ndjson")); }

  testing::TempDir dir_;
  bool guardWasAbsent_ = false;
};

TEST_F(LumvaneRunTest, SendsTwoEventsPerAcceptedObjectThenCountsThenStatistics) {
  const std::string store = generateStore(7, 300);
  const Expected expected = ExpectedFor(store, kEndDate);
  ASSERT_GE(expected.accepted.size(), 10u) << "the store should hold reportable objects";
  ASSERT_LT(expected.accepted.size(), expected.filter->allInspectedSignpostObjectsAggregation()
                                          .totalCount())
      << "the store should hold rejected objects too";

  auto run = startRun(store);
  ASSERT_EQ(run->wait(60s), 0) << run->err();
  EXPECT_FALSE(PathExists(kGuardFile));
  EXPECT_NE(run->err().find("Done processing "), std::string::npos) << run->err();

  const DovetelEventFile file = events();
  ASSERT_FALSE(file.error) << file.error->localizedDescription();
  EXPECT_EQ(file.skippedLines, 0u);
  const auto& sent = file.events;
  const size_t objectEvents = 2 * expected.accepted.size();
  ASSERT_EQ(sent.size(), objectEvents + expected.countEvents.size() + 1);

  for (size_t i = 0; i < expected.accepted.size(); ++i) {
    const SignpostObject& object = *expected.accepted[i];
    const DovetelEvent& general = sent[2 * i];
    const DovetelEvent& specific = sent[2 * i + 1];
    SCOPED_TRACE("object " + std::to_string(i) + ": " + specific.name);
    EXPECT_EQ(general.name, "com.orvel.performance.signpost");
    EXPECT_EQ(specific.name, "sp__" + object.subsystem().value_or("") + "__" +
                                 object.category().value_or("") + "__" +
                                 object.name().value_or(""));
    EXPECT_EQ(general.payload, specific.payload);
    Dictionary payload = *object.dovetelPayload();
    payload.set("BootPartitionFS", expected.bootFilesystemType);
    payload.set("BootDiskType", "SSD");
    EXPECT_EQ(Keys(general.payload), Keys(payload));
    for (const std::string& key : payload.keys()) {
      if (payload.find(key)->asString()) {
        EXPECT_EQ(At(general.payload, key), At(payload, key)) << key;
      }
    }
  }
  for (size_t i = 0; i < expected.countEvents.size(); ++i) {
    EXPECT_EQ(sent[objectEvents + i].name, expected.countEvents[i].name) << i;
    EXPECT_EQ(sent[objectEvents + i].payload, expected.countEvents[i].payload) << i;
  }

  const DovetelEvent& stats = sent.back();
  EXPECT_EQ(stats.name, "com.orvel.performance.signpost_reporting_stats");
  const LumvaneObjectFilter& f = *expected.filter;
  const std::pair<const char*, uint64_t> counts[] = {
      {"LogObjectsProcessed", expected.processed},
      {"AnimationsReported", f.totalReportedAnimationCount()},
      {"IntervalsReported", f.totalReportedIntervalCount()},
      {"EventsReported", f.totalReportedEventCount()},
      {"AnimationsNotReported", f.totalUnreportedAnimationCount()},
      {"IntervalsNotReported", f.totalUnreportedIntervalCount()},
      {"EventsNotReported", f.totalUnreportedEventCount()}};
  for (const auto& [key, count] : counts) {
    EXPECT_EQ(At(stats.payload, key), Value(Number::fromUInt64(count))) << key;
  }
  EXPECT_EQ(At(stats.payload, "WasInterrupted"), Value(Number::fromBool(false)));
}

TEST_F(LumvaneRunTest, EndsWithoutProcessingWhenNotTaskedOrTheStoreIsMissing) {
  const std::string store = generateStore(7, 50);
  setTaskedOn(false);
  auto untasked = startRun(store);
  EXPECT_EQ(untasked->wait(30s), 1) << untasked->err();
  EXPECT_FALSE(PathExists(dir_.file("dovetel/events.ndjson")));
  EXPECT_FALSE(PathExists(kGuardFile));
  EXPECT_NE(untasked->err().find("not tasked"), std::string::npos) << untasked->err();

  setTaskedOn(true);
  const std::string missing = dir_.file("no-such-store");
  auto unreadable = startRun(missing);
  EXPECT_EQ(unreadable->wait(30s), 1) << unreadable->err();
  EXPECT_NE(unreadable->err().find("lumvane: the signpost store could not be read"),
            std::string::npos) << unreadable->err();
  EXPECT_NE(unreadable->err().find(missing), std::string::npos) << unreadable->err();
  EXPECT_FALSE(PathExists(kGuardFile));
}

TEST_F(LumvaneRunTest, AnswersUsageWithItsExitStatus) {
  auto help = start({"--help"});
  EXPECT_EQ(help->wait(10s), 0);
  EXPECT_NE(help->out().find("usage: lumvane run"), std::string::npos) << help->out();
  for (std::vector<std::string> args :
       {std::vector<std::string>{"run", "--bogus"}, {"frobnicate"}, {}, {"run", "--now", "noon"}}) {
    auto wrong = start(args);
    EXPECT_EQ(wrong->wait(10s), 2) << wrong->err();
    EXPECT_NE(wrong->err().find("usage: lumvane run"), std::string::npos) << wrong->err();
  }
  EXPECT_FALSE(PathExists(dir_.file("dovetel/events.ndjson")));
}

TEST_F(LumvaneRunTest, DeferralDuringProcessingEndsTheRunInterrupted) {
  const std::string store = generateStore(11, 21000);
  const Expected expected = ExpectedFor(store, kEndDate);
  // Two throttled sends per object at 80 a second: longer than the second
  // poll can be late (its period plus its leeway, 20 s).
  ASSERT_GE(expected.accepted.size(), 1000u);

  auto run = startRun(store);
  for (Clock::time_point deadline = Clock::now() + 20s;
       events().events.size() < 4 && Clock::now() < deadline;) {
    std::this_thread::sleep_for(20ms);
  }
  testing::WriteFile(dir_.file("state/defer"), "");
  ASSERT_EQ(run->wait(40s), 0) << run->err();
  EXPECT_FALSE(PathExists(kGuardFile));
  EXPECT_NE(run->err().find("Concluding processing due to deferral request"), std::string::npos)
      << run->err();
  EXPECT_NE(run->err().find("(Interrupted by deferral)"), std::string::npos) << run->err();

  const auto& sent = events().events;
  ASSERT_FALSE(sent.empty());
  size_t objectSends = 0;
  for (const DovetelEvent& event : sent) {
    objectSends += event.name == "com.orvel.performance.signpost" ||
                   event.name.rfind("sp__", 0) == 0;
  }
  EXPECT_GE(objectSends, 4u);
  EXPECT_LT(objectSends, 2 * expected.accepted.size());
  EXPECT_EQ(sent.back().name, "com.orvel.performance.signpost_reporting_stats");
  EXPECT_EQ(At(sent.back().payload, "WasInterrupted"), Value(Number::fromBool(true)));
}

}  // namespace
}  // namespace lumvane

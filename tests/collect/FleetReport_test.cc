// The fleet report over a database filled by hand; every expectation below is counted from the events the test
// writes, and read through the --json form so that the shape is pinned as well.
#include <gtest/gtest.h>

#include <memory>

#include "collect/EventStore.h"
#include "collect/FleetEventDecoder.h"
#include "collect/FleetReport.h"
#include "collect/FleetReportFormat.h"
#include "tests/support/TestSupport.h"

namespace lumvane::collect {
namespace {

constexpr int64_t kMay1 = 1714521600000000;  // 2024-05-01T00:00:00Z
constexpr int64_t kDay = 86400000000;
const std::string kSignpost = "com.orvel.performance.signpost";

class FleetReportTest : public ::testing::Test {
 protected:
  void add(const std::string& machine, const std::string& name, int64_t sent, const std::string& payload) {
    events_.push_back(FleetEvent{"id" + std::to_string(events_.size()), machine, name, sent, UtcDay(sent), payload});
  }
  void signpost(const std::string& machine, const std::string& keys, const std::string& duration, int64_t sent) {
    add(machine, kSignpost, sent, "{" + keys + "\"IntervalType\": \"Interval\", \"DurationInSeconds\": " + duration + "}");
  }
  void stats(const std::string& machine, int64_t sent, int processed, int a, int i, int e, bool interrupted) {
    add(machine, kSignpost + "_reporting_stats", sent,
        "{\"ProcessingDurationInSeconds\": 1.5, \"LogObjectsProcessed\": " + std::to_string(processed) +
            ", \"AnimationsReported\": " + std::to_string(a) + ", \"IntervalsReported\": " + std::to_string(i) +
            ", \"EventsReported\": " + std::to_string(e) +
            ", \"AnimationsNotReported\": 9, \"IntervalsNotReported\": 9, \"EventsNotReported\": 9"
            ", \"WasInterrupted\": " + (interrupted ? "true" : "false") + "}");
  }

  std::vector<FleetEvent> events_;
};

TEST_F(FleetReportTest, AggregatesPerUtcDayFromTheSinceDayOn) {
  const std::string fetch = "\"Subsystem\": \"com.ex\", \"Category\": \"net\", \"Name\": \"Fetch\", ";
  const std::string draw = "\"Subsystem\": \"com.ex\", \"Category\": \"ui\", \"Name\": \"Draw\", ";
  // May 1: ten Fetch intervals 0.1 .. 1.0 s in shuffled order, each also under its own event name (which the
  // durations must not count twice).
  for (int tenth : {7, 3, 10, 1, 5, 9, 2, 8, 6, 4}) {
    const std::string seconds = tenth == 10 ? "1.0" : "0." + std::to_string(tenth);
    signpost("m1", fetch, seconds, kMay1 + tenth);
    add("m1", "sp__com.ex__net__Fetch", kMay1 + tenth, "{" + fetch + "\"DurationInSeconds\": 99.0}");
  }
  signpost("m2", draw, "3.0", kMay1 + 100);
  signpost("m2", draw, "1.0", kMay1 + 101);
  signpost("m2", draw, "2.0", kMay1 + 102);
  signpost("m2", "\"Name\": \"Unknown\", ", "2.5", kMay1 + 103);  // no subsystem, no category
  stats("m1", kMay1 + 200, 1000, 1, 2, 3, false);
  stats("m2", kDay - 1 + kMay1, 500, 0, 4, 0, true);  // last µs of May 1
  // May 2 (first and last µs), and April 30 (last µs) which --since 2024-05-01 leaves out.
  stats("m3", kMay1 + 2 * kDay - 1, 7, 0, 0, 0, false);
  add("m1", "com.orvel.performance.signpost_counts", kMay1 + kDay, "{\"Count\": 4}");
  stats("m9", kMay1 - 1, 1, 1, 1, 1, true);
  lumvane::testing::TempDir dir;
  std::unique_ptr<EventStore> store;
  ASSERT_FALSE(EventStore::Open(dir.file("fleet.db"), false, &store));
  ASSERT_FALSE(store->insertBatch(events_, {}, 0, nullptr));

  const std::string apr30 =
      "{\"day\": \"2024-04-30\", \"machines\": 1, \"events\": {\"com.orvel.performance.signpost_reporting_stats\": "
      "1}, \"signposts\": [], \"runs\": {\"runs\": 1, \"interrupted\": 1, \"logObjectsProcessed\": 1, "
      "\"reported\": 3}}";
  // Nearest ranks: Fetch 5, 9, 10 of 10; Draw 2, 3, 3 of 3.
  const std::string may1 =
      "{\"day\": \"2024-05-01\", \"machines\": 2, \"events\": {\"com.orvel.performance.signpost\": 14, "
      "\"com.orvel.performance.signpost_reporting_stats\": 2, \"sp__com.ex__net__Fetch\": 10}, \"signposts\": ["
      "{\"subsystem\": null, \"category\": null, \"name\": \"Unknown\", \"count\": 1, \"p50\": 2.5, \"p90\": 2.5, "
      "\"p99\": 2.5}, {\"subsystem\": \"com.ex\", \"category\": \"net\", \"name\": \"Fetch\", \"count\": 10, "
      "\"p50\": 0.5, \"p90\": 0.9, \"p99\": 1}, {\"subsystem\": \"com.ex\", \"category\": \"ui\", \"name\": "
      "\"Draw\", \"count\": 3, \"p50\": 2, \"p90\": 3, \"p99\": 3}], \"runs\": {\"runs\": 2, \"interrupted\": 1, "
      "\"logObjectsProcessed\": 1500, \"reported\": 10}}";
  const std::string may2 =
      "{\"day\": \"2024-05-02\", \"machines\": 2, \"events\": {\"com.orvel.performance.signpost_counts\": 1, "
      "\"com.orvel.performance.signpost_reporting_stats\": 1}, \"signposts\": [], \"runs\": {\"runs\": 1, "
      "\"interrupted\": 0, \"logObjectsProcessed\": 7, \"reported\": 0}}";
  const struct {
    std::string since, expected;
  } cases[] = {
      {"", "{\"since\": null, \"days\": [" + apr30 + ", " + may1 + ", " + may2 + "]}\n"},
      {"2024-05-01", "{\"since\": \"2024-05-01\", \"days\": [" + may1 + ", " + may2 + "]}\n"},
      {"2024-05-02", "{\"since\": \"2024-05-02\", \"days\": [" + may2 + "]}\n"},
  };
  for (const auto& c : cases) {
    std::vector<DayReport> days;
    ASSERT_FALSE(BuildFleetReport(store->database(), c.since, &days));
    EXPECT_EQ(FormatFleetReportJson(c.since, days), c.expected);
  }
}

TEST(FleetReportRulesTest, NearestRankAndRealDatesOnly) {
  const std::vector<double> hundred = [] {
    std::vector<double> v;
    for (int i = 1; i <= 100; ++i) v.push_back(i);
    return v;
  }();
  const std::vector<double> one = {4.0}, six = {1, 2, 3, 4, 5, 6};
  const struct {
    const std::vector<double>& values;
    int p;
    double expected;
  } ranks[] = {{one, 99, 4}, {hundred, 1, 1}, {hundred, 50, 50}, {hundred, 100, 100}, {six, 90, 6}, {six, 50, 3}};
  for (const auto& c : ranks) EXPECT_EQ(NearestRank(c.values, c.p), c.expected) << c.p;
  for (const char* good : {"2024-05-01", "2024-02-29", "2000-02-29", "1999-12-31"}) EXPECT_TRUE(IsIsoDay(good)) << good;
  for (const char* bad :
       {"2023-02-29", "1900-02-29", "2024-13-01", "2024-04-31", "2024-5-01", "2024/05/01", "", "20240501xx"}) {
    EXPECT_FALSE(IsIsoDay(bad)) << bad;
  }
}

}  // namespace
}  // namespace lumvane::collect

// The fleet report over a database filled by hand; every expectation below
// is counted from the events that the test writes.
#include <gtest/gtest.h>

#include <memory>

#include "collect/EventStore.h"
#include "collect/FleetEventDecoder.h"
#include "collect/FleetReport.h"
#include "collect/FleetReportFormat.h"
#include "tests/support/TestSupport.h"

namespace lumvane::collect {
namespace {

using lumvane::testing::TempDir;

constexpr int64_t kMay1 = 1714521600000000;  // 2024-05-01T00:00:00Z
constexpr int64_t kDay = 86400000000;
const std::string kSignpost = "com.orvel.performance.signpost";
const std::string kStats = "com.orvel.performance.signpost_reporting_stats";

class FleetReportTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(EventStore::Open(dir_.file("fleet.db"), false, &store_)); }

  void add(const std::string& machine, const std::string& name, int64_t sent, const std::string& payload) {
    events_.push_back(FleetEvent{"id" + std::to_string(events_.size()), machine, name, sent, UtcDay(sent), payload});
  }
  void signpost(const std::string& machine, const std::string& keys, const std::string& duration, int64_t sent) {
    add(machine, kSignpost, sent, "{" + keys + "\"IntervalType\": \"Interval\", \"DurationInSeconds\": " + duration + "}");
  }
  void stats(const std::string& machine, int64_t sent, int processed, int a, int i, int e, bool interrupted) {
    add(machine, kStats, sent,
        "{\"ProcessingDurationInSeconds\": 1.5, \"LogObjectsProcessed\": " + std::to_string(processed) +
            ", \"AnimationsReported\": " + std::to_string(a) + ", \"IntervalsReported\": " + std::to_string(i) +
            ", \"EventsReported\": " + std::to_string(e) +
            ", \"AnimationsNotReported\": 9, \"IntervalsNotReported\": 9, \"EventsNotReported\": 9"
            ", \"WasInterrupted\": " + (interrupted ? "true" : "false") + "}");
  }
  std::vector<DayReport> report(const std::string& since) {
    EXPECT_FALSE(store_->insertBatch(events_, {}, 0, nullptr));
    events_.clear();
    std::vector<DayReport> days;
    EXPECT_FALSE(BuildFleetReport(store_->database(), since, &days));
    return days;
  }

  TempDir dir_;
  std::unique_ptr<EventStore> store_;
  std::vector<FleetEvent> events_;
};

TEST_F(FleetReportTest, AggregatesPerUtcDayFromTheSinceDayOn) {
  const std::string fetch = "\"Subsystem\": \"com.ex\", \"Category\": \"net\", \"Name\": \"Fetch\", ";
  const std::string draw = "\"Subsystem\": \"com.ex\", \"Category\": \"ui\", \"Name\": \"Draw\", ";
  // May 1: ten Fetch intervals 0.1 .. 1.0 s in shuffled order, each also
  // under its own event name (which the durations must not count twice).
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
  // May 2 (first and last µs), and April 30 (last µs) which --since leaves out.
  stats("m3", kMay1 + 2 * kDay - 1, 7, 0, 0, 0, false);
  add("m1", "com.orvel.performance.signpost_counts", kMay1 + kDay, "{\"Count\": 4}");
  stats("m9", kMay1 - 1, 1, 1, 1, 1, true);

  const std::vector<DayReport> days = report("2024-05-01");
  ASSERT_EQ(days.size(), 2u);
  const DayReport& may1 = days[0];
  EXPECT_EQ(may1.day, "2024-05-01");
  EXPECT_EQ(may1.machines, 2);
  const std::vector<std::pair<std::string, int64_t>> events1 = {
      {kSignpost, 14}, {kStats, 2}, {"sp__com.ex__net__Fetch", 10}};
  EXPECT_EQ(may1.events, events1);
  ASSERT_EQ(may1.signposts.size(), 3u);
  const struct {
    std::optional<std::string> subsystem, category;
    std::string name;
    int64_t count;
    double p50, p90, p99;
  } expected[] = {
      {std::nullopt, std::nullopt, "Unknown", 1, 2.5, 2.5, 2.5},
      {"com.ex", "net", "Fetch", 10, 0.5, 0.9, 1.0},  // ranks 5, 9, 10 of 10
      {"com.ex", "ui", "Draw", 3, 2.0, 3.0, 3.0},     // ranks 2, 3, 3 of 3
  };
  for (std::size_t i = 0; i < 3; ++i) {
    const SignpostDurations& s = may1.signposts[i];
    EXPECT_EQ(s.subsystem, expected[i].subsystem) << i;
    EXPECT_EQ(s.category, expected[i].category) << i;
    EXPECT_EQ(s.name, expected[i].name) << i;
    EXPECT_EQ(s.count, expected[i].count) << i;
    EXPECT_EQ(s.p50, expected[i].p50) << i;
    EXPECT_EQ(s.p90, expected[i].p90) << i;
    EXPECT_EQ(s.p99, expected[i].p99) << i;
  }
  EXPECT_EQ(may1.runs.runs, 2);
  EXPECT_EQ(may1.runs.interrupted, 1);
  EXPECT_EQ(may1.runs.logObjectsProcessed, 1500);
  EXPECT_EQ(may1.runs.reported, 10);

  EXPECT_EQ(FormatFleetReportJson("2024-05-02", {days[1]}),
            "{\"since\": \"2024-05-02\", \"days\": [{\"day\": \"2024-05-02\", \"machines\": 2, \"events\": "
            "{\"com.orvel.performance.signpost_counts\": 1, \"com.orvel.performance.signpost_reporting_stats\": 1}, "
            "\"signposts\": [], \"runs\": {\"runs\": 1, \"interrupted\": 0, \"logObjectsProcessed\": 7, "
            "\"reported\": 0}}]}\n");
  EXPECT_NE(FormatFleetReportJson("", {may1}).find(
                "\"signposts\": [{\"subsystem\": null, \"category\": null, \"name\": \"Unknown\", \"count\": 1, "
                "\"p50\": 2.5, \"p90\": 2.5, \"p99\": 2.5}, {\"subsystem\": \"com.ex\""),
            std::string::npos);

  std::vector<DayReport> all;
  ASSERT_FALSE(BuildFleetReport(store_->database(), "", &all));
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].day, "2024-04-30");
  EXPECT_EQ(all[0].runs.interrupted, 1);
}

TEST(NearestRankTest, PicksTheValueAtTheCeilingRank) {
  const std::vector<double> one = {4.0}, hundred = [] {
    std::vector<double> v;
    for (int i = 1; i <= 100; ++i) v.push_back(i);
    return v;
  }();
  const struct {
    const std::vector<double>* values;
    int p;
    double expected;
  } cases[] = {{&one, 50, 4.0}, {&one, 99, 4.0}, {&hundred, 50, 50}, {&hundred, 90, 90}, {&hundred, 99, 99},
               {&hundred, 100, 100}, {&hundred, 1, 1}};
  for (const auto& c : cases) EXPECT_EQ(NearestRank(*c.values, c.p), c.expected) << c.p;
}

TEST(IsIsoDayTest, AcceptsRealDatesOnly) {
  for (const char* good : {"2024-05-01", "2024-02-29", "2000-02-29", "1999-12-31"}) EXPECT_TRUE(IsIsoDay(good)) << good;
  for (const char* bad : {"2023-02-29", "1900-02-29", "2024-13-01", "2024-04-31", "2024-5-01", "2024/05/01", "", "20240501xx"}) {
    EXPECT_FALSE(IsIsoDay(bad)) << bad;
  }
}

}  // namespace
}  // namespace lumvane::collect

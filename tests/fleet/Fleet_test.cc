// The fleet connection library's pure parts: subject tokens and reconnect waits. Settings are tested through the
// programs' parsers, connections, credentials and the stream by the uploader's and collector's end-to-end tests.
#include <gtest/gtest.h>

#include <set>

#include "fleet/Backoff.h"
#include "fleet/SubjectToken.h"

namespace lumvane::fleet {
namespace {

TEST(SubjectTokenTest, EscapesEveryByteOutsideTheSafeSet) {
  const struct {
    std::string in, out;
  } cases[] = {
      {"com.orvel.performance.signpost", "com%2Eorvel%2Eperformance%2Esignpost"},
      {"sp__a-b__C9", "sp__a-b__C9"},
      {"a b*>%", "a%20b%2A%3E%25"},
      {"", "%"},
      {std::string("\x00\xff\x7f", 3), "%00%FF%7F"},
      {"\xc3\xa9", "%C3%A9"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(EscapeSubjectToken(c.in), c.out) << c.in;
    EXPECT_EQ(UnescapeSubjectToken(c.out), c.in) << c.out;
  }
}

TEST(BackoffTest, DoublesFromInitialToMaximumWithinJitter) {
  Backoff exact({std::chrono::milliseconds(100), std::chrono::milliseconds(30000), 0.0});
  const std::pair<int, int64_t> steps[] = {{1, 100}, {2, 200}, {3, 400}, {9, 25600}, {10, 30000}, {40, 30000}};
  for (auto [failures, ms] : steps) EXPECT_EQ(exact.delay(failures).count(), ms) << failures;

  Backoff jittered({std::chrono::milliseconds(1000), std::chrono::milliseconds(30000), 0.2}, 7);
  std::set<int64_t> seen;
  for (int i = 0; i < 200; ++i) {
    const int64_t ms = jittered.delay(1).count();
    EXPECT_TRUE(ms >= 800 && ms <= 1200) << ms;
    seen.insert(ms);
  }
  EXPECT_GT(seen.size(), 50u) << "the jitter does not spread the waits";
}

}  // namespace
}  // namespace lumvane::fleet

// lumvane-collect's command line over its key file.
#include <gtest/gtest.h>

#include "collect/CollectSettings.h"
#include "tests/support/TestSupport.h"

namespace lumvane::collect {
namespace {

using lumvane::testing::TempDir;
using lumvane::testing::WriteFile;

TEST(CollectSettingsTest, FlagsOverrideTheCollectGroupAndBadInputIsNamed) {
  TempDir dir;
  const std::string conf = dir.file("upload.conf");
  WriteFile(conf,
            "[Upload]\nServers=nats://up:1\nConsumer=wrong\n"
            "[Collect]\nServers=nats://a:1;nats://b:2\nDatabase=/var/lib/fleet.db\nConsumer=east\nBatch=64\n");
  const struct {
    std::vector<std::string> args;
    std::string error;  // "" when accepted
    std::string servers, database, consumer;
    int batch;
    int64_t keepDays;
  } cases[] = {
      {{"--config", conf}, "", "nats://a:1, nats://b:2", "/var/lib/fleet.db", "east", 64, 90},
      {{"--config", conf, "--server", "nats://c:3", "--db", "x.db", "--consumer", "west", "--batch", "8",
        "--keep-days", "7"},
       "", "nats://c:3", "x.db", "west", 8, 7},
      {{"--config", dir.file("missing.conf"), "--db", "y.db"}, "", "nats://127.0.0.1:4222", "y.db",
       "lumvane-collect", 1024, 90},
      {{"--config", dir.file("missing.conf")}, "no database: give --db PATH", "", "", "", 0, 0},
      {{"--config", conf, "--keep-days", "0"}, "--keep-days needs an integer from 1 to 36500, not '0'", "", "", "", 0, 0},
      {{"--config", conf, "--consumer", "a.b"}, "--consumer needs a name without spaces, '.', '*' or '>', not 'a.b'",
       "", "", "", 0, 0},
      {{"--config", conf, "--since", "2024-05-01"}, "unknown option --since (see --help)", "", "", "", 0, 0},
      {{"--config", conf, "--batch"}, "--batch needs a value", "", "", "", 0, 0},
  };
  for (const auto& c : cases) {
    CollectSettings s;
    std::optional<Error> error = ParseCollectSettings(c.args, &s);
    EXPECT_EQ(error ? error->description() : "", c.error) << c.args.back();
    if (error) continue;
    EXPECT_EQ(s.connection.serverList(), c.servers);
    EXPECT_EQ(s.database, c.database);
    EXPECT_EQ(s.collector.consumer, c.consumer);
    EXPECT_EQ(s.collector.batch, c.batch);
    EXPECT_EQ(s.collector.keepDays, c.keepDays);
  }

  WriteFile(conf, "[Collect]\nBatch=0\n");
  CollectSettings bad;
  std::optional<Error> error = ParseCollectSettings({"--config", conf, "--db", "z.db"}, &bad);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->description(), conf + ": [Collect] Batch must be an integer from 1 to 100000");
}

TEST(CollectSettingsTest, ReportTakesItsOwnFlagsOnly) {
  const struct {
    std::vector<std::string> args;
    std::string error, since;
    bool json;
  } cases[] = {
      {{"report", "--db", "f.db"}, "", "", false},
      {{"report", "--db", "f.db", "--since", "2024-02-29", "--json"}, "", "2024-02-29", true},
      {{"report", "--db", "f.db", "--since", "2023-02-29"}, "--since needs a date YYYY-MM-DD, not '2023-02-29'", "", false},
      {{"report", "--db", "f.db", "--server", "nats://a:1"}, "unknown option --server for report (see --help)", "", false},
      {{"report", "--since", "2024-05-01"}, "no database: give --db PATH", "", false},
  };
  for (const auto& c : cases) {
    CollectSettings s;
    std::optional<Error> error = ParseCollectSettings(c.args, &s);
    EXPECT_EQ(error ? error->description() : "", c.error) << c.args.back();
    if (error) continue;
    EXPECT_TRUE(s.report);
    EXPECT_EQ(s.since, c.since);
    EXPECT_EQ(s.json, c.json);
  }
}

}  // namespace
}  // namespace lumvane::collect

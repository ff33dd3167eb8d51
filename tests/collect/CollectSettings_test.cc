// lumvane-collect's command line over the key file's [Collect] group, and the report's own flags.
#include <gtest/gtest.h>

#include "collect/CollectSettings.h"
#include "tests/support/TestSupport.h"

namespace lumvane::collect {
namespace {

// servers|database|consumer|batch|keep days|report|since|json
std::string Describe(const CollectSettings& s) {
  return s.connection.serverList() + "|" + s.database + "|" + s.collector.consumer + "|" +
         std::to_string(s.collector.batch) + "|" + std::to_string(s.collector.keepDays) + "|" +
         std::to_string(s.report) + "|" + s.since + "|" + std::to_string(s.json);
}

// Each row: the arguments, and the settings they give or the error they are refused with.
TEST(CollectSettingsTest, FlagsOverrideTheCollectGroupAndBadInputIsNamed) {
  lumvane::testing::TempDir dir;
  const std::string conf = dir.file("upload.conf"), zero = dir.file("zero.conf"), none = dir.file("none.conf");
  lumvane::testing::WriteFile(conf, "[Upload]\nServers=nats://up:1\nConsumer=wrong\n[Collect]\nServers=nats://a:1;"
                                    "nats://b:2\nDatabase=/var/lib/fleet.db\nConsumer=east\nBatch=64\n");
  lumvane::testing::WriteFile(zero, "[Collect]\nBatch=0\n");
  const struct {
    std::vector<std::string> args;
    std::string expected;
  } cases[] = {
      {{"--config", conf}, "nats://a:1, nats://b:2|/var/lib/fleet.db|east|64|90|0||0"},
      {{"--config", conf, "--server", "nats://c:3", "--db", "x.db", "--consumer", "west", "--batch", "8",
        "--keep-days", "7"},
       "nats://c:3|x.db|west|8|7|0||0"},
      {{"--config", none, "--db", "y.db"}, "nats://127.0.0.1:4222|y.db|lumvane-collect|1024|90|0||0"},
      {{"--config", none}, "no database: give --db PATH"},
      {{"--config", zero, "--db", "z.db"}, zero + ": [Collect] Batch must be an integer from 1 to 100000"},
      {{"--config", conf, "--keep-days", "0"}, "--keep-days needs an integer from 1 to 36500, not '0'"},
      {{"--config", conf, "--consumer", "a.b"},
       "--consumer needs a name without spaces, '.', '*' or '>', not 'a.b'"},
      {{"--config", conf, "--since", "2024-05-01"}, "unknown option --since (see --help)"},
      {{"--config", conf, "--batch"}, "--batch needs a value"},
      {{"report", "--db", "f.db"}, "nats://127.0.0.1:4222|f.db|lumvane-collect|1024|90|1||0"},
      {{"report", "--db", "f.db", "--since", "2024-02-29", "--json"},
       "nats://127.0.0.1:4222|f.db|lumvane-collect|1024|90|1|2024-02-29|1"},
      {{"report", "--db", "f.db", "--since", "2023-02-29"}, "--since needs a date YYYY-MM-DD, not '2023-02-29'"},
      {{"report", "--db", "f.db", "--server", "nats://a:1"}, "unknown option --server for report (see --help)"},
      {{"report", "--since", "2024-05-01"}, "no database: give --db PATH"},
  };
  for (const auto& c : cases) {
    CollectSettings s;
    std::optional<Error> error = ParseCollectSettings(c.args, &s);
    EXPECT_EQ(error ? error->description() : Describe(s), c.expected);
  }
}

}  // namespace
}  // namespace lumvane::collect

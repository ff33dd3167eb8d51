#include "collect/CollectSettings.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "collect/FleetReport.h"
#include "fleet/KeyFile.h"

namespace lumvane::collect {
namespace {

constexpr const char* kGroup = "Collect";

struct NumberKey {
  const char* key;
  const char* flag;
  int64_t minimum;
  int64_t maximum;
};

constexpr NumberKey kNumbers[] = {
    {"Batch", "--batch", 1, 100000},
    {"FetchWaitMs", "--fetch-wait-ms", 1, 3600000},
    {"AckWaitMs", "--ack-wait-ms", 100, 86400000},
    {"KeepDays", "--keep-days", 1, 36500},
};

void Store(CollectorOptions* o, const char* key, int64_t v) {
  const std::string k = key;
  if (k == "Batch") o->batch = static_cast<int>(v);
  if (k == "FetchWaitMs") o->fetchWaitMs = v;
  if (k == "AckWaitMs") o->ackWaitMs = v;
  if (k == "KeepDays") o->keepDays = v;
}

std::string Range(const NumberKey& n) {
  return "an integer from " + std::to_string(n.minimum) + " to " + std::to_string(n.maximum);
}

std::optional<Error> ReadKeyFile(const std::string& path, CollectSettings* s) {
  std::unique_ptr<fleet::KeyFile> file;
  if (auto error = fleet::KeyFile::Load(path, &file)) return error;
  if (auto error = s->connection.readKeyFile(*file, kGroup)) return error;
  if (auto error = file->getString(kGroup, "Database", &s->database)) return error;
  if (auto error = file->getString(kGroup, "Consumer", &s->collector.consumer)) return error;
  for (const NumberKey& n : kNumbers) {
    constexpr int64_t kAbsent = INT64_MIN;  // getInt64 leaves it when the key is absent
    int64_t v = kAbsent;
    if (auto error = file->getInt64(kGroup, n.key, &v)) return error;
    if (v == kAbsent) continue;
    if (v < n.minimum || v > n.maximum) {
      return Error(path + ": [Collect] " + n.key + " must be " + Range(n));
    }
    Store(&s->collector, n.key, v);
  }
  return std::nullopt;
}

}  // namespace

std::optional<Error> ParseCollectSettings(const std::vector<std::string>& args, CollectSettings* s) {
  std::size_t first = 0;
  if (!args.empty() && args[0] == "report") {
    s->report = true;
    first = 1;
  }
  if (!s->report) {
    std::string config = fleet::kDefaultSettingsPath;
    for (std::size_t i = first; i + 1 < args.size(); ++i) {
      if (args[i] == "--config") config = args[i + 1];
    }
    if (auto error = ReadKeyFile(config, s)) return error;
  }
  for (std::size_t i = first; i < args.size(); ++i) {
    const std::string& flag = args[i];
    if (flag == "--help" || flag == "-h") {
      s->help = true;
      continue;
    }
    if (s->report && flag == "--json") {
      s->json = true;
      continue;
    }
    if (!s->report && flag == "--drain") {
      s->collector.drain = true;
      continue;
    }
    const NumberKey* number = nullptr;
    for (const NumberKey& n : kNumbers) {
      if (!s->report && flag == n.flag) number = &n;
    }
    const bool ours = flag == "--db" || (s->report && flag == "--since") ||
                      (!s->report && (flag == "--config" || flag == "--consumer"));
    const bool needsValue = ours || number || (!s->report && s->connection.takesValue(flag));
    if (needsValue && i + 1 >= args.size()) return Error(flag + " needs a value");
    const std::string value = needsValue ? args[++i] : "";
    if (flag == "--db") {
      s->database = value;
    } else if (ours && flag == "--since") {
      if (!IsIsoDay(value)) return Error("--since needs a date YYYY-MM-DD, not '" + value + "'");
      s->since = value;
    } else if (ours && flag == "--consumer") {
      if (value.empty() || value.find_first_of(" \t.*>") != std::string::npos) {
        return Error("--consumer needs a name without spaces, '.', '*' or '>', not '" + value + "'");
      }
      s->collector.consumer = value;
    } else if (number) {
      char* end = nullptr;
      errno = 0;
      const long long v = std::strtoll(value.c_str(), &end, 10);
      if (value.empty() || errno != 0 || *end != '\0' || v < number->minimum || v > number->maximum) {
        return Error(flag + " needs " + Range(*number) + ", not '" + value + "'");
      }
      Store(&s->collector, number->key, v);
    } else if (ours && flag == "--config") {
      // read above
    } else if (s->report) {
      return Error("unknown option " + flag + " for report (see --help)");
    } else {
      std::optional<Error> error;
      if (!s->connection.applyFlag(flag, value, &error)) return Error("unknown option " + flag + " (see --help)");
      if (error) return error;
    }
  }
  if (s->help) return std::nullopt;
  if (s->database.empty()) return Error("no database: give --db PATH");
  if (s->report) return std::nullopt;
  return s->connection.validate();
}

const char* CollectUsage() {
  return "Usage: lumvane-collect --server URL --db PATH [OPTION]...\n"
         "       lumvane-collect report --db PATH [--since YYYY-MM-DD] [--json]\n"
         "Collects the fleet's telemetry events from the LUMVANE JetStream stream into a SQLite\n"
         "database through a durable pull consumer, acknowledging each batch once it is committed;\n"
         "or prints per-day fleet aggregates (UTC days of the send time) from that database.\n"
         "\n"
         "Collecting:\n"
         "  --config PATH            key file to read, group [Collect] (default /etc/lumvane/upload.conf;\n"
         "                           a missing file means defaults)\n"
         "  --db PATH                the SQLite database, created when missing (key Database)\n"
         "  --consumer NAME          durable consumer name (key Consumer, lumvane-collect); collectors\n"
         "                           share a name only when they write one database on one host\n"
         "  --batch N                messages per fetch and per transaction (key Batch, 1024)\n"
         "  --fetch-wait-ms N        longest wait for a batch (key FetchWaitMs, 1000)\n"
         "  --ack-wait-ms N          redelivery of an unacknowledged message after this, for a new\n"
         "                           consumer (key AckWaitMs, 30000)\n"
         "  --keep-days N            delete events sent more than N days ago (key KeepDays, 90)\n"
         "  --drain                  exit once the consumer has nothing left to deliver\n"
         "\n"
         "Reporting (lumvane-collect report):\n"
         "  --db PATH                the database to read\n"
         "  --since YYYY-MM-DD       first day to report (inclusive, UTC)\n"
         "  --json                   one JSON object instead of text\n"
         "\n"
         "  --help                   show this help\n";
}

}  // namespace lumvane::collect

// Everything lumvane-collect is told. Collecting:
//   connection keys of group [Collect] of /etc/lumvane/upload.conf (see
//   fleet/ConnectionSettings.h), flags override, and its own
//   Database=PATH       --db PATH          the SQLite file (required)
//   Consumer=NAME       --consumer NAME    durable consumer name (lumvane-collect)
//   Batch=1024          --batch N          messages per fetch and transaction
//   FetchWaitMs=1000    --fetch-wait-ms N  longest wait for a batch
//   AckWaitMs=30000     --ack-wait-ms N    redelivery after this without ack (new consumers)
//   KeepDays=90         --keep-days N      events sent longer ago are deleted
//                       --drain            exit once nothing is left to deliver
// Reporting: "report --db PATH [--since YYYY-MM-DD] [--json]".
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "collect/Collector.h"
#include "fleet/ConnectionSettings.h"
#include "lumvane/platform/Error.h"

namespace lumvane::collect {

struct CollectSettings {
  bool report = false;  // the "report" command
  bool help = false;
  std::string database;
  // collecting
  fleet::ConnectionSettings connection;
  CollectorOptions collector;
  // reporting
  std::string since;
  bool json = false;
};

// Reads the key file named by --config (default /etc/lumvane/upload.conf)
// when collecting, then applies the flags in order. Errors name the path
// or the flag.
[[nodiscard]] std::optional<Error> ParseCollectSettings(const std::vector<std::string>& args,
                                                        CollectSettings* settings);

const char* CollectUsage();

}  // namespace lumvane::collect

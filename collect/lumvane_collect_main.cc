// lumvane-collect: writes the fleet's telemetry events from JetStream into
// SQLite, and reports on them. See --help and Collector.h.

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "collect/CollectSettings.h"
#include "collect/Collector.h"
#include "collect/EventStore.h"
#include "collect/FleetReport.h"
#include "collect/FleetReportFormat.h"
#include "fleet/FleetLog.h"
#include "fleet/StopSignals.h"

namespace {

int Report(const lumvane::collect::CollectSettings& settings) {
  using namespace lumvane;
  std::unique_ptr<collect::EventStore> store;
  if (auto error = collect::EventStore::Open(settings.database, /*mustExist=*/true, &store)) {
    fleet::FleetLog(error->description());
    return 1;
  }
  std::vector<collect::DayReport> days;
  if (auto error = collect::BuildFleetReport(store->database(), settings.since, &days)) {
    fleet::FleetLog(error->description());
    return 1;
  }
  const std::string text = settings.json ? collect::FormatFleetReportJson(settings.since, days)
                                         : collect::FormatFleetReportText(days);
  std::fputs(text.c_str(), stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace lumvane;
  fleet::SetFleetProgramName("lumvane-collect");
  std::vector<std::string> args(argv + 1, argv + argc);
  collect::CollectSettings settings;
  if (auto error = collect::ParseCollectSettings(args, &settings)) {
    fleet::FleetLog(error->description());
    return 2;
  }
  if (settings.help) {
    std::fputs(collect::CollectUsage(), stdout);
    std::fputs("\n", stdout);
    std::fputs(fleet::ConnectionSettings::FlagHelp(), stdout);
    return 0;
  }
  if (settings.report) return Report(settings);

  std::unique_ptr<collect::EventStore> store;
  if (auto error = collect::EventStore::Open(settings.database, /*mustExist=*/false, &store)) {
    fleet::FleetLog(error->description());
    return 1;
  }
  const std::atomic<bool>& stop = fleet::InstallStopSignals();

  collect::Collector collector(settings.connection, settings.collector, store.get());
  fleet::FleetLog("collecting into " + settings.database + " from " + settings.connection.serverList());
  std::optional<Error> error = collector.run(stop);
  const collect::CollectorCounts& counts = collector.counts();
  fleet::FleetLog("received " + std::to_string(counts.received) + " messages, stored " +
                  std::to_string(counts.stored) + " new events, kept " + std::to_string(counts.rejected) +
                  " rejected");
  if (error) {
    fleet::FleetLog(error->description());
    return 1;
  }
  return 0;
}

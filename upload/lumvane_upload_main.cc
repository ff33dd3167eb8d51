// lumvane-upload: ships this machine's telemetry event spool to the fleet's
// JetStream servers. See --help and Uploader.h.
#include <nats/nats.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "fleet/FleetLog.h"
#include "fleet/StopSignals.h"
#include "upload/MachineKey.h"
#include "upload/UploadSettings.h"
#include "upload/UploadStatus.h"
#include "upload/Uploader.h"

int main(int argc, char** argv) {
  using namespace lumvane;
  fleet::SetFleetProgramName("lumvane-upload");
  std::vector<std::string> args(argv + 1, argv + argc);
  upload::UploadSettings settings;
  if (std::optional<Error> error = upload::ParseUploadSettings(args, &settings)) {
    fleet::FleetLog(error->description());
    return 2;
  }
  if (settings.help) {
    std::fputs(upload::UploadUsage(), stdout);
    std::fputs("\n", stdout);
    std::fputs(fleet::ConnectionSettings::FlagHelp(), stdout);
    return 0;
  }
  const upload::SpoolPaths paths(settings.spoolDirectory);
  if (settings.status) {
    upload::UploadStatus status;
    if (std::optional<Error> error = upload::ReadUploadStatus(paths, &status)) {
      fleet::FleetLog(error->description());
      return 1;
    }
    std::fputs(upload::FormatUploadStatus(paths, status).c_str(), stdout);
    return 0;
  }
  std::string key = settings.machineKey;
  if (key.empty()) {
    if (std::optional<Error> error = upload::MachineKey(&key)) {
      fleet::FleetLog(error->description());
      return 1;
    }
  }
  const std::atomic<bool>& stop = fleet::InstallStopSignals();

  std::optional<Error> error;
  {
    upload::Uploader uploader(settings, key);
    fleet::FleetLog("uploading " + paths.events + " as " + key + " to " + settings.connection.serverList());
    error = uploader.run(stop);
  }
  nats_Close();  // the client library's threads and memory, once every connection is gone
  if (error) {
    fleet::FleetLog(error->description());
    return 1;
  }
  return 0;
}

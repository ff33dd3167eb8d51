// Everything lumvane-upload is told: the connection (group [Upload] of
// /etc/lumvane/upload.conf, see fleet/ConnectionSettings.h) and its own keys
//   SpoolDirectory=DIR     --spool-dir DIR      ($LUMVANE_DOVETEL_DIR, else
//                                               /var/lib/lumvane/dovetel)
//   MachineKey=KEY         --machine-key KEY    (derived from the machine ID)
//   Window=1024            --window N           publishes awaiting their ack
//   AckWaitMs=5000         --ack-wait-ms N      wait for one ack before a re-send
//   UnsentCapBytes=268435456 --unsent-cap-bytes N  the oldest unsent beyond are dropped
//   RotateBytes=1048576    --rotate-bytes N     rotate the event file at this size
//   IdleRotateMs=1000      --idle-rotate-ms N   rotate a fully acknowledged file idle this long
//   PollIntervalMs=100     --poll-ms N          how often the spool is looked at
//   CursorSyncMs=200       --cursor-sync-ms N   longest delay before progress is saved
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fleet/ConnectionSettings.h"
#include "lumvane/platform/Error.h"

namespace lumvane::upload {

struct UploadSettings {
  fleet::ConnectionSettings connection;
  std::string spoolDirectory;
  std::string machineKey;
  int64_t window = 1024;
  int64_t ackWaitMs = 5000;
  int64_t unsentCapBytes = 256LL * 1024 * 1024;
  int64_t rotateBytes = 1024 * 1024;
  int64_t idleRotateMs = 1000;
  int64_t pollIntervalMs = 100;
  int64_t cursorSyncMs = 200;
  bool status = false;
  bool help = false;
};

// Reads the key file named by --config (default /etc/lumvane/upload.conf),
// then applies the flags in order. Errors name the path or the flag.
[[nodiscard]] std::optional<Error> ParseUploadSettings(const std::vector<std::string>& args,
                                                       UploadSettings* settings);

const char* UploadUsage();

}  // namespace lumvane::upload

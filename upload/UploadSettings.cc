#include "upload/UploadSettings.h"

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "fleet/KeyFile.h"
#include "lumvane/platform/DovetelDirectory.h"

namespace lumvane::upload {
namespace {

constexpr const char* kGroup = "Upload";

struct NumberKey {
  const char* key;
  const char* flag;
  int64_t UploadSettings::*field;
  int64_t minimum;
};

constexpr NumberKey kNumbers[] = {
    {"Window", "--window", &UploadSettings::window, 1},
    {"AckWaitMs", "--ack-wait-ms", &UploadSettings::ackWaitMs, 1},
    {"UnsentCapBytes", "--unsent-cap-bytes", &UploadSettings::unsentCapBytes, 1},
    {"RotateBytes", "--rotate-bytes", &UploadSettings::rotateBytes, 1},
    {"IdleRotateMs", "--idle-rotate-ms", &UploadSettings::idleRotateMs, 0},
    {"PollIntervalMs", "--poll-ms", &UploadSettings::pollIntervalMs, 1},
    {"CursorSyncMs", "--cursor-sync-ms", &UploadSettings::cursorSyncMs, 0},
};

std::optional<Error> ReadKeyFile(const std::string& path, UploadSettings* s) {
  std::unique_ptr<fleet::KeyFile> file;
  if (auto error = fleet::KeyFile::Load(path, &file)) return error;
  if (auto error = s->connection.readKeyFile(*file, kGroup)) return error;
  if (auto error = file->getString(kGroup, "SpoolDirectory", &s->spoolDirectory)) return error;
  if (auto error = file->getString(kGroup, "MachineKey", &s->machineKey)) return error;
  for (const NumberKey& n : kNumbers) {
    if (auto error = file->getInt64(kGroup, n.key, &(s->*n.field))) return error;
    if (s->*n.field < n.minimum) {
      return Error(path + ": [Upload] " + n.key + " must be at least " + std::to_string(n.minimum));
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<Error> ParseUploadSettings(const std::vector<std::string>& args, UploadSettings* s) {
  std::string config = fleet::kDefaultSettingsPath;
  for (std::size_t i = 0; i + 1 < args.size(); ++i) {
    if (args[i] == "--config") config = args[i + 1];
  }
  s->spoolDirectory = DovetelDirectory();
  if (auto error = ReadKeyFile(config, s)) return error;

  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& flag = args[i];
    if (flag == "--help" || flag == "-h") {
      s->help = true;
      continue;
    }
    if (flag == "--status") {
      s->status = true;
      continue;
    }
    const bool isOurs = flag == "--config" || flag == "--spool-dir" || flag == "--machine-key";
    const NumberKey* number = nullptr;
    for (const NumberKey& n : kNumbers) {
      if (flag == n.flag) number = &n;
    }
    const bool needsValue = isOurs || number || s->connection.takesValue(flag);
    if (needsValue && i + 1 >= args.size()) return Error(flag + " needs a value");
    const std::string value = needsValue ? args[++i] : "";
    if (flag == "--spool-dir") {
      s->spoolDirectory = value;
    } else if (flag == "--machine-key") {
      s->machineKey = value;
    } else if (number) {
      char* end = nullptr;
      errno = 0;
      const long long v = std::strtoll(value.c_str(), &end, 10);
      if (value.empty() || errno != 0 || *end != '\0' || v < number->minimum) {
        return Error(flag + " needs an integer of at least " + std::to_string(number->minimum) + ", not '" +
                     value + "'");
      }
      s->*number->field = v;
    } else if (flag != "--config") {
      std::optional<Error> error;
      if (!s->connection.applyFlag(flag, value, &error)) return Error("unknown option " + flag + " (see --help)");
      if (error) return error;
    }
  }
  if (s->help || s->status) return std::nullopt;
  return s->connection.validate();
}

const char* UploadUsage() {
  return "Usage: lumvane-upload [OPTION]...\n"
         "Follows the machine's telemetry event file and publishes every complete line to the\n"
         "fleet's JetStream servers on lumvane.<machine key>.<event name>, at least once and\n"
         "never losing an event it has not dropped and counted.\n"
         "\n"
         "  --config PATH            key file to read, group [Upload] (default /etc/lumvane/upload.conf;\n"
         "                           a missing file means defaults)\n"
         "  --status                 print the backlog, the last acknowledged position, the dropped\n"
         "                           counts and the connection state, then exit\n"
         "  --spool-dir DIR          where events.ndjson is (key SpoolDirectory; default\n"
         "                           $LUMVANE_DOVETEL_DIR, else /var/lib/lumvane/dovetel)\n"
         "  --machine-key KEY        the machine's name on the subjects (key MachineKey; default\n"
         "                           derived from /etc/machine-id for lumvane alone)\n"
         "  --window N               publishes awaiting acknowledgement at once (key Window, 1024)\n"
         "  --ack-wait-ms N          wait for one acknowledgement before a re-send (key AckWaitMs, 5000)\n"
         "  --unsent-cap-bytes N     unsent bytes kept; the oldest beyond are dropped and counted\n"
         "                           (key UnsentCapBytes, 268435456)\n"
         "  --rotate-bytes N         rotate the event file once it is this big (key RotateBytes, 1048576)\n"
         "  --idle-rotate-ms N       rotate a fully acknowledged file after this long without new\n"
         "                           events (key IdleRotateMs, 1000)\n"
         "  --poll-ms N              how often the event file is looked at (key PollIntervalMs, 100)\n"
         "  --cursor-sync-ms N       longest delay before progress is saved (key CursorSyncMs, 200)\n"
         "  --help                   show this help\n";
}

}  // namespace lumvane::upload

// How a lumvane program reaches the fleet's JetStream servers: server URLs,
// TLS files, credentials, the reconnect backoff and the LUMVANE stream's
// shape. Both the uploader ([Upload]) and the collector ([Collect]) read the
// same keys from their own group of /etc/lumvane/upload.conf, then let
// command-line flags override them.
//
// Keys (group [Upload] or [Collect]) and their flags:
//   Servers=nats://host:4222;tls://host:4222   --server URL (repeatable)
//   CAFile=PATH            --ca-file PATH      trust anchors for tls://
//   CertFile=PATH          --cert-file PATH    client certificate (optional)
//   KeyFile=PATH           --key-file PATH     its private key
//   User=NAME              --user NAME         with PasswordFile
//   PasswordFile=PATH      --password-file PATH (first line is the password)
//   Token=TEXT             --token TEXT
//   CredentialsFile=PATH   --credentials-file PATH (a NATS .creds file)
//   ReconnectInitialMs=100 --reconnect-initial-ms N
//   ReconnectMaxMs=30000   --reconnect-max-ms N
//   ReconnectJitter=0.2    --reconnect-jitter F
//   CreateStream=false     --create-stream
//   StreamReplicas=1       --stream-replicas N
//   StreamMaxAgeDays=30    --stream-max-age-days N (0 keeps messages forever)
//
// Files named here are read at every connection attempt, so a corrected
// password or CA file is picked up without a restart.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/Backoff.h"
#include "fleet/KeyFile.h"
#include "lumvane/platform/Error.h"

namespace lumvane::fleet {

inline constexpr const char* kDefaultSettingsPath = "/etc/lumvane/upload.conf";
inline constexpr const char* kStreamName = "LUMVANE";
inline constexpr const char* kStreamSubjects = "lumvane.>";

struct StreamSettings {
  bool create = false;
  int64_t replicas = 1;
  int64_t maxAgeDays = 30;
};

struct ConnectionSettings {
  std::vector<std::string> servers{"nats://127.0.0.1:4222"};
  std::string caFile, certFile, keyFile;
  std::string user, passwordFile;
  std::string token;
  std::string credentialsFile;
  BackoffPolicy backoff;
  StreamSettings stream;

  // Reads the keys above from `group`; absent keys keep their value.
  [[nodiscard]] std::optional<Error> readKeyFile(const KeyFile& file, const char* group);

  // Applies one command-line flag. `flag` is the name with its dashes
  // ("--server"); `value` is the next argument (ignored for flags without a
  // value). Returns false when `flag` is not a connection flag.
  bool takesValue(std::string_view flag) const;
  bool applyFlag(std::string_view flag, const std::string& value, std::optional<Error>* error);

  // Checks that the settings make sense together (a URL scheme we know, a key
  // with its certificate, a password file with its user, positive waits).
  [[nodiscard]] std::optional<Error> validate() const;

  // The servers as one readable string, "nats://a:1, tls://b:2".
  std::string serverList() const;

  // The --help lines for the flags above.
  static const char* FlagHelp();

 private:
  bool serversFromFlags_ = false;
};

}  // namespace lumvane::fleet

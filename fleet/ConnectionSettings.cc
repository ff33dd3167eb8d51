#include "fleet/ConnectionSettings.h"

#include <cerrno>
#include <cstdlib>

namespace lumvane::fleet {
namespace {

bool ParseInt64(const std::string& text, int64_t* out) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  long long v = std::strtoll(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0') return false;
  *out = v;
  return true;
}

bool ParseDouble(const std::string& text, double* out) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  double v = std::strtod(text.c_str(), &end);
  if (errno != 0 || *end != '\0') return false;
  *out = v;
  return true;
}

}  // namespace

std::optional<Error> ConnectionSettings::readKeyFile(const KeyFile& file, const char* group) {
  int64_t initial = backoff.initial.count(), maximum = backoff.maximum.count();
  const std::optional<Error> errors[] = {
      file.getStringList(group, "Servers", &servers),
      file.getString(group, "CAFile", &caFile),
      file.getString(group, "CertFile", &certFile),
      file.getString(group, "KeyFile", &keyFile),
      file.getString(group, "User", &user),
      file.getString(group, "PasswordFile", &passwordFile),
      file.getString(group, "Token", &token),
      file.getString(group, "CredentialsFile", &credentialsFile),
      file.getInt64(group, "ReconnectInitialMs", &initial),
      file.getInt64(group, "ReconnectMaxMs", &maximum),
      file.getDouble(group, "ReconnectJitter", &backoff.jitter),
      file.getBool(group, "CreateStream", &stream.create),
      file.getInt64(group, "StreamReplicas", &stream.replicas),
      file.getInt64(group, "StreamMaxAgeDays", &stream.maxAgeDays),
  };
  for (const auto& error : errors) {
    if (error) return error;
  }
  backoff.initial = std::chrono::milliseconds(initial);
  backoff.maximum = std::chrono::milliseconds(maximum);
  return std::nullopt;
}

bool ConnectionSettings::takesValue(std::string_view flag) const {
  return flag != "--create-stream";
}

bool ConnectionSettings::applyFlag(std::string_view flag, const std::string& value,
                                   std::optional<Error>* error) {
  auto number = [&](int64_t* out) {
    if (!ParseInt64(value, out)) *error = Error(std::string(flag) + " needs an integer, not '" + value + "'");
  };
  int64_t ms = 0;
  if (flag == "--server") {
    // The first --server replaces the configured list, later ones add to it.
    if (!serversFromFlags_) servers.clear();
    serversFromFlags_ = true;
    servers.push_back(value);
  } else if (flag == "--ca-file") {
    caFile = value;
  } else if (flag == "--cert-file") {
    certFile = value;
  } else if (flag == "--key-file") {
    keyFile = value;
  } else if (flag == "--user") {
    user = value;
  } else if (flag == "--password-file") {
    passwordFile = value;
  } else if (flag == "--token") {
    token = value;
  } else if (flag == "--credentials-file") {
    credentialsFile = value;
  } else if (flag == "--reconnect-initial-ms") {
    number(&ms);
    backoff.initial = std::chrono::milliseconds(ms);
  } else if (flag == "--reconnect-max-ms") {
    number(&ms);
    backoff.maximum = std::chrono::milliseconds(ms);
  } else if (flag == "--reconnect-jitter") {
    if (!ParseDouble(value, &backoff.jitter)) *error = Error("--reconnect-jitter needs a number, not '" + value + "'");
  } else if (flag == "--create-stream") {
    stream.create = true;
  } else if (flag == "--stream-replicas") {
    number(&stream.replicas);
  } else if (flag == "--stream-max-age-days") {
    number(&stream.maxAgeDays);
  } else {
    return false;
  }
  return true;
}

std::optional<Error> ConnectionSettings::validate() const {
  if (servers.empty()) return Error("no server URL given");
  for (const std::string& url : servers) {
    if (url.rfind("nats://", 0) != 0 && url.rfind("tls://", 0) != 0) {
      return Error("server URL " + url + " must start with nats:// or tls://");
    }
  }
  if (!keyFile.empty() && certFile.empty()) return Error("a key file needs a certificate file");
  if (!certFile.empty() && keyFile.empty()) return Error("a certificate file needs a key file");
  if (!passwordFile.empty() && user.empty()) return Error("a password file needs a user");
  if (backoff.initial.count() <= 0 || backoff.maximum < backoff.initial) {
    return Error("the reconnect waits must be positive, the maximum no less than the initial wait");
  }
  if (backoff.jitter < 0 || backoff.jitter >= 1) return Error("the reconnect jitter must lie in [0, 1)");
  if (stream.replicas < 1 || stream.replicas > 5) return Error("stream replicas must be 1 to 5");
  if (stream.maxAgeDays < 0) return Error("the stream's maximum age cannot be negative");
  return std::nullopt;
}

std::string ConnectionSettings::serverList() const {
  std::string out;
  for (const std::string& url : servers) {
    if (!out.empty()) out += ", ";
    out += url;
  }
  return out;
}

const char* ConnectionSettings::FlagHelp() {
  return "Connection (flags override the key file):\n"
         "  --server URL             nats://HOST:PORT or tls://HOST:PORT; repeat for a cluster\n"
         "                           (key Servers, default nats://127.0.0.1:4222)\n"
         "  --ca-file PATH           CA certificates that sign the server's (key CAFile)\n"
         "  --cert-file PATH         client certificate for mutual TLS (key CertFile)\n"
         "  --key-file PATH          the client certificate's private key (key KeyFile)\n"
         "  --user NAME              user name (key User)\n"
         "  --password-file PATH     file whose first line is the password (key PasswordFile)\n"
         "  --token TEXT             authentication token (key Token)\n"
         "  --credentials-file PATH  NATS credentials file (key CredentialsFile)\n"
         "  --reconnect-initial-ms N first wait after a failed attempt (key ReconnectInitialMs, 100)\n"
         "  --reconnect-max-ms N     longest wait (key ReconnectMaxMs, 30000)\n"
         "  --reconnect-jitter F     random spread of each wait (key ReconnectJitter, 0.2)\n"
         "Stream LUMVANE (subjects lumvane.>, file storage):\n"
         "  --create-stream          create it, or accept an existing one with the same subjects\n"
         "                           (key CreateStream, default false: it must exist)\n"
         "  --stream-replicas N      replicas when creating it (key StreamReplicas, 1)\n"
         "  --stream-max-age-days N  age limit when creating it, 0 for none (key StreamMaxAgeDays, 30)\n";
}

}  // namespace lumvane::fleet

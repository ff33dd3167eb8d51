// A real JetStream server for tests and benchmarks: /usr/sbin/nats-server (or $LUMVANE_NATS_SERVER) with -js on
// 127.0.0.1, a free port (never 4222, where a system server may listen) and its own storage in a fresh temporary
// directory. It can be SIGKILLed and restarted on the same port and storage. Optionally it speaks TLS with
// certificates made by openssl at start (ca.pem, server.pem, client.pem/client.key, and an unrelated wrong-ca.pem)
// and asks for a user and password.
// Free of GoogleTest so that benchmarks can use it. Not thread-safe; the server dies with the object, and with the
// process that started it.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "lumvane/platform/Error.h"

namespace lumvane::testing {

struct NatsTestServerOptions {
  bool tls = false;
  bool verifyClients = false;  // mutual TLS: clients must show a certificate of the CA
  std::string user, password;  // both set: user/password authentication
};

class NatsTestServer final {
 public:
  // The server program, or "" when it is not installed.
  static std::string Binary();

  // Prepare makes the directory (and certificates) and picks a port; the server runs only after start().
  [[nodiscard]] static std::optional<Error> Prepare(const NatsTestServerOptions& options,
                                                    std::unique_ptr<NatsTestServer>* out);
  [[nodiscard]] static std::optional<Error> Start(const NatsTestServerOptions& options,
                                                  std::unique_ptr<NatsTestServer>* out) {
    if (auto error = Prepare(options, out)) return error;
    return (*out)->start();
  }

  ~NatsTestServer();
  NatsTestServer(const NatsTestServer&) = delete;
  NatsTestServer& operator=(const NatsTestServer&) = delete;

  // Starts (again) on the same port and storage; the error says why it did not accept within 10 s.
  [[nodiscard]] std::optional<Error> start();
  void kill();  // SIGKILL, then wait
  bool running() const { return pid_ > 0; }

  // "nats://127.0.0.1:PORT", or "tls://..." for a TLS server.
  std::string url() const;
  const std::string& directory() const { return dir_; }
  std::string file(const char* name) const { return dir_ + "/" + name; }
  std::string caFile() const { return tls_ ? file("ca.pem") : ""; }

 private:
  NatsTestServer() = default;

  std::string dir_;
  int port_ = 0;
  bool tls_ = false;
  std::string configFile_;
  pid_t pid_ = -1;
};

}  // namespace lumvane::testing

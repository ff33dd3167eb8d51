// A real JetStream server for tests and benchmarks: /usr/sbin/nats-server
// (or $LUMVANE_NATS_SERVER) started with -js on 127.0.0.1 and a free port
// (never 4222, where a system server may listen) with its own storage
// directory in a fresh temporary directory. It can be stopped, killed with
// SIGKILL and restarted on the same port and storage. Optionally it speaks
// TLS with certificates made by openssl at start (a CA, a server certificate
// for 127.0.0.1, a client certificate, and an unrelated "wrong" CA) and asks
// for a user and password or a token.
//
// Free of GoogleTest so that benchmarks can use it. Not thread-safe; the
// server process is killed when the object goes, and also when the process
// that started it dies.
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
  std::string token;           // set: token authentication
};

class NatsTestServer final {
 public:
  // The server program, or "" when it is not installed.
  static std::string Binary();

  // Makes the directory (and certificates), picks a port and starts the
  // server; the error says why it did not come up within 10 s.
  [[nodiscard]] static std::optional<Error> Start(const NatsTestServerOptions& options,
                                                  std::unique_ptr<NatsTestServer>* out);
  // Like Start, but only prepares: the server is not running until start().
  [[nodiscard]] static std::optional<Error> Prepare(const NatsTestServerOptions& options,
                                                    std::unique_ptr<NatsTestServer>* out);

  ~NatsTestServer();
  NatsTestServer(const NatsTestServer&) = delete;
  NatsTestServer& operator=(const NatsTestServer&) = delete;

  // Starts (again) on the same port and storage; waits until it accepts.
  [[nodiscard]] std::optional<Error> start();
  void stop();  // SIGTERM, then wait
  void kill();  // SIGKILL, then wait
  bool running() const { return pid_ > 0; }

  int port() const { return port_; }
  // "nats://127.0.0.1:PORT", or "tls://..." for a TLS server.
  std::string url() const;
  const std::string& directory() const { return dir_; }
  std::string logFile() const { return dir_ + "/server.log"; }
  // TLS material (empty without tls).
  std::string caFile() const { return tls_ ? dir_ + "/ca.pem" : ""; }
  std::string wrongCaFile() const { return tls_ ? dir_ + "/wrong-ca.pem" : ""; }
  std::string clientCertFile() const { return tls_ ? dir_ + "/client.pem" : ""; }
  std::string clientKeyFile() const { return tls_ ? dir_ + "/client.key" : ""; }

 private:
  NatsTestServer() = default;
  [[nodiscard]] std::optional<Error> prepare(const NatsTestServerOptions& options);
  [[nodiscard]] std::optional<Error> waitUntilAccepting();
  void signalAndWait(int signo);

  std::string dir_;
  int port_ = 0;
  bool tls_ = false;
  std::string configFile_;
  pid_t pid_ = -1;
};

}  // namespace lumvane::testing

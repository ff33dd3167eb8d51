#include "tests/support/NatsTestServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

namespace lumvane::testing {
namespace {

// A port the kernel just handed out on 127.0.0.1; 4222 is never used.
std::optional<Error> FreePort(int* port) {
  for (int attempt = 0; attempt < 20; ++attempt) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return Error::fromErrno("cannot create a socket", errno);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    int rc = ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    if (rc == 0) rc = ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    const int err = errno;
    ::close(fd);
    if (rc != 0) return Error::fromErrno("cannot find a free port", err);
    *port = ntohs(addr.sin_port);
    if (*port != 4222) return std::nullopt;
  }
  return Error("cannot find a free port other than 4222");
}

// Whether the server at `port` greets a new client with its INFO line (it
// does so before any TLS handshake).
bool Greets(int port) {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<uint16_t>(port));
  timeval tv{1, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  bool ok = false;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) {
    char buf[4] = {};
    ok = ::recv(fd, buf, sizeof buf, MSG_WAITALL) == 4 && std::memcmp(buf, "INFO", 4) == 0;
  }
  ::close(fd);
  return ok;
}

std::optional<Error> Run(const std::string& command, const std::string& log) {
  const std::string full = command + " >>" + log + " 2>&1";
  if (std::system(full.c_str()) != 0) return Error("command failed (see " + log + "): " + command);
  return std::nullopt;
}

// A CA, a server certificate for 127.0.0.1 and a client certificate signed
// by it, and a second CA that signed nothing we use.
std::optional<Error> MakeCertificates(const std::string& dir) {
  const std::string log = dir + "/openssl.log";
  const std::string key = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes";
  std::ofstream(dir + "/server.ext") << "subjectAltName=IP:127.0.0.1,DNS:localhost\n";
  std::ofstream(dir + "/client.ext") << "extendedKeyUsage=clientAuth\n";
  const std::string d = dir + "/";
  const std::string commands[] = {
      "openssl req -x509 " + key + " -keyout " + d + "ca.key -out " + d +
          "ca.pem -days 2 -subj /CN=lumvane-test-ca",
      "openssl req -x509 " + key + " -keyout " + d + "wrong-ca.key -out " + d +
          "wrong-ca.pem -days 2 -subj /CN=lumvane-unrelated-ca",
      "openssl req " + key + " -keyout " + d + "server.key -out " + d + "server.csr -subj /CN=127.0.0.1",
      "openssl x509 -req -in " + d + "server.csr -CA " + d + "ca.pem -CAkey " + d +
          "ca.key -CAcreateserial -out " + d + "server.pem -days 2 -extfile " + d + "server.ext",
      "openssl req " + key + " -keyout " + d + "client.key -out " + d + "client.csr -subj /CN=lumvane-client",
      "openssl x509 -req -in " + d + "client.csr -CA " + d + "ca.pem -CAkey " + d +
          "ca.key -CAcreateserial -out " + d + "client.pem -days 2 -extfile " + d + "client.ext",
  };
  for (const std::string& command : commands) {
    if (auto error = Run(command, log)) return error;
  }
  return std::nullopt;
}

}  // namespace

std::string NatsTestServer::Binary() {
  const char* env = std::getenv("LUMVANE_NATS_SERVER");
  std::string path = env && *env ? env : "/usr/sbin/nats-server";
  return ::access(path.c_str(), X_OK) == 0 ? path : "";
}

std::optional<Error> NatsTestServer::Prepare(const NatsTestServerOptions& options,
                                             std::unique_ptr<NatsTestServer>* out) {
  std::unique_ptr<NatsTestServer> server(new NatsTestServer());
  if (auto error = server->prepare(options)) return error;
  *out = std::move(server);
  return std::nullopt;
}

std::optional<Error> NatsTestServer::Start(const NatsTestServerOptions& options,
                                           std::unique_ptr<NatsTestServer>* out) {
  std::unique_ptr<NatsTestServer> server;
  if (auto error = Prepare(options, &server)) return error;
  if (auto error = server->start()) return error;
  *out = std::move(server);
  return std::nullopt;
}

std::optional<Error> NatsTestServer::prepare(const NatsTestServerOptions& options) {
  if (Binary().empty()) return Error("nats-server is not installed");
  const char* base = std::getenv("TMPDIR");
  std::string templ = std::string(base && *base ? base : "/tmp") + "/lumvane-nats-XXXXXX";
  if (!::mkdtemp(templ.data())) return Error::fromErrno("cannot create " + templ, errno);
  dir_ = templ;
  if (auto error = FreePort(&port_)) return error;
  tls_ = options.tls;
  std::string config;
  if (tls_) {
    if (auto error = MakeCertificates(dir_)) return error;
    config += "tls {\n  cert_file: \"" + dir_ + "/server.pem\"\n  key_file: \"" + dir_ +
              "/server.key\"\n  ca_file: \"" + dir_ + "/ca.pem\"\n";
    if (options.verifyClients) config += "  verify: true\n";
    config += "  timeout: 2\n}\n";
  }
  if (!options.user.empty()) {
    config += "authorization {\n  user: \"" + options.user + "\"\n  password: \"" + options.password +
              "\"\n}\n";
  } else if (!options.token.empty()) {
    config += "authorization {\n  token: \"" + options.token + "\"\n}\n";
  }
  if (!config.empty()) {
    configFile_ = dir_ + "/server.conf";
    std::ofstream(configFile_) << config;
  }
  return std::nullopt;
}

std::optional<Error> NatsTestServer::start() {
  if (running()) return std::nullopt;
  std::vector<std::string> args = {Binary(), "-js", "-sd", dir_ + "/store", "-a", "127.0.0.1",
                                   "-p", std::to_string(port_), "-l", logFile()};
  if (!configFile_.empty()) {
    args.push_back("-c");
    args.push_back(configFile_);
  }
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  const pid_t parent = ::getpid();
  pid_t pid = ::fork();
  if (pid < 0) return Error::fromErrno("cannot fork for nats-server", errno);
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(127);
    int null = ::open("/dev/null", O_RDWR);
    if (null >= 0) {
      ::dup2(null, STDIN_FILENO);
      ::dup2(null, STDOUT_FILENO);
    }
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  pid_ = pid;
  return waitUntilAccepting();
}

std::optional<Error> NatsTestServer::waitUntilAccepting() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < deadline) {
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      return Error("nats-server exited at start (see " + logFile() + ")");
    }
    if (Greets(port_)) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  kill();
  return Error("nats-server did not accept on port " + std::to_string(port_) + " within 10 s (see " +
               logFile() + ")");
}

void NatsTestServer::signalAndWait(int signo) {
  if (!running()) return;
  ::kill(pid_, signo);
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
}

void NatsTestServer::stop() { signalAndWait(SIGTERM); }
void NatsTestServer::kill() { signalAndWait(SIGKILL); }

std::string NatsTestServer::url() const {
  return std::string(tls_ ? "tls" : "nats") + "://127.0.0.1:" + std::to_string(port_);
}

NatsTestServer::~NatsTestServer() {
  kill();
  if (!dir_.empty() && !std::getenv("LUMVANE_KEEP_TEST_DIRS")) {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
}

}  // namespace lumvane::testing

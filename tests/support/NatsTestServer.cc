#include "tests/support/NatsTestServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

namespace lumvane::testing {
namespace {

// Binds `port` on 127.0.0.1 (0: any free one) and reports the port it got; `connect` tries a connection instead.
bool Loopback(int* port, bool connect) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = htons(static_cast<uint16_t>(*port));
  socklen_t len = sizeof addr;
  auto* a = reinterpret_cast<sockaddr*>(&addr);
  const bool ok = fd >= 0 && (connect ? ::connect(fd, a, len) == 0
                                      : ::bind(fd, a, len) == 0 && ::getsockname(fd, a, &len) == 0);
  if (fd >= 0) ::close(fd);
  if (ok) *port = ntohs(addr.sin_port);
  return ok;
}

// Self-signed certificates: one for the server (127.0.0.1), one for a client, and an unrelated "wrong" one;
// ca.pem holds the first two, so that each side trusts the other.
std::optional<Error> MakeCertificates(const std::string& dir) {
  const std::string d = dir + "/", log = d + "openssl.log";
  const struct {
    const char *name, *cn, *ext;
  } certificates[] = {{"server", "127.0.0.1", "subjectAltName=IP:127.0.0.1,DNS:localhost"},
                      {"client", "lumvane-client", "extendedKeyUsage=clientAuth"},
                      {"wrong-ca", "lumvane-unrelated", "extendedKeyUsage=serverAuth"}};
  for (const auto& c : certificates) {
    const std::string command = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2"
                                " -keyout " + d + c.name + ".key -out " + d + c.name + ".pem -subj /CN=" + c.cn +
                                " -addext " + c.ext + " >>" + log + " 2>&1";
    if (std::system(command.c_str()) != 0) return Error("command failed (see " + log + "): " + command);
  }
  std::ofstream(d + "ca.pem") << std::ifstream(d + "server.pem").rdbuf() << std::ifstream(d + "client.pem").rdbuf();
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
  if (Binary().empty()) return Error("nats-server is not installed");
  std::unique_ptr<NatsTestServer> s(new NatsTestServer());
  const char* base = std::getenv("TMPDIR");
  std::string templ = std::string(base && *base ? base : "/tmp") + "/lumvane-nats-XXXXXX";
  if (!::mkdtemp(templ.data())) return Error::fromErrno("cannot create " + templ, errno);
  s->dir_ = templ;
  while (s->port_ == 0 || s->port_ == 4222) {
    s->port_ = 0;
    if (!Loopback(&s->port_, false)) return Error::fromErrno("cannot find a free port", errno);
  }
  s->tls_ = options.tls;
  std::string config;
  if (options.tls) {
    if (auto error = MakeCertificates(s->dir_)) return error;
    config += "tls {\n  cert_file: \"" + s->file("server.pem") + "\"\n  key_file: \"" + s->file("server.key") +
              "\"\n  ca_file: \"" + s->file("ca.pem") + "\"\n  timeout: 2\n" +
              (options.verifyClients ? "  verify: true\n" : "") + "}\n";
  }
  if (!options.user.empty()) {
    config += "authorization {\n  user: \"" + options.user + "\"\n  password: \"" + options.password + "\"\n}\n";
  }
  if (!config.empty()) std::ofstream(s->configFile_ = s->file("server.conf")) << config;
  *out = std::move(s);
  return std::nullopt;
}

std::optional<Error> NatsTestServer::start() {
  if (running()) return std::nullopt;
  const std::string log = file("server.log");
  std::vector<std::string> args = {Binary(), "-js", "-sd", file("store"), "-a", "127.0.0.1",
                                   "-p", std::to_string(port_), "-l", log};
  if (!configFile_.empty()) args.insert(args.end(), {"-c", configFile_});
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  const pid_t parent = ::getpid();
  pid_ = ::fork();
  if (pid_ < 0) return Error::fromErrno("cannot fork for nats-server", errno);
  if (pid_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(127);
    const int null = ::open("/dev/null", O_RDWR);
    ::dup2(null, STDIN_FILENO);
    ::dup2(null, STDOUT_FILENO);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  // The server listens for clients only once JetStream has recovered its store.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (int port = port_; std::chrono::steady_clock::now() < deadline; port = port_) {
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      return Error("nats-server exited at start (see " + log + ")");
    }
    if (Loopback(&port, true)) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  kill();
  return Error("nats-server did not accept on port " + std::to_string(port_) + " within 10 s (see " + log + ")");
}

void NatsTestServer::kill() {
  if (!running()) return;
  ::kill(pid_, SIGKILL);
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
}

std::string NatsTestServer::url() const {
  return std::string(tls_ ? "tls" : "nats") + "://127.0.0.1:" + std::to_string(port_);
}

NatsTestServer::~NatsTestServer() {
  kill();
  std::error_code ec;
  if (!dir_.empty() && !std::getenv("LUMVANE_KEEP_TEST_DIRS")) std::filesystem::remove_all(dir_, ec);
}

}  // namespace lumvane::testing

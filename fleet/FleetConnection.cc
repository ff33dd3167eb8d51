#include "fleet/FleetConnection.h"

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "fleet/FleetLog.h"
#include "fleet/LumvaneStream.h"
#include "lumvane/platform/NoDestructor.h"

namespace lumvane::fleet {

// What the library's callback threads share with the connection's owner.
struct FleetConnection::Events {
  std::shared_ptr<Backoff> backoff;
  std::string servers;
  std::atomic<int> state{static_cast<int>(ConnectionState::Connecting)};
  std::atomic<bool> closing{false};  // our own close: nothing to report
  // Set by the closed callback, the library's last call with this object:
  // the owner waits for it before letting the object go.
  std::mutex closedMu;
  std::condition_variable closedCv;
  bool closedDelivered = false;

  void deliverClosed() {
    std::lock_guard<std::mutex> lock(closedMu);
    closedDelivered = true;
    closedCv.notify_all();
  }
  void waitClosed(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(closedMu);
    closedCv.wait_for(lock, limit, [this] { return closedDelivered; });
  }

  // Moves to `next` and logs it, unless that is the state already logged.
  void enter(ConnectionState next, const std::string& message) {
    if (state.exchange(static_cast<int>(next)) != static_cast<int>(next) && !closing.load()) {
      FleetLog(message);
    }
  }
};

namespace {

// The library may call back after the connection object is gone (its
// closed callback runs on a thread of its own), so the callbacks' closures
// live as long as the process.
void KeepForProcessLifetime(std::shared_ptr<FleetConnection::Events> events) {
  static NoDestructor<std::mutex> mu;
  static NoDestructor<std::vector<std::shared_ptr<FleetConnection::Events>>> kept;
  std::lock_guard<std::mutex> lock(*mu);
  kept->push_back(std::move(events));
}

std::string ConnectedUrl(natsConnection* nc, const std::string& fallback) {
  char buffer[256];
  if (nc && natsConnection_GetConnectedUrl(nc, buffer, sizeof buffer) == NATS_OK && buffer[0]) {
    return buffer;
  }
  return fallback;
}

void OnDisconnected(natsConnection* nc, void* closure) {
  auto* events = static_cast<FleetConnection::Events*>(closure);
  (void)nc;
  events->enter(ConnectionState::Disconnected,
                "disconnected from " + events->servers + "; reconnecting with backoff");
}

void OnReconnected(natsConnection* nc, void* closure) {
  auto* events = static_cast<FleetConnection::Events*>(closure);
  events->enter(ConnectionState::Connected, "reconnected to " + ConnectedUrl(nc, events->servers));
}

void OnClosed(natsConnection*, void* closure) {
  auto* events = static_cast<FleetConnection::Events*>(closure);
  events->enter(ConnectionState::Closed, "connection to " + events->servers + " closed");
  events->deliverClosed();
}

int64_t ReconnectDelay(natsConnection*, int attempts, void* closure) {
  auto* events = static_cast<FleetConnection::Events*>(closure);
  return events->backoff->delay(attempts).count();
}

std::optional<Error> ReadFirstLine(const std::string& path, std::string* line) {
  std::ifstream in(path);
  if (!in) return Error("cannot read " + path);
  std::getline(in, *line);
  if (!line->empty() && line->back() == '\r') line->pop_back();
  return std::nullopt;
}

std::optional<Error> Check(natsStatus s, const std::string& what) {
  if (s == NATS_OK) return std::nullopt;
  return Error(what + ": " + NatsErrorText(s));
}

std::optional<Error> BuildOptions(const ConnectionSettings& settings, FleetConnection::Events* events,
                                  NatsOptionsPtr* out) {
  natsOptions* raw = nullptr;
  if (auto e = Check(natsOptions_Create(&raw), "cannot create connection options")) return e;
  NatsOptionsPtr opts(raw);
  std::vector<const char*> urls;
  bool tls = !settings.caFile.empty();
  for (const std::string& url : settings.servers) {
    urls.push_back(url.c_str());
    if (url.rfind("tls://", 0) == 0) tls = true;
  }
  if (auto e = Check(natsOptions_SetServers(opts.get(), urls.data(), static_cast<int>(urls.size())),
                     "bad server list " + settings.serverList())) {
    return e;
  }
  if (tls) {
    if (auto e = Check(natsOptions_SetSecure(opts.get(), true), "cannot enable TLS")) return e;
    const std::string ca = settings.caFile.empty() ? "/etc/ssl/certs/ca-certificates.crt" : settings.caFile;
    if (auto e = Check(natsOptions_LoadCATrustedCertificates(opts.get(), ca.c_str()),
                       "cannot load CA certificates from " + ca)) {
      return e;
    }
    if (!settings.certFile.empty()) {
      if (auto e = Check(natsOptions_LoadCertificatesChain(opts.get(), settings.certFile.c_str(),
                                                           settings.keyFile.c_str()),
                         "cannot load client certificate " + settings.certFile + " with key " +
                             settings.keyFile)) {
        return e;
      }
    }
  }
  if (!settings.user.empty()) {
    std::string password;
    if (!settings.passwordFile.empty()) {
      if (auto e = ReadFirstLine(settings.passwordFile, &password)) return e;
    }
    if (auto e = Check(natsOptions_SetUserInfo(opts.get(), settings.user.c_str(), password.c_str()),
                       "cannot set user")) {
      return e;
    }
  }
  if (!settings.token.empty()) {
    if (auto e = Check(natsOptions_SetToken(opts.get(), settings.token.c_str()), "cannot set token")) return e;
  }
  if (!settings.credentialsFile.empty()) {
    if (auto e = Check(natsOptions_SetUserCredentialsFromFiles(opts.get(), settings.credentialsFile.c_str(),
                                                               nullptr),
                       "cannot use credentials file " + settings.credentialsFile)) {
      return e;
    }
  }
  const std::optional<Error> errors[] = {
      Check(natsOptions_SetTimeout(opts.get(), 2000), "cannot set timeout"),
      Check(natsOptions_SetMaxReconnect(opts.get(), -1), "cannot set reconnects"),
      Check(natsOptions_SetCustomReconnectDelay(opts.get(), ReconnectDelay, events), "cannot set delay"),
      Check(natsOptions_SetDisconnectedCB(opts.get(), OnDisconnected, events), "cannot set callback"),
      Check(natsOptions_SetReconnectedCB(opts.get(), OnReconnected, events), "cannot set callback"),
      Check(natsOptions_SetClosedCB(opts.get(), OnClosed, events), "cannot set callback"),
  };
  for (const auto& e : errors) {
    if (e) return e;
  }
  *out = std::move(opts);
  return std::nullopt;
}

}  // namespace

std::string NatsErrorText(natsStatus status) {
  std::string text = natsStatus_GetText(status);
  natsStatus last = NATS_OK;
  const char* detail = nats_GetLastError(&last);
  if (detail && *detail && text != detail) text += std::string(" (") + detail + ")";
  return text;
}

const char* ConnectionStateName(ConnectionState state) {
  switch (state) {
    case ConnectionState::Connecting: return "connecting";
    case ConnectionState::Connected: return "connected";
    case ConnectionState::Disconnected: return "disconnected";
    case ConnectionState::Closed: return "closed";
  }
  return "unknown";
}

std::optional<Error> FleetConnection::Open(const ConnectionSettings& settings,
                                           std::shared_ptr<Backoff> backoff, jsOptions* jsOpts,
                                           std::unique_ptr<FleetConnection>* out) {
  auto events = std::make_shared<Events>();
  events->backoff = std::move(backoff);
  events->servers = settings.serverList();
  KeepForProcessLifetime(events);

  NatsOptionsPtr opts;
  if (auto e = BuildOptions(settings, events.get(), &opts)) {
    return Error("cannot connect to " + events->servers + ": " + e->description());
  }
  natsConnection* rawConnection = nullptr;
  natsStatus s = natsConnection_Connect(&rawConnection, opts.get());
  // A connection dropped here was never announced: close it quietly.
  auto fail = [&events](Error error) {
    events->closing.store(true);
    return error;
  };
  NatsConnectionPtr nc(rawConnection);
  if (s != NATS_OK) return fail(Error("cannot connect to " + events->servers + ": " + NatsErrorText(s)));
  const std::string url = ConnectedUrl(nc.get(), events->servers);
  jsCtx* rawJs = nullptr;
  s = natsConnection_JetStream(&rawJs, nc.get(), jsOpts);
  JsContextPtr js(rawJs);
  if (s != NATS_OK) return fail(Error("cannot use JetStream on " + url + ": " + NatsErrorText(s)));
  if (auto e = EnsureLumvaneStream(js.get(), settings.stream, url)) return fail(*e);

  std::unique_ptr<FleetConnection> connection(new FleetConnection());
  connection->events_ = std::move(events);
  connection->nc_ = std::move(nc);
  connection->js_ = std::move(js);
  connection->events_->enter(ConnectionState::Connected, "connected to " + url);
  *out = std::move(connection);
  return std::nullopt;
}

std::unique_ptr<FleetConnection> FleetConnection::OpenRetrying(const ConnectionSettings& settings,
                                                               std::shared_ptr<Backoff> backoff,
                                                               jsOptions* jsOpts,
                                                               const std::atomic<bool>& stop) {
  std::string lastFailure;
  for (int failures = 1; !stop.load(); ++failures) {
    std::unique_ptr<FleetConnection> connection;
    std::optional<Error> error = Open(settings, backoff, jsOpts, &connection);
    if (!error) return connection;
    if (error->description() != lastFailure) {
      lastFailure = error->description();
      FleetLog(lastFailure + "; retrying with backoff");
    }
    const auto until = std::chrono::steady_clock::now() + backoff->delay(failures);
    while (!stop.load() && std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  return nullptr;
}

FleetConnection::~FleetConnection() {
  events_->closing.store(true);
  js_.reset();
  if (nc_) {
    natsConnection_Close(nc_.get());
    // The library calls back (disconnected, then closed) on a thread of its
    // own after Close returns; Events must outlive those calls.
    events_->waitClosed(std::chrono::seconds(5));
  }
}

ConnectionState FleetConnection::state() const {
  if (nc_ && natsConnection_IsClosed(nc_.get())) return ConnectionState::Closed;
  return static_cast<ConnectionState>(events_->state.load());
}

std::string FleetConnection::url() const { return ConnectedUrl(nc_.get(), events_->servers); }

}  // namespace lumvane::fleet

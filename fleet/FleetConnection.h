// One connection to the fleet's JetStream servers, with the LUMVANE stream
// checked (or created) on it.
//
// Reconnection: once connected, the client library reconnects by itself
// after a lost connection, forever, waiting as the Backoff says between
// rounds; buffered publishes go out after a reconnect. State changes
// (connected, disconnected, reconnected, closed) are logged once each, not
// once per attempt. A connection the library gave up on reads as Closed; its
// owner drops it and opens a new one (OpenRetrying).
//
// Thread-safety: state() and url() may be called from any thread; the
// library runs its callbacks on threads of its own. The object must outlive
// every use of connection() and jetStream().
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "fleet/Backoff.h"
#include "fleet/ConnectionSettings.h"
#include "fleet/NatsHandles.h"
#include "lumvane/platform/Error.h"

namespace lumvane::fleet {

enum class ConnectionState { Connecting, Connected, Disconnected, Closed };
const char* ConnectionStateName(ConnectionState state);

class FleetConnection final {
 public:
  // One attempt: reads the TLS and credential files the settings name,
  // connects, creates the JetStream context with `jsOpts` (may be null) and
  // makes sure the stream exists. The error names the server(s) and says why.
  [[nodiscard]] static std::optional<Error> Open(const ConnectionSettings& settings,
                                                 std::shared_ptr<Backoff> backoff,
                                                 jsOptions* jsOpts,
                                                 std::unique_ptr<FleetConnection>* out);

  // Open, again and again with the Backoff's waits, until it succeeds or
  // `stop` turns true (then nullptr). Each distinct failure is logged once,
  // with "retrying"; a success after failures is logged.
  static std::unique_ptr<FleetConnection> OpenRetrying(const ConnectionSettings& settings,
                                                       std::shared_ptr<Backoff> backoff,
                                                       jsOptions* jsOpts,
                                                       const std::atomic<bool>& stop);

  ~FleetConnection();
  FleetConnection(const FleetConnection&) = delete;
  FleetConnection& operator=(const FleetConnection&) = delete;

  natsConnection* connection() const { return nc_.get(); }
  jsCtx* jetStream() const { return js_.get(); }
  ConnectionState state() const;
  // The URL of the server connected to, or the configured list.
  std::string url() const;

  struct Events;  // shared with the library's callback threads

 private:
  FleetConnection() = default;

  std::shared_ptr<Events> events_;
  NatsConnectionPtr nc_;
  JsContextPtr js_;
};

}  // namespace lumvane::fleet

// One telemetry event as the collector stores it: which machine sent it,
// under which JetStream message ID, and the event line's own fields.
#pragma once

#include <cstdint>
#include <string>

namespace lumvane::collect {

struct FleetEvent {
  std::string eventId;         // the message ID, unique per event and stable across re-sends
  std::string machine;         // the machine key of the subject
  std::string name;            // the event name
  int64_t sentMicroseconds = 0;  // send time, µs since the Unix epoch (UTC)
  std::string day;             // the UTC day of the send time, YYYY-MM-DD
  std::string payload;         // the payload object, as JSON text
};

// A message that is not a lumvane event line. It is kept (not dropped) so
// that nothing that arrived is lost without a trace.
struct RejectedMessage {
  std::string eventId;
  std::string subject;
  std::string data;
  std::string reason;
};

}  // namespace lumvane::collect

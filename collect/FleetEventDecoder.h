// Turns one JetStream message of the LUMVANE stream into a FleetEvent. The
// subject is "lumvane.<machine key>.<escaped event name>"; the data is one
// event line as the daemon writes it,
//   {"name": "<event name>", "payload": {...}, "sent": <µs>}
// The event name is taken from the line (the subject's token is escaped);
// the payload is kept as the line holds it.
//
// Thread-safety: none; keep one decoder per thread (it reuses its parser).
#pragma once

#include <simdjson.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "collect/FleetEvent.h"

namespace lumvane::collect {

class FleetEventDecoder final {
 public:
  // Fills `out` and returns nothing, or returns why the message is not an
  // event (then `out` is left in an unspecified state).
  [[nodiscard]] std::optional<std::string> decode(std::string_view subject, std::string_view eventId,
                                                  std::string_view data, FleetEvent* out);

 private:
  simdjson::ondemand::parser parser_;
  simdjson::padded_string buffer_;
  // The UTC day of the last send time, kept because consecutive events are
  // mostly of one day: day_ is the text of day number dayNumber_ since the epoch.
  bool haveDay_ = false;
  int64_t dayNumber_ = 0;
  std::string day_;
};

// "YYYY-MM-DD" of a time in µs since the Unix epoch, in UTC.
std::string UtcDay(int64_t microseconds);

}  // namespace lumvane::collect

#include "collect/FleetEventDecoder.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace lumvane::collect {

std::string UtcDay(int64_t microseconds) {
  int64_t seconds = microseconds / 1000000;
  if (microseconds % 1000000 < 0) --seconds;  // round towards the past
  const time_t t = static_cast<time_t>(seconds);
  struct tm tm {};
  gmtime_r(&t, &tm);
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
  return text;
}

std::optional<std::string> FleetEventDecoder::decode(std::string_view subject, std::string_view eventId,
                                                     std::string_view data, FleetEvent* out) {
  constexpr std::string_view kPrefix = "lumvane.";
  if (subject.substr(0, kPrefix.size()) != kPrefix) return "subject outside lumvane.>";
  const std::string_view rest = subject.substr(kPrefix.size());
  const std::size_t dot = rest.find('.');
  if (dot == 0 || dot == std::string_view::npos || rest.find('.', dot + 1) != std::string_view::npos ||
      dot + 1 == rest.size()) {
    return "subject is not lumvane.<machine>.<event>";
  }
  if (eventId.empty()) return "message has no ID";

  // The line must be padded for the parser; reuse one buffer for all lines.
  if (buffer_.size() < data.size()) buffer_ = simdjson::padded_string(data.size() * 2);
  std::memcpy(buffer_.data(), data.data(), data.size());
  std::memset(buffer_.data() + data.size(), 0, simdjson::SIMDJSON_PADDING);  // the parser reads into it
  simdjson::ondemand::document doc;
  if (parser_.iterate(buffer_.data(), data.size(), buffer_.size() + simdjson::SIMDJSON_PADDING).get(doc)) {
    return "not a JSON object";
  }
  simdjson::ondemand::object line;
  if (doc.get_object().get(line)) return "not a JSON object";
  std::string_view name, payload;
  int64_t sent = 0;
  bool haveName = false, havePayload = false, haveSent = false;
  for (auto field : line) {
    std::string_view key;
    if (field.unescaped_key().get(key)) return "malformed key";
    if (key == "name") {
      if (field.value().get_string().get(name)) return "\"name\" is not a string";
      haveName = true;
    } else if (key == "payload") {
      simdjson::ondemand::object object;
      if (field.value().get_object().get(object) || object.raw_json().get(payload)) {
        return "\"payload\" is not an object";
      }
      havePayload = true;
    } else if (key == "sent") {
      if (field.value().get_int64().get(sent)) return "\"sent\" is not an integer";
      haveSent = true;
    }  // other keys are skipped by the iteration
  }
  if (!haveName || !havePayload || !haveSent) return "missing \"name\", \"payload\" or \"sent\"";
  if (name.empty()) return "empty event name";

  out->eventId.assign(eventId);
  out->machine.assign(rest.substr(0, dot));
  out->name.assign(name);
  out->sentMicroseconds = sent;
  constexpr int64_t kMicrosecondsPerDay = 86400LL * 1000000;
  const int64_t dayNumber = sent / kMicrosecondsPerDay - (sent % kMicrosecondsPerDay < 0 ? 1 : 0);
  if (!haveDay_ || dayNumber != dayNumber_) {
    day_ = UtcDay(sent);
    dayNumber_ = dayNumber;
    haveDay_ = true;
  }
  out->day = day_;
  out->payload.assign(payload);
  return std::nullopt;
}

}  // namespace lumvane::collect

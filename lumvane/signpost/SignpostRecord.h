// One record of the signpost log store as the reader sees it after parsing:
// views into the parser's buffers, valid until the next record is parsed.
// Whatever outlives the record is copied into signpost objects.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "lumvane/platform/Date.h"

namespace lumvane {

struct SignpostRecord {
  enum class Type { Begin, End, Event };
  // Which pairing table a begin or end belongs to: one per process, one per
  // thread, or the single table of the whole system.
  enum class Scope { Process, Thread, System };

  Date timestamp{};
  Type type = Type::Event;
  std::optional<Scope> scope;        // always present for begins and ends
  std::optional<uint64_t> signpostID;  // always present for begins and ends
  std::string_view subsystem;
  std::string_view category;
  std::optional<std::string_view> name;
  std::optional<uint64_t> processID;
  std::optional<uint64_t> threadID;
  std::optional<std::string_view> processImagePath;
  std::optional<std::string_view> formatString;
  std::optional<std::string_view> eventMessage;

  // The text that telemetry switches are looked for in: the message, or the
  // format string when the message is absent or empty.
  std::string_view message() const {
    if (eventMessage && !eventMessage->empty()) return *eventMessage;
    return formatString ? *formatString : std::string_view();
  }
};

}  // namespace lumvane

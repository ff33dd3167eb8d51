// Turns the fields of one journal entry into a SignpostEntry. Every source
// of entries (a journal opened through libsystemd, journalctl's JSON lines)
// hands the builder the entry's fields as (name, value bytes) pairs, a
// repeated field once per value, so that what makes an entry a signpost, which
// fields it needs and how their text is read is decided here and nowhere else.
//
// The rules: the entry is a signpost when one of its MESSAGE_ID values is
// kMessageID. It then needs a realtime timestamp; SIGNPOST_TYPE (begin, end,
// event), SIGNPOST_ID (decimal, unsigned 64-bit), SIGNPOST_SCOPE (process,
// thread, system), SIGNPOST_SUBSYSTEM and SIGNPOST_CATEGORY; a process or
// thread scope also needs the process ID, a thread scope SIGNPOST_TID. A
// signpost field given twice with different values, text fields that are not
// UTF-8 (or hold a NUL) and values outside their domain make it malformed.
// The process is OBJECT_PID/OBJECT_EXE/OBJECT_COMM when OBJECT_PID is given,
// else _PID/_EXE/_COMM. SIGNPOST_ATTRIBUTE values split at their first "=";
// a key given twice with different values is left out, since the journal
// keeps no order among a field's values.
//
// Values are not copied: the bytes given to add() and setBootID() must stay
// put until the next reset(); entry() holds copies.
//
// Not thread-safe; one builder per decoding thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lumvane/signpost/Number.h"
#include "lumvane/signpost/SignpostEntry.h"

namespace lumvane {

class SignpostEntryBuilder final {
 public:
  static constexpr std::string_view kMessageID = "0c7e0296aa5f4fc7af2af7a970a22d31";

  enum class Verdict {
    NotSignpost,  // another program's entry
    NoRealtime,   // a signpost entry without a usable realtime timestamp
    Malformed,    // a signpost entry that lacks a field or holds a bad value
    Signpost,     // entry() holds it
  };

  // Forgets the fields of the previous entry (keeping the entry's buffers).
  void reset();

  // One value of one field of the current entry.
  void add(std::string_view field, std::string_view value) { add(fieldIndex(field), value); }
  // The same for a field looked up with fieldIndex() (-1 is ignored), so
  // that a source that has to ask wants() first looks a name up once.
  void add(int fieldIndex, std::string_view value);
  // The builder's index of `field`, or -1 when it does not read the field.
  // A hash probe: most names of an entry are rejected without a compare.
  static int fieldIndex(std::string_view field);

  // Marks the current entry as unreadable (a value the source would not
  // hold, say): a signpost entry then comes out Malformed.
  void markUnreadable() { unreadable_ = true; }

  // Whether add() reads `field` at all: a source may skip decoding the
  // values of other fields.
  static bool wants(std::string_view field) { return fieldIndex(field) >= 0; }

  // Timestamps and boot ID that a source knows without reading fields; they
  // take precedence over the same values given as fields.
  void setRealtimeUsec(uint64_t usec) { realtime_ = usec; }
  void setMonotonicUsec(uint64_t usec) { monotonic_ = usec; }
  void setBootID(std::string_view id) { bootIDOverride_ = id; }

  // Whether the entry seen so far is a signpost and its realtime timestamp:
  // enough to judge the window before finish() reads the rest.
  bool isSignpost() const { return isSignpost_; }
  std::optional<uint64_t> realtimeUsec() const;

  // Reads the collected fields. On Signpost, entry() holds the entry until
  // the next reset().
  Verdict finish();
  const SignpostEntry& entry() const { return entry_; }

  // A number argument's text: a signed 64-bit integer with an optional sign,
  // an unsigned one without, else a float in JSON's number grammar.
  static std::optional<Number> parseNumber(std::string_view text);

 private:
  enum Field : uint8_t {
    kType, kID, kScope, kSubsystem, kCategory, kName, kTelemetry, kAnimation,
    kString1Name, kString1Value, kString2Name, kString2Value,
    kNumber1Name, kNumber1Value, kNumber2Name, kNumber2Value, kTID, kBoottime,
    kObjectPID, kObjectExe, kObjectComm, kPID, kExe, kComm, kBootID, kRealtime, kMonotonic,
    kFieldCount,
    // Read, but not kept in a slot.
    kMessageIDField = kFieldCount, kAttributeField,
  };
  // The first value of a field and whether a different one followed.
  struct Slot {
    std::string_view value;
    bool present = false;
    bool conflict = false;
  };

  const std::string_view* text(Field f) const;  // nullptr when absent or in conflict
  bool readEntry();

  std::array<Slot, kFieldCount> slots_;
  std::vector<std::string_view> attributes_;
  size_t attributeCount_ = 0;
  std::vector<bool> clash_;  // per attribute kept, reused from entry to entry
  bool isSignpost_ = false;
  bool unreadable_ = false;
  std::optional<uint64_t> realtime_;
  std::optional<uint64_t> monotonic_;
  std::optional<std::string_view> bootIDOverride_;
  SignpostEntry entry_;
};

}  // namespace lumvane

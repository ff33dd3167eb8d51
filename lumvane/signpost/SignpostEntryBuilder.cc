#include "lumvane/signpost/SignpostEntryBuilder.h"

#include <simdjson.h>

#include <charconv>

namespace lumvane {
namespace {

std::optional<uint64_t> ParseUnsigned(std::string_view s) {
  uint64_t v = 0;
  if (s.empty() || s.front() < '0' || s.front() > '9') return std::nullopt;
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  return v;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// JSON's number grammar: -?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?
bool IsJsonNumber(std::string_view s) {
  size_t i = 0;
  const size_t n = s.size();
  if (i < n && s[i] == '-') ++i;
  if (i >= n || !IsDigit(s[i])) return false;
  if (s[i] == '0') {
    ++i;
  } else {
    while (i < n && IsDigit(s[i])) ++i;
  }
  if (i < n && s[i] == '.') {
    ++i;
    if (i >= n || !IsDigit(s[i])) return false;
    while (i < n && IsDigit(s[i])) ++i;
  }
  if (i < n && (s[i] == 'e' || s[i] == 'E')) {
    ++i;
    if (i < n && (s[i] == '+' || s[i] == '-')) ++i;
    if (i >= n || !IsDigit(s[i])) return false;
    while (i < n && IsDigit(s[i])) ++i;
  }
  return i == n;
}

// Text that a payload may carry: UTF-8 without NUL bytes.
bool IsText(std::string_view s) {
  return s.find('\0') == std::string_view::npos && simdjson::validate_utf8(s.data(), s.size());
}

}  // namespace

int64_t SignpostTime::elapsedNanoseconds(const SignpostTime& from, const SignpostTime& to) {
  // Differences are taken in unsigned arithmetic and then read as signed, so
  // that no pair of inputs overflows.
  if (from.boottimeNsec && to.boottimeNsec) {
    return static_cast<int64_t>(*to.boottimeNsec - *from.boottimeNsec);
  }
  if (from.monotonicUsec && to.monotonicUsec) {
    return static_cast<int64_t>((*to.monotonicUsec - *from.monotonicUsec) * 1000u);
  }
  return static_cast<int64_t>((to.realtimeUsec - from.realtimeUsec) * 1000u);
}

std::optional<Number> SignpostEntryBuilder::parseNumber(std::string_view s) {
  if (s.empty()) return std::nullopt;
  const char* const first = s.data();
  const char* const last = s.data() + s.size();
  const bool sign = s.front() == '-' || s.front() == '+';
  bool allDigits = s.size() > (sign ? 1u : 0u);
  for (size_t i = sign ? 1 : 0; i < s.size() && allDigits; ++i) allDigits = IsDigit(s[i]);
  if (allDigits) {
    int64_t i = 0;
    const char* from = s.front() == '+' ? first + 1 : first;
    auto r = std::from_chars(from, last, i);
    if (r.ec == std::errc() && r.ptr == last) return Number::fromInt64(i);
    if (!sign) {
      uint64_t u = 0;
      r = std::from_chars(first, last, u);
      if (r.ec == std::errc() && r.ptr == last) return Number::fromUInt64(u);
    }
  }
  if (!IsJsonNumber(s)) return std::nullopt;
  double d = 0;
  const auto r = std::from_chars(first, last, d, std::chars_format::general);
  if (r.ec != std::errc() || r.ptr != last) return std::nullopt;
  return Number::fromDouble(d);
}

namespace {

struct NamedField {
  std::string_view name;
  int field;
};

size_t NameHash(std::string_view s) {
  const auto at = [&s](size_t i) { return static_cast<size_t>(static_cast<unsigned char>(s[i])); };
  return (s.size() * 131 + at(0) * 31 + at(s.size() - 1) * 7 + at(s.size() / 2) * 3 +
          at(s.size() - 2)) &
         255;
}

}  // namespace

int SignpostEntryBuilder::fieldIndex(std::string_view name) {
  static constexpr NamedField kFields[] = {
      {"MESSAGE_ID", kMessageIDField},
      {"SIGNPOST_ATTRIBUTE", kAttributeField},
      {"SIGNPOST_TYPE", kType},
      {"SIGNPOST_ID", kID},
      {"SIGNPOST_SCOPE", kScope},
      {"SIGNPOST_SUBSYSTEM", kSubsystem},
      {"SIGNPOST_CATEGORY", kCategory},
      {"SIGNPOST_NAME", kName},
      {"SIGNPOST_TELEMETRY", kTelemetry},
      {"SIGNPOST_ANIMATION", kAnimation},
      {"SIGNPOST_STRING1_NAME", kString1Name},
      {"SIGNPOST_STRING1_VALUE", kString1Value},
      {"SIGNPOST_STRING2_NAME", kString2Name},
      {"SIGNPOST_STRING2_VALUE", kString2Value},
      {"SIGNPOST_NUMBER1_NAME", kNumber1Name},
      {"SIGNPOST_NUMBER1_VALUE", kNumber1Value},
      {"SIGNPOST_NUMBER2_NAME", kNumber2Name},
      {"SIGNPOST_NUMBER2_VALUE", kNumber2Value},
      {"SIGNPOST_TID", kTID},
      {"SIGNPOST_BOOTTIME_NSEC", kBoottime},
      {"_PID", kPID},
      {"_EXE", kExe},
      {"_COMM", kComm},
      {"_BOOT_ID", kBootID},
      {"OBJECT_PID", kObjectPID},
      {"OBJECT_EXE", kObjectExe},
      {"OBJECT_COMM", kObjectComm},
      {"__REALTIME_TIMESTAMP", kRealtime},
      {"__MONOTONIC_TIMESTAMP", kMonotonic},
  };
  // Open addressing over 256 slots (index into kFields, -1 empty).
  static const std::array<int8_t, 256> kSlots = [] {
    std::array<int8_t, 256> slots;
    slots.fill(-1);
    for (size_t i = 0; i < std::size(kFields); ++i) {
      size_t h = NameHash(kFields[i].name);
      while (slots[h] >= 0) h = (h + 1) & 255;
      slots[h] = static_cast<int8_t>(i);
    }
    return slots;
  }();
  if (name.size() < 2) return -1;
  for (size_t h = NameHash(name); kSlots[h] >= 0; h = (h + 1) & 255) {
    if (kFields[kSlots[h]].name == name) return kFields[kSlots[h]].field;
  }
  return -1;
}

void SignpostEntryBuilder::reset() {
  for (Slot& s : slots_) {
    s.present = false;
    s.conflict = false;
  }
  attributeCount_ = 0;
  isSignpost_ = false;
  unreadable_ = false;
  realtime_.reset();
  monotonic_.reset();
  bootIDOverride_.reset();
}

void SignpostEntryBuilder::add(int fieldIndex, std::string_view value) {
  if (fieldIndex < 0) return;
  if (fieldIndex == kMessageIDField) {
    isSignpost_ = isSignpost_ || value == kMessageID;
    return;
  }
  if (fieldIndex == kAttributeField) {
    if (attributeCount_ == attributes_.size()) attributes_.emplace_back();
    attributes_[attributeCount_++] = value;
    return;
  }
  Slot& slot = slots_[static_cast<size_t>(fieldIndex)];
  if (!slot.present) {
    slot.value = value;
    slot.present = true;
  } else if (slot.value != value) {
    slot.conflict = true;
  }
}

const std::string_view* SignpostEntryBuilder::text(Field f) const {
  const Slot& s = slots_[f];
  return s.present && !s.conflict ? &s.value : nullptr;
}

std::optional<uint64_t> SignpostEntryBuilder::realtimeUsec() const {
  if (realtime_) return realtime_;
  const std::string_view* t = text(kRealtime);
  return t ? ParseUnsigned(*t) : std::nullopt;
}

SignpostEntryBuilder::Verdict SignpostEntryBuilder::finish() {
  if (!isSignpost_) return Verdict::NotSignpost;
  const std::optional<uint64_t> realtime = realtimeUsec();
  if (!realtime) return Verdict::NoRealtime;
  entry_.time.realtimeUsec = *realtime;
  return !unreadable_ && readEntry() ? Verdict::Signpost : Verdict::Malformed;
}

bool SignpostEntryBuilder::readEntry() {
  SignpostEntry& e = entry_;
  // A signpost field with two different values cannot be read.
  for (int f = kType; f <= kBoottime; ++f) {
    if (slots_[f].conflict) return false;
  }
  const std::string_view* type = text(kType);
  const std::string_view* id = text(kID);
  const std::string_view* scope = text(kScope);
  const std::string_view* subsystem = text(kSubsystem);
  const std::string_view* category = text(kCategory);
  if (!type || !id || !scope || !subsystem || !category) return false;

  if (*type == "begin") {
    e.type = SignpostEntry::Type::Begin;
  } else if (*type == "end") {
    e.type = SignpostEntry::Type::End;
  } else if (*type == "event") {
    e.type = SignpostEntry::Type::Event;
  } else {
    return false;
  }
  if (*scope == "process") {
    e.scope = SignpostEntry::Scope::Process;
  } else if (*scope == "thread") {
    e.scope = SignpostEntry::Scope::Thread;
  } else if (*scope == "system") {
    e.scope = SignpostEntry::Scope::System;
  } else {
    return false;
  }
  const std::optional<uint64_t> signpostID = ParseUnsigned(*id);
  if (!signpostID) return false;
  e.signpostID = *signpostID;

  // Text fields end up in payloads and log lines: they must be text.
  auto readText = [this](Field f, std::optional<std::string>* out) {
    const std::string_view* t = text(f);
    if (!t) {
      out->reset();
      return true;
    }
    if (!IsText(*t)) return false;
    if (*out) {
      (*out)->assign(*t);
    } else {
      out->emplace(*t);
    }
    return true;
  };
  if (!IsText(*subsystem) || !IsText(*category)) return false;
  e.subsystem.assign(*subsystem);
  e.category.assign(*category);
  if (!readText(kName, &e.name)) return false;

  const std::string_view* telemetry = text(kTelemetry);
  const std::string_view* animation = text(kAnimation);
  e.telemetry = telemetry && *telemetry == "1";
  e.animation = animation && *animation == "1";

  // Argument slots: filled when both the name and a readable value are
  // there, never half.
  SignpostArguments& a = e.arguments;
  auto slotText = [this](Field f, const std::string_view** out) {
    *out = text(f);
    return !*out || IsText(**out);
  };
  // Slots are filled in place, so that their strings keep their buffers
  // from entry to entry.
  auto stringSlot = [&](Field nameField, Field valueField,
                        std::optional<SignpostArguments::StringSlot>* slot) {
    const std::string_view *n, *v;
    if (!slotText(nameField, &n) || !slotText(valueField, &v)) return false;
    if (n && v) {
      if (!*slot) slot->emplace();
      (*slot)->name.assign(*n);
      (*slot)->value.assign(*v);
    } else {
      slot->reset();
    }
    return true;
  };
  auto numberSlot = [&](Field nameField, Field valueField,
                        std::optional<SignpostArguments::NumberSlot>* slot) {
    const std::string_view* n;
    if (!slotText(nameField, &n)) return false;
    const std::string_view* v = text(valueField);
    const std::optional<Number> value = v ? parseNumber(*v) : std::nullopt;
    if (n && value) {
      if (!*slot) slot->emplace();
      (*slot)->name.assign(*n);
      (*slot)->value = *value;
    } else {
      slot->reset();
    }
    return true;
  };
  if (!stringSlot(kString1Name, kString1Value, &a.string1) ||
      !stringSlot(kString2Name, kString2Value, &a.string2) ||
      !numberSlot(kNumber1Name, kNumber1Value, &a.number1) ||
      !numberSlot(kNumber2Name, kNumber2Value, &a.number2)) {
    return false;
  }

  // A key given twice with two values has no winner, so neither is kept.
  // The pairs of the previous entry are written over, keeping their buffers.
  size_t count = 0;
  clash_.clear();
  for (size_t i = 0; i < attributeCount_; ++i) {
    const std::string_view t = attributes_[i];
    if (!IsText(t)) return false;
    const size_t eq = t.find('=');
    if (eq == std::string_view::npos) continue;
    const std::string_view key = t.substr(0, eq);
    const std::string_view value = t.substr(eq + 1);
    size_t k = 0;
    while (k < count && a.attributes[k].first != key) ++k;
    if (k == count) {
      if (count == a.attributes.size()) a.attributes.emplace_back();
      a.attributes[count].first.assign(key);
      a.attributes[count].second.assign(value);
      ++count;
      clash_.push_back(false);
    } else if (a.attributes[k].second != value) {
      clash_[k] = true;
    }
  }
  size_t kept = 0;
  for (size_t k = 0; k < count; ++k) {
    if (clash_[k]) continue;
    if (kept != k) std::swap(a.attributes[kept], a.attributes[k]);
    ++kept;
  }
  a.attributes.resize(kept);

  // The process: the one the entry was sent on behalf of, else the sender.
  const bool onBehalf = slots_[kObjectPID].present;
  const Field pidField = onBehalf ? kObjectPID : kPID;
  const std::string_view* pid = text(pidField);
  e.pid = pid ? ParseUnsigned(*pid) : std::nullopt;
  if (!readText(onBehalf ? kObjectExe : kExe, &e.processImagePath) ||
      !readText(onBehalf ? kObjectComm : kComm, &e.processName)) {
    return false;
  }
  const std::string_view* tid = text(kTID);
  e.tid = tid ? ParseUnsigned(*tid) : std::nullopt;
  if (e.scope != SignpostEntry::Scope::System && !e.pid) return false;
  if (e.scope == SignpostEntry::Scope::Thread && !e.tid) return false;

  const std::string_view* boottime = text(kBoottime);
  e.time.boottimeNsec = boottime ? ParseUnsigned(*boottime) : std::nullopt;
  if (monotonic_) {
    e.time.monotonicUsec = monotonic_;
  } else {
    const std::string_view* m = text(kMonotonic);
    e.time.monotonicUsec = m ? ParseUnsigned(*m) : std::nullopt;
  }
  if (bootIDOverride_ && !bootIDOverride_->empty()) {
    e.bootID.assign(*bootIDOverride_);
  } else if (const std::string_view* b = text(kBootID)) {
    e.bootID.assign(*b);
  } else {
    e.bootID.clear();
  }
  return true;
}

}  // namespace lumvane

#include "lumvane/signpost/SignpostRecordParser.h"

#include <simdjson.h>

#include "lumvane/signpost/LogStoreTimestamp.h"

namespace lumvane {
namespace {

namespace od = simdjson::ondemand;

enum class Field {
  Unknown, Timestamp, EventType, SignpostType, SignpostID, SignpostName, SignpostScope,
  Subsystem, Category, ProcessID, ThreadID, ProcessImagePath, FormatString, EventMessage,
  Count, Finished,
};

Field FieldOf(std::string_view key) {
  // Dispatch on length first: every known key has a distinct (length, first
  // letter) pair but a few, so most keys cost one or two comparisons.
  switch (key.size()) {
    case 5:
      return key == "count" ? Field::Count : Field::Unknown;
    case 8:
      if (key == "category") return Field::Category;
      if (key == "threadID") return Field::ThreadID;
      if (key == "finished") return Field::Finished;
      return Field::Unknown;
    case 9:
      if (key == "timestamp") return Field::Timestamp;
      if (key == "eventType") return Field::EventType;
      if (key == "subsystem") return Field::Subsystem;
      if (key == "processID") return Field::ProcessID;
      return Field::Unknown;
    case 10:
      return key == "signpostID" ? Field::SignpostID : Field::Unknown;
    case 12:
      if (key == "signpostType") return Field::SignpostType;
      if (key == "signpostName") return Field::SignpostName;
      if (key == "formatString") return Field::FormatString;
      if (key == "eventMessage") return Field::EventMessage;
      return Field::Unknown;
    case 13:
      return key == "signpostScope" ? Field::SignpostScope : Field::Unknown;
    case 16:
      return key == "processImagePath" ? Field::ProcessImagePath : Field::Unknown;
    case 18:
      return key == "signpostIdentifier" ? Field::SignpostID : Field::Unknown;
    default:
      return Field::Unknown;
  }
}

// A string field: absent when null, bad when of another type.
enum class Read { Ok, Absent, Bad };

Read ReadString(od::value& v, std::string_view* out) {
  od::json_type t;
  if (v.type().get(t) != simdjson::SUCCESS) return Read::Bad;
  if (t == od::json_type::null) return Read::Absent;
  if (t != od::json_type::string) return Read::Bad;
  return v.get_string().get(*out) == simdjson::SUCCESS ? Read::Ok : Read::Bad;
}

// Unsigned 64-bit integers are read as such, never through a double, so
// that identifiers above 2^63 keep every bit.
Read ReadUnsigned(od::value& v, uint64_t* out) {
  od::json_type t;
  if (v.type().get(t) != simdjson::SUCCESS) return Read::Bad;
  if (t == od::json_type::null) return Read::Absent;
  if (t != od::json_type::number) return Read::Bad;
  return v.get_uint64().get(*out) == simdjson::SUCCESS ? Read::Ok : Read::Bad;
}

// A string that is there but cannot be decoded (of another type, or with an
// escape that is no character, such as a lone UTF-16 surrogate "\ud800") is
// bad, never taken for an absent one: the record is then malformed.
[[nodiscard]] bool ReadOptionalString(od::value& v, std::optional<std::string_view>* out) {
  std::string_view s;
  const Read r = ReadString(v, &s);
  if (r == Read::Ok) *out = s;
  return r != Read::Bad;
}

void ReadOptionalUnsigned(od::value& v, std::optional<uint64_t>* out) {
  uint64_t n;
  if (ReadUnsigned(v, &n) == Read::Ok) *out = n;
}

}  // namespace

struct SignpostRecordParser::Impl {
  od::parser parser;
};

SignpostRecordParser::SignpostRecordParser() : impl_(std::make_unique<Impl>()) {}
SignpostRecordParser::~SignpostRecordParser() = default;

SignpostRecordParser::Kind SignpostRecordParser::parse(std::string_view record, size_t padding,
                                                       Date start, Date end,
                                                       SignpostRecord* out) {
  if (record.empty() || record.front() != '{') return Kind::NotObject;
  od::document doc;
  if (impl_->parser.iterate(record.data(), record.size(), record.size() + padding).get(doc) !=
      simdjson::SUCCESS) {
    return Kind::NotObject;
  }
  od::object object;
  if (doc.get_object().get(object) != simdjson::SUCCESS) return Kind::NotObject;

  *out = SignpostRecord();
  bool haveTimestamp = false;
  std::optional<bool> isSignpost;
  bool trailerField = false;
  bool badField = false;
  bool haveType = false, haveSubsystem = false, haveCategory = false;

  for (auto item : object) {
    if (item.error() != simdjson::SUCCESS) return Kind::NotObject;
    od::field field = std::move(item).value_unsafe();
    std::string_view key;
    if (field.unescaped_key().get(key) != simdjson::SUCCESS) return Kind::NotObject;
    od::value& v = field.value();
    const Field f = FieldOf(key);
    if (f == Field::Unknown) continue;
    // Once the record is known to be something else than a signpost, its
    // remaining signpost fields are not worth reading.
    if (isSignpost == false && f != Field::Timestamp) continue;
    std::string_view s;
    switch (f) {
      case Field::Timestamp: {
        if (ReadString(v, &s) != Read::Ok) return Kind::BadTimestamp;
        const std::optional<Date> t = ParseLogStoreTimestamp(s);
        if (!t) return Kind::BadTimestamp;
        if (*t < start || *t > end) return Kind::OutsideWindow;
        out->timestamp = *t;
        haveTimestamp = true;
        if (isSignpost == false) return Kind::Other;
        break;
      }
      case Field::EventType:
        isSignpost = ReadString(v, &s) == Read::Ok && s == "signpostEvent";
        if (!*isSignpost && haveTimestamp) return Kind::Other;
        break;
      case Field::SignpostType:
        if (ReadString(v, &s) != Read::Ok) {
          badField = true;
        } else if (s == "begin") {
          out->type = SignpostRecord::Type::Begin;
        } else if (s == "end") {
          out->type = SignpostRecord::Type::End;
        } else if (s == "event") {
          out->type = SignpostRecord::Type::Event;
        } else {
          badField = true;
        }
        haveType = true;
        break;
      case Field::SignpostID: {
        uint64_t id;
        const Read r = ReadUnsigned(v, &id);
        if (r == Read::Ok) out->signpostID = id;
        if (r == Read::Bad) badField = true;
        break;
      }
      case Field::SignpostScope:
        switch (ReadString(v, &s)) {
          case Read::Bad:
            badField = true;
            break;
          case Read::Absent:
            break;
          case Read::Ok:
            if (s == "process") {
              out->scope = SignpostRecord::Scope::Process;
            } else if (s == "thread") {
              out->scope = SignpostRecord::Scope::Thread;
            } else if (s == "system") {
              out->scope = SignpostRecord::Scope::System;
            }
            break;
        }
        break;
      case Field::SignpostName:
        if (!ReadOptionalString(v, &out->name)) badField = true;
        break;
      case Field::Subsystem:
        haveSubsystem = ReadString(v, &out->subsystem) == Read::Ok;
        break;
      case Field::Category:
        haveCategory = ReadString(v, &out->category) == Read::Ok;
        break;
      case Field::ProcessID:
        ReadOptionalUnsigned(v, &out->processID);
        break;
      case Field::ThreadID:
        ReadOptionalUnsigned(v, &out->threadID);
        break;
      case Field::ProcessImagePath:
        if (!ReadOptionalString(v, &out->processImagePath)) badField = true;
        break;
      case Field::FormatString:
        if (!ReadOptionalString(v, &out->formatString)) badField = true;
        break;
      case Field::EventMessage:
        if (!ReadOptionalString(v, &out->eventMessage)) badField = true;
        break;
      case Field::Count:
      case Field::Finished:
        trailerField = true;
        break;
      case Field::Unknown:
        break;
    }
  }

  if (!haveTimestamp) return trailerField ? Kind::Trailer : Kind::BadTimestamp;
  if (isSignpost != true) return Kind::Other;
  if (badField || !haveType || !haveSubsystem || !haveCategory) return Kind::BadSignpost;
  if (out->type != SignpostRecord::Type::Event) {
    if (!out->scope || !out->signpostID) return Kind::BadSignpost;
    if (*out->scope == SignpostRecord::Scope::Process && !out->processID) return Kind::BadSignpost;
    if (*out->scope == SignpostRecord::Scope::Thread && !out->threadID) return Kind::BadSignpost;
  }
  return Kind::Signpost;
}

}  // namespace lumvane

#include "lumvane/platform/DovetelEventJson.h"

#include <charconv>
#include <cmath>

namespace lumvane {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

// Length of the well-formed UTF-8 sequence at the start of `s`, or, when it
// is ill-formed, minus the length of its maximal ill-formed prefix (at least
// one byte), which is replaced by a single U+FFFD.
int Utf8SequenceLength(std::string_view s) {
  const auto b0 = static_cast<unsigned char>(s[0]);
  int length;
  unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
  if (b0 < 0x80) return 1;
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    length = 2;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    length = 3;
    if (b0 == 0xE0) lo = 0xA0;  // no overlong forms
    if (b0 == 0xED) hi = 0x9F;  // no surrogates
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    length = 4;
    if (b0 == 0xF0) lo = 0x90;  // no overlong forms
    if (b0 == 0xF4) hi = 0x8F;  // nothing above U+10FFFF
  } else {
    return -1;
  }
  for (int i = 1; i < length; ++i) {
    if (static_cast<std::size_t>(i) >= s.size()) return -i;
    const auto b = static_cast<unsigned char>(s[i]);
    const bool ok = i == 1 ? (b >= lo && b <= hi) : (b >= 0x80 && b <= 0xBF);
    if (!ok) return -i;
  }
  return length;
}

void AppendJsonValue(std::string& out, const Value& value);

void AppendJsonObject(std::string& out, const Dictionary& dictionary) {
  out += '{';
  bool first = true;
  for (const auto& [key, value] : dictionary) {
    if (!first) out += ", ";
    first = false;
    AppendJsonString(out, key);
    out += ": ";
    AppendJsonValue(out, value);
  }
  out += '}';
}

void AppendJsonValue(std::string& out, const Value& value) {
  switch (value.type()) {
    case Value::Type::String:
      AppendJsonString(out, *value.asString());
      break;
    case Value::Type::Number:
      AppendJsonNumber(out, *value.asNumber());
      break;
    case Value::Type::Array: {
      out += '[';
      bool first = true;
      for (const Value& element : *value.asArray()) {
        if (!first) out += ", ";
        first = false;
        AppendJsonValue(out, element);
      }
      out += ']';
      break;
    }
    case Value::Type::Dictionary:
      AppendJsonObject(out, *value.asDictionary());
      break;
  }
}

template <typename T>
void AppendInteger(std::string& out, T v) {
  char buf[24];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
  (void)ec;  // 24 bytes hold every 64-bit integer
  out.append(buf, end);
}

template <typename F>
void AppendFloat(std::string& out, F v) {
  if (!std::isfinite(v)) {
    out += "null";
    return;
  }
  char buf[64];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
  (void)ec;  // 64 bytes hold the shortest form of every double
  std::string_view text(buf, static_cast<std::size_t>(end - buf));
  out += text;
  // "3" would read back as an integer; "3.0" reads back as a float.
  if (text.find_first_of(".e") == std::string_view::npos) out += ".0";
}

}  // namespace

void AppendJsonString(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  out += '"';
  std::size_t i = 0;
  while (i < text.size()) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) {
      int length = Utf8SequenceLength(text.substr(i));
      if (length > 0) {
        out.append(text.substr(i, static_cast<std::size_t>(length)));
        i += static_cast<std::size_t>(length);
      } else {
        out += kReplacementCharacter;
        i += static_cast<std::size_t>(-length);
      }
      continue;
    }
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          out += "\\u00";
          out += kHex[c >> 4];
          out += kHex[c & 0xF];
        } else {
          out += static_cast<char>(c);
        }
    }
    ++i;
  }
  out += '"';
}

void AppendJsonNumber(std::string& out, const Number& number) {
  switch (number.kind()) {
    case Number::Kind::Signed: AppendInteger(out, number.int64Value()); break;
    case Number::Kind::Unsigned: AppendInteger(out, number.uint64Value()); break;
    case Number::Kind::Float32: AppendFloat(out, number.floatValue()); break;
    case Number::Kind::Float64: AppendFloat(out, number.doubleValue()); break;
    case Number::Kind::Boolean: out += number.boolValue() ? "true" : "false"; break;
  }
}

std::string EncodeDovetelEventLine(std::string_view name, const Dictionary& payload,
                                   int64_t sentMicroseconds) {
  std::string line;
  line.reserve(256);
  line += "{\"name\": ";
  AppendJsonString(line, name);
  line += ", \"payload\": ";
  AppendJsonObject(line, payload);
  line += ", \"sent\": ";
  AppendInteger(line, sentMicroseconds);
  line += "}\n";
  return line;
}

}  // namespace lumvane

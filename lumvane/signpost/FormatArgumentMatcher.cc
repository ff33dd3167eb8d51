#include "lumvane/signpost/FormatArgumentMatcher.h"

#include <cctype>
#include <charconv>
#include <cstring>

namespace lumvane {
namespace {

bool IsWordChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool IsNumericConversion(char c) { return std::strchr("diouxXfFeEgGaA", c) != nullptr; }

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

// Reads the printf conversion after "%" or after "%{...}": flags, width,
// precision, length modifier and the conversion letter. Returns the index
// after the letter, or npos when there is none.
size_t ParseConversion(std::string_view f, size_t i, char* conversion) {
  while (i < f.size() && std::strchr("-+ #0'", f[i])) ++i;
  while (i < f.size() && ((f[i] >= '0' && f[i] <= '9') || f[i] == '*')) ++i;
  if (i < f.size() && f[i] == '.') {
    ++i;
    while (i < f.size() && ((f[i] >= '0' && f[i] <= '9') || f[i] == '*')) ++i;
  }
  while (i < f.size() && std::strchr("hljztLq", f[i])) ++i;
  if (i >= f.size()) return std::string_view::npos;
  const char c = f[i];
  if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '@')) {
    return std::string_view::npos;
  }
  *conversion = c;
  return i + 1;
}

// Length of the text a numeric conversion produced at the start of `s`, for
// placeholders that are directly followed by another placeholder.
size_t NumberPrefixLength(std::string_view s, char conversion) {
  size_t i = 0;
  if (i < s.size() && (s[i] == '-' || s[i] == '+')) ++i;
  if (conversion == 'x' || conversion == 'X') {
    if (s.substr(i, 2) == "0x" || s.substr(i, 2) == "0X") i += 2;
    while (i < s.size() && std::isxdigit(static_cast<unsigned char>(s[i]))) ++i;
  } else if (std::strchr("diuo", conversion)) {
    while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i;
  } else {
    while (i < s.size() && ((s[i] >= '0' && s[i] <= '9') || s[i] == '.' || s[i] == 'e' ||
                            s[i] == 'E' || ((s[i] == '-' || s[i] == '+') && i > 0 &&
                                            (s[i - 1] == 'e' || s[i - 1] == 'E')))) {
      ++i;
    }
  }
  return i;
}

}  // namespace

std::optional<Number> FormatArgumentMatcher::parseNumber(std::string_view text, char conversion) {
  text = Trim(text);
  const bool negative = !text.empty() && text.front() == '-';
  std::string_view digits = text;
  if (!digits.empty() && (digits.front() == '+' || digits.front() == '-')) digits.remove_prefix(1);
  if (digits.empty()) return std::nullopt;
  const char* first = digits.data();
  const char* last = digits.data() + digits.size();

  if (conversion == 'x' || conversion == 'X' || conversion == 'o') {
    int base = 8;
    if (conversion != 'o') {
      base = 16;
      if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        first += 2;
      }
    }
    uint64_t u;
    const auto r = std::from_chars(first, last, u, base);
    if (r.ec != std::errc() || r.ptr != last || negative) return std::nullopt;
    return Number::fromUInt64(u);
  }

  bool allDigits = true;
  for (char c : digits) allDigits = allDigits && c >= '0' && c <= '9';
  if (allDigits) {
    if (negative) {
      int64_t v;
      const auto r = std::from_chars(text.data(), last, v);
      if (r.ec == std::errc() && r.ptr == last) return Number::fromInt64(v);
    } else {
      uint64_t v;
      const auto r = std::from_chars(first, last, v);
      if (r.ec == std::errc() && r.ptr == last) return Number::fromUInt64(v);
    }
    // Out of the 64-bit range: kept as a float below.
  }
  double d;
  const auto r = std::from_chars(first, last, d);
  if (r.ec != std::errc() || r.ptr != last) return std::nullopt;
  return Number::fromDouble(negative ? -d : d);
}

FormatArgumentMatcher::CompiledFormat FormatArgumentMatcher::compile(std::string_view f) {
  CompiledFormat c;
  std::string literal;
  size_t i = 0;
  while (i < f.size()) {
    if (f[i] != '%') {
      literal += f[i++];
      continue;
    }
    if (i + 1 < f.size() && f[i + 1] == '%') {
      literal += '%';
      i += 2;
      continue;
    }
    Placeholder p;
    std::string_view attrs;
    size_t j = i + 1;
    if (j < f.size() && f[j] == '{') {
      const size_t close = f.find('}', j + 1);
      if (close == std::string_view::npos) {
        literal += f[i++];
        continue;
      }
      attrs = f.substr(j + 1, close - j - 1);
      j = close + 1;
    }
    const size_t after = ParseConversion(f, j, &p.conversion);
    if (after == std::string_view::npos) {
      literal += f[i++];  // not a placeholder: the "%" stands for itself
      continue;
    }
    p.numeric = IsNumericConversion(p.conversion);
    while (!attrs.empty()) {
      const size_t comma = attrs.find(',');
      const std::string_view a = Trim(attrs.substr(0, comma));
      attrs = comma == std::string_view::npos ? std::string_view() : attrs.substr(comma + 1);
      if (a == "signpost.telemetry:string1") p.target = Target::String1;
      if (a == "signpost.telemetry:string2") p.target = Target::String2;
      if (a == "signpost.telemetry:number1") p.target = Target::Number1;
      if (a == "signpost.telemetry:number2") p.target = Target::Number2;
      if (a == "signpost.description:attribute") p.attribute = true;
    }
    if (!literal.empty() && literal.back() == '=') {
      size_t start = literal.size() - 1;
      while (start > 0 && IsWordChar(literal[start - 1])) --start;
      p.name = literal.substr(start, literal.size() - 1 - start);
    }
    if (!p.name.empty() && (p.target != Target::None || p.attribute)) c.fillsAnything = true;
    c.literals.push_back(std::move(literal));
    literal.clear();
    c.placeholders.push_back(std::move(p));
    i = after;
  }
  c.literals.push_back(std::move(literal));
  return c;
}

void FormatArgumentMatcher::assign(const Placeholder& p, std::string_view text,
                                   SignpostArguments* out) {
  if (p.name.empty()) return;
  if (p.attribute) {
    bool present = false;
    for (const auto& a : out->attributes) present = present || a.first == p.name;
    if (!present) out->attributes.emplace_back(p.name, std::string(text));
  }
  switch (p.target) {
    case Target::String1:
    case Target::String2: {
      auto& slot = p.target == Target::String1 ? out->string1 : out->string2;
      if (!slot) slot = SignpostArguments::StringSlot{p.name, std::string(text)};
      break;
    }
    case Target::Number1:
    case Target::Number2: {
      auto& slot = p.target == Target::Number1 ? out->number1 : out->number2;
      if (slot) break;
      if (const std::optional<Number> n = parseNumber(text, p.conversion)) {
        slot = SignpostArguments::NumberSlot{p.name, *n};
      }
      break;
    }
    case Target::None:
      break;
  }
}

void FormatArgumentMatcher::extract(std::string_view format, std::string_view message,
                                    SignpostArguments* out) {
  // Most format strings mark nothing; they are not worth a cache entry.
  if (format.find("signpost.") == std::string_view::npos) return;
  key_.assign(format.data(), format.size());
  auto it = cache_.find(key_);
  if (it == cache_.end()) {
    if (cache_.size() >= kMaxCachedFormats) cache_.clear();
    it = cache_.emplace(key_, compile(format)).first;
  }
  const CompiledFormat& c = it->second;
  if (!c.fillsAnything) return;

  if (message.substr(0, c.literals[0].size()) != c.literals[0]) return;
  size_t pos = c.literals[0].size();
  const size_t n = c.placeholders.size();
  for (size_t i = 0; i < n; ++i) {
    const Placeholder& p = c.placeholders[i];
    const std::string& next = c.literals[i + 1];
    size_t valueEnd;
    if (i + 1 == n) {
      // The last literal closes the message: match it at the very end, so
      // that the last value may contain the literal's text.
      if (message.size() < pos + next.size() ||
          message.substr(message.size() - next.size()) != next) {
        return;
      }
      valueEnd = message.size() - next.size();
    } else if (next.empty()) {
      valueEnd = pos + (p.numeric ? NumberPrefixLength(message.substr(pos), p.conversion) : 0);
    } else {
      valueEnd = message.find(next, pos);
      if (valueEnd == std::string_view::npos) return;
    }
    assign(p, message.substr(pos, valueEnd - pos), out);
    pos = valueEnd + next.size();
  }
}

}  // namespace lumvane

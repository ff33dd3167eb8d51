#include "lumvane/signpost/JournalEntryText.h"

#include <simdjson.h>

#include <cstdio>

namespace lumvane {
namespace {

// JSON string syntax for `s` (quotes included), escaping what JSON requires.
void AppendJsonQuoted(std::string* out, std::string_view s) {
  out->push_back('"');
  for (char c : s) {
    if (c == '"' || c == '\\') {
      out->push_back('\\');
      out->push_back(c);
    } else if (c == '\n') {
      out->append("\\n");
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", static_cast<unsigned>(c));
      out->append(buf);
    } else {
      out->push_back(c);
    }
  }
  out->push_back('"');
}

bool IsPrintableText(std::string_view v, bool allowNewline) {
  for (unsigned char c : v) {
    if (c == '\t' || (allowNewline && c == '\n')) continue;
    if (c < 0x20 || c == 0x7f) return false;
  }
  return simdjson::validate_utf8(v.data(), v.size());
}

void AppendJsonValue(std::string* out, std::string_view v) {
  if (v.size() > JournalEntryText::kJsonValueLimit) {
    out->append("null");
  } else if (IsPrintableText(v, true)) {
    AppendJsonQuoted(out, v);
  } else {
    out->push_back('[');
    for (size_t i = 0; i < v.size(); ++i) {
      if (i) out->push_back(',');
      out->append(std::to_string(static_cast<unsigned char>(v[i])));
    }
    out->push_back(']');
  }
}

}  // namespace

void JournalEntryText::add(std::string_view name, std::string_view value) {
  fields_.emplace_back(std::string(name), std::string(value));
}

void JournalEntryText::appendJson(std::string* out, uint64_t orderSeed) const {
  // Names in order of first appearance, each with the indexes of its values.
  std::vector<std::pair<std::string_view, std::vector<size_t>>> groups;
  for (size_t i = 0; i < fields_.size(); ++i) {
    auto it = groups.begin();
    while (it != groups.end() && it->first != fields_[i].first) ++it;
    if (it == groups.end()) {
      groups.push_back({fields_[i].first, {i}});
    } else {
      it->second.push_back(i);
    }
  }
  uint64_t s = orderSeed;
  for (size_t i = groups.size(); orderSeed != 0 && i > 1; --i) {
    // splitmix64 step; any fixed mixing serves, it only has to repeat.
    uint64_t z = (s += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    std::swap(groups[i - 1], groups[(z ^ (z >> 31)) % i]);
  }
  out->push_back('{');
  for (size_t g = 0; g < groups.size(); ++g) {
    if (g) out->push_back(',');
    AppendJsonQuoted(out, groups[g].first);
    out->push_back(':');
    const std::vector<size_t>& values = groups[g].second;
    if (values.size() == 1) {
      AppendJsonValue(out, fields_[values[0]].second);
      continue;
    }
    out->push_back('[');
    for (size_t k = 0; k < values.size(); ++k) {
      if (k) out->push_back(',');
      AppendJsonValue(out, fields_[values[k]].second);
    }
    out->push_back(']');
  }
  out->append("}\n");
}

void JournalEntryText::appendExport(std::string* out) const {
  for (const auto& [name, value] : fields_) {
    out->append(name);
    if (IsPrintableText(value, false)) {
      out->push_back('=');
      out->append(value);
      out->push_back('\n');
      continue;
    }
    out->push_back('\n');
    uint64_t n = value.size();
    for (int b = 0; b < 8; ++b, n >>= 8) out->push_back(static_cast<char>(n & 0xff));
    out->append(value);
    out->push_back('\n');
  }
  out->push_back('\n');
}

}  // namespace lumvane

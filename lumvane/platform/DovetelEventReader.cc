#include "lumvane/platform/DovetelEventReader.h"

#include <simdjson.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string_view>

namespace lumvane {
namespace {

namespace dom = simdjson::dom;

std::optional<Value> ToValue(dom::element element);

Dictionary ToDictionary(dom::object object) {
  Dictionary dictionary;
  for (dom::key_value_pair field : object) {
    dictionary.set(std::string_view(field.key), ToValue(field.value));
  }
  return dictionary;
}

std::optional<Value> ToValue(dom::element element) {
  switch (element.type()) {
    case dom::element_type::STRING: {
      std::string_view text;
      if (element.get(text) != simdjson::SUCCESS) break;
      return Value(std::string(text));
    }
    case dom::element_type::INT64: {
      int64_t v = 0;
      if (element.get(v) != simdjson::SUCCESS) break;
      return Value(v < 0 ? Number::fromInt64(v) : Number::fromUInt64(static_cast<uint64_t>(v)));
    }
    case dom::element_type::UINT64: {
      uint64_t v = 0;
      if (element.get(v) != simdjson::SUCCESS) break;
      return Value(Number::fromUInt64(v));
    }
    case dom::element_type::DOUBLE: {
      double v = 0;
      if (element.get(v) != simdjson::SUCCESS) break;
      return Value(Number::fromDouble(v));
    }
    case dom::element_type::BOOL: {
      bool v = false;
      if (element.get(v) != simdjson::SUCCESS) break;
      return Value(Number::fromBool(v));
    }
    case dom::element_type::ARRAY: {
      dom::array items;
      if (element.get(items) != simdjson::SUCCESS) break;
      Array array;
      for (dom::element item : items) {
        if (std::optional<Value> value = ToValue(item)) array.push_back(*std::move(value));
      }
      return Value(std::move(array));
    }
    case dom::element_type::OBJECT: {
      dom::object object;
      if (element.get(object) != simdjson::SUCCESS) break;
      return Value(ToDictionary(object));
    }
    case dom::element_type::NULL_VALUE:
      break;
  }
  return std::nullopt;
}

std::optional<DovetelEvent> ParseLine(dom::parser& parser, std::string_view line) {
  dom::element root;
  if (parser.parse(line.data(), line.size()).get(root) != simdjson::SUCCESS) return std::nullopt;
  std::string_view name;
  dom::object payload;
  if (root["name"].get(name) != simdjson::SUCCESS) return std::nullopt;
  if (root["payload"].get(payload) != simdjson::SUCCESS) return std::nullopt;
  return DovetelEvent{std::string(name), ToDictionary(payload)};
}

}  // namespace

DovetelEventFile ReadDovetelEvents(const std::string& path) {
  DovetelEventFile result;
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    result.error = Error::fromErrno("cannot open " + path, errno);
    return result;
  }
  std::ostringstream contents;
  contents << in.rdbuf();
  if (in.bad()) {
    result.error = Error::fromErrno("cannot read " + path, errno);
    return result;
  }
  const std::string text = contents.str();
  dom::parser parser;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) {
      ++result.skippedLines;  // torn by a crash in the middle of its write
      break;
    }
    std::string_view line(text.data() + start, end - start);
    start = end + 1;
    if (line.empty()) continue;
    if (std::optional<DovetelEvent> event = ParseLine(parser, line)) {
      result.events.push_back(*std::move(event));
    } else {
      ++result.skippedLines;
    }
  }
  return result;
}

}  // namespace lumvane

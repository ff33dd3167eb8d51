#include "lumvane/platform/JsonValue.h"

#include <simdjson.h>

namespace lumvane {
namespace {

std::optional<Value> convert(simdjson::dom::element element) {
  using simdjson::dom::element_type;
  switch (element.type()) {
    case element_type::OBJECT: {
      Dictionary dict;
      simdjson::dom::object object;
      if (element.get_object().get(object)) return std::nullopt;
      for (auto field : object) {
        dict.set(field.key, convert(field.value));
      }
      return Value(std::move(dict));
    }
    case element_type::ARRAY: {
      Array values;
      simdjson::dom::array elements;
      if (element.get_array().get(elements)) return std::nullopt;
      for (auto item : elements) {
        if (std::optional<Value> v = convert(item)) values.push_back(std::move(*v));
      }
      return Value(std::move(values));
    }
    case element_type::INT64: {
      int64_t v = element.get_int64().value_unsafe();
      return Value(v < 0 ? Number::fromInt64(v) : Number::fromUInt64(static_cast<uint64_t>(v)));
    }
    case element_type::UINT64:
      return Value(Number::fromUInt64(element.get_uint64().value_unsafe()));
    case element_type::DOUBLE:
      return Value(Number::fromDouble(element.get_double().value_unsafe()));
    case element_type::STRING:
      return Value(std::string(element.get_string().value_unsafe()));
    case element_type::BOOL:
      return Value(Number::fromBool(element.get_bool().value_unsafe()));
    case element_type::NULL_VALUE:
      break;
  }
  return std::nullopt;
}

}  // namespace

std::optional<Error> ParseJsonValue(std::string_view text, std::optional<Value>* out) {
  // A parser per call: configuration files are small and rarely read, and a
  // shared parser would need a lock.
  simdjson::dom::parser parser;
  simdjson::padded_string padded(text);
  simdjson::dom::element root;
  if (simdjson::error_code err = parser.parse(padded).get(root)) {
    return Error(simdjson::error_message(err));
  }
  *out = convert(root);
  return std::nullopt;
}

}  // namespace lumvane

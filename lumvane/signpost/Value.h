// The dynamic value of the signpost library and the telemetry service: a
// string, a Number, an array of values or a dictionary from string keys to
// values. Attributes of signpost intervals, telemetry payloads, tasking
// configurations and the rule tables of the name filter are all made of it,
// so that the same table can come from code or from a parsed JSON document.
//
// Values are immutable, copyable and comparable; a Dictionary is mutable until
// it is wrapped in a Value.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "lumvane/signpost/Number.h"

namespace lumvane {

class Value;
class Dictionary;
using Array = std::vector<Value>;

class Value final {
 public:
  enum class Type { String, Number, Array, Dictionary };

  Value(std::string s) : v_(std::move(s)) {}
  Value(const char* s) : v_(std::string(s)) {}
  Value(Number n) : v_(n) {}
  Value(Array a);
  Value(Dictionary d);

  Type type() const { return static_cast<Type>(v_.index()); }
  bool isString() const { return type() == Type::String; }
  bool isNumber() const { return type() == Type::Number; }
  bool isArray() const { return type() == Type::Array; }
  bool isDictionary() const { return type() == Type::Dictionary; }

  // Typed access; nullptr when the value is of another type.
  const std::string* asString() const { return std::get_if<std::string>(&v_); }
  const Number* asNumber() const { return std::get_if<Number>(&v_); }
  const Array* asArray() const;
  const Dictionary* asDictionary() const;

  // Text for log messages: a string as it is, a number by its description,
  // containers in a compact bracketed form.
  std::string description() const;

  bool operator==(const Value& other) const;
  bool operator!=(const Value& other) const { return !(*this == other); }

 private:
  // Containers are held through shared, immutable storage: copying a value
  // never copies its elements.
  std::variant<std::string, Number, std::shared_ptr<const Array>,
               std::shared_ptr<const Dictionary>>
      v_;
};

// A dictionary that keeps its keys in the order in which they were first set.
// Setting an existing key replaces its value in place. Setting an absent
// value (std::nullopt) leaves the key out and removes nothing: an absent value
// is never stored, so no key ever holds a null marker. Lookups are linear;
// the dictionaries of this system hold a few dozen keys at most.
class Dictionary final {
 public:
  using Entry = std::pair<std::string, Value>;

  Dictionary() = default;
  Dictionary(std::initializer_list<Entry> entries);

  void set(std::string_view key, Value value);
  void set(std::string_view key, const std::optional<Value>& value);
  void set(std::string_view key, const std::optional<std::string>& value);
  void set(std::string_view key, const std::optional<Number>& value);
  void set(std::string_view key, const char* value);
  void set(std::string_view key, std::string value);
  void set(std::string_view key, Number value);

  const Value* find(std::string_view key) const;
  bool contains(std::string_view key) const { return find(key) != nullptr; }
  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  std::vector<std::string> keys() const;

  std::vector<Entry>::const_iterator begin() const { return entries_.begin(); }
  std::vector<Entry>::const_iterator end() const { return entries_.end(); }

  bool operator==(const Dictionary& other) const { return entries_ == other.entries_; }
  bool operator!=(const Dictionary& other) const { return !(*this == other); }

 private:
  std::vector<Entry> entries_;
};

}  // namespace lumvane

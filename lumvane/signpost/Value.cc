#include "lumvane/signpost/Value.h"

namespace lumvane {

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
  for (const auto& e : entries) set(e.first, e.second);
}

void Dictionary::set(std::string_view key, Value value) {
  for (auto& e : entries_) {
    if (e.first == key) {
      e.second = std::move(value);
      return;
    }
  }
  entries_.emplace_back(std::string(key), std::move(value));
}

void Dictionary::set(std::string_view key, const std::optional<Value>& value) {
  if (value) set(key, *value);
}

void Dictionary::set(std::string_view key, const std::optional<std::string>& value) {
  if (value) set(key, Value(*value));
}

void Dictionary::set(std::string_view key, const std::optional<Number>& value) {
  if (value) set(key, Value(*value));
}

void Dictionary::set(std::string_view key, const char* value) {
  if (value) set(key, Value(std::string(value)));
}

void Dictionary::set(std::string_view key, std::string value) {
  set(key, Value(std::move(value)));
}

void Dictionary::set(std::string_view key, Number value) { set(key, Value(value)); }

const Value* Dictionary::find(std::string_view key) const {
  for (const auto& e : entries_) {
    if (e.first == key) return &e.second;
  }
  return nullptr;
}

std::vector<std::string> Dictionary::keys() const {
  std::vector<std::string> out;
  out.reserve(entries_.size());
  for (const auto& e : entries_) out.push_back(e.first);
  return out;
}

Value::Value(Array a) : v_(std::make_shared<const Array>(std::move(a))) {}
Value::Value(Dictionary d) : v_(std::make_shared<const Dictionary>(std::move(d))) {}

const Array* Value::asArray() const {
  auto* p = std::get_if<std::shared_ptr<const Array>>(&v_);
  return p ? p->get() : nullptr;
}

const Dictionary* Value::asDictionary() const {
  auto* p = std::get_if<std::shared_ptr<const Dictionary>>(&v_);
  return p ? p->get() : nullptr;
}

bool Value::operator==(const Value& other) const {
  if (v_.index() != other.v_.index()) return false;
  switch (type()) {
    case Type::String: return *asString() == *other.asString();
    case Type::Number: return *asNumber() == *other.asNumber();
    case Type::Array: return *asArray() == *other.asArray();
    case Type::Dictionary: return *asDictionary() == *other.asDictionary();
  }
  return false;
}

std::string Value::description() const {
  switch (type()) {
    case Type::String: return *asString();
    case Type::Number: return asNumber()->description();
    case Type::Array: {
      std::string out = "(";
      const char* sep = "";
      for (const auto& v : *asArray()) {
        out += sep;
        out += v.description();
        sep = ", ";
      }
      return out + ")";
    }
    case Type::Dictionary: {
      std::string out = "{";
      const char* sep = "";
      for (const auto& [k, v] : *asDictionary()) {
        out += sep;
        out += k + " = " + v.description();
        sep = "; ";
      }
      return out + "}";
    }
  }
  return {};
}

}  // namespace lumvane

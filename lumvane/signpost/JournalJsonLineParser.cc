#include "lumvane/signpost/JournalJsonLineParser.h"

#include <simdjson.h>

#include "lumvane/signpost/SignpostEntryBuilder.h"

namespace lumvane {
namespace {

namespace od = simdjson::ondemand;

// A value given as an array of byte numbers.
bool ReadBytes(od::array& array, std::string* out) {
  out->clear();
  for (auto item : array) {
    uint64_t byte = 0;
    if (item.get_uint64().get(byte) != simdjson::SUCCESS || byte > 255) return false;
    out->push_back(static_cast<char>(byte));
  }
  return true;
}

}  // namespace

struct JournalJsonLineParser::Impl {
  od::parser parser;
  std::string bytes;  // reused for byte-array values
};

JournalJsonLineParser::JournalJsonLineParser() : impl_(std::make_unique<Impl>()) {}
JournalJsonLineParser::~JournalJsonLineParser() = default;

bool JournalJsonLineParser::parse(std::string_view line, size_t padding,
                                  SignpostRecordBatch* batch) {
  if (line.empty() || line.front() != '{') return false;
  batch->startRecord();
  if (parseFields(line, padding, batch)) return true;
  batch->dropRecord();
  return false;
}

bool JournalJsonLineParser::parseFields(std::string_view line, size_t padding,
                                        SignpostRecordBatch* batch) {
  od::document doc;
  if (impl_->parser.iterate(line.data(), line.size(), line.size() + padding).get(doc) !=
      simdjson::SUCCESS) {
    return false;
  }
  od::object object;
  if (doc.get_object().get(object) != simdjson::SUCCESS) return false;

  for (auto item : object) {
    od::field field;
    if (std::move(item).get(field) != simdjson::SUCCESS) return false;
    // The raw key up to its closing quote, when it holds no escape.
    const char* const raw = field.key().raw();
    const char* q = raw;
    while (*q != '"' && *q != '\\') ++q;
    std::string_view key;
    if (*q == '"') {
      key = std::string_view(raw, static_cast<size_t>(q - raw));
    } else if (field.unescaped_key().get(key) != simdjson::SUCCESS) {
      return false;
    }

    // Values of fields nobody reads are skipped undecoded.
    const int index = SignpostEntryBuilder::fieldIndex(key);
    if (index < 0) continue;
    od::value& v = field.value();
    od::json_type type;
    if (v.type().get(type) != simdjson::SUCCESS) return false;
    std::string_view s;
    switch (type) {
      case od::json_type::null:
        break;
      case od::json_type::string:
        if (v.get_string().get(s) != simdjson::SUCCESS) return false;
        batch->addField(index, s);
        break;
      case od::json_type::array: {
        // Byte numbers (one value), or the values of a repeated field, each
        // text or byte numbers.
        od::array array;
        if (v.get_array().get(array) != simdjson::SUCCESS) return false;
        bool first = true;
        bool byteArray = false;
        impl_->bytes.clear();
        for (auto element : array) {
          od::json_type t;
          if (element.type().get(t) != simdjson::SUCCESS) return false;
          if (first) byteArray = t == od::json_type::number;
          first = false;
          if (byteArray) {
            uint64_t byte = 0;
            if (t != od::json_type::number || element.get_uint64().get(byte) != simdjson::SUCCESS ||
                byte > 255) {
              return false;
            }
            impl_->bytes.push_back(static_cast<char>(byte));
          } else if (t == od::json_type::string) {
            if (element.get_string().get(s) != simdjson::SUCCESS) return false;
            batch->addField(index, s);
          } else if (t == od::json_type::array) {
            od::array inner;
            std::string value;
            if (element.get_array().get(inner) != simdjson::SUCCESS || !ReadBytes(inner, &value)) {
              return false;
            }
            batch->addField(index, value);
          } else if (t != od::json_type::null) {
            return false;
          }
        }
        if (byteArray) batch->addField(index, impl_->bytes);
        break;
      }
      default:
        return false;
    }
  }
  // Trailing content after the object makes the line no object.
  return doc.current_location().error() == simdjson::OUT_OF_BOUNDS;
}

}  // namespace lumvane

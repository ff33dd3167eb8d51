#include "lumvane/signpost/SignpostRecordBatch.h"

#include <cstring>

namespace lumvane {
namespace {

void Release(std::string* s) {
  if (s->capacity() > SignpostRecordBatch::kRetainedBytes) {
    std::string().swap(*s);
  } else {
    s->clear();
  }
}

}  // namespace

SignpostRecordBatch::Record& SignpostRecordBatch::startRecord() {
  records_.emplace_back();
  Record& r = records_.back();
  r.firstField = fields_.size();
  r.firstByte = bytes_.size();
  r.firstItemByte = r.itemEnd = items_.size();
  return r;
}

void SignpostRecordBatch::addField(int index, std::string_view value) {
  fields_.push_back(Field{index, bytes_.size(), value.size()});
  bytes_.append(value.data(), value.size());
  ++records_.back().fieldCount;
}

void SignpostRecordBatch::addItem(std::string_view item) {
  const uint32_t size = static_cast<uint32_t>(item.size());
  char prefix[sizeof size];
  std::memcpy(prefix, &size, sizeof size);
  items_.append(prefix, sizeof size);
  items_.append(item.data(), item.size());
  records_.back().itemEnd = items_.size();
}

bool SignpostRecordBatch::nextItem(const Record& r, size_t* at, std::string_view* item) const {
  uint32_t size = 0;
  if (*at + sizeof size > r.itemEnd) return false;
  std::memcpy(&size, items_.data() + *at, sizeof size);
  *item = std::string_view(items_.data() + *at + sizeof size, size);
  *at += sizeof size + size;
  return true;
}

void SignpostRecordBatch::dropRecord() {
  const Record& r = records_.back();
  fields_.resize(r.firstField);
  bytes_.resize(r.firstByte);
  items_.resize(r.firstItemByte);
  records_.pop_back();
}

void SignpostRecordBatch::clear() {
  records_.clear();
  fields_.clear();
  Release(&bytes_);
  Release(&items_);
}

}  // namespace lumvane

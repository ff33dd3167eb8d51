#include "lumvane/signpost/SignpostRecordBatch.h"

namespace lumvane {

SignpostRecordBatch::Record& SignpostRecordBatch::startRecord() {
  records_.emplace_back();
  Record& r = records_.back();
  r.firstField = fields_.size();
  return r;
}

void SignpostRecordBatch::addField(int index, std::string_view value) {
  fields_.push_back(Field{index, bytes_.size(), value.size()});
  bytes_.append(value.data(), value.size());
  ++records_.back().fieldCount;
}

void SignpostRecordBatch::dropRecord() {
  const Record& r = records_.back();
  if (r.fieldCount) bytes_.resize(fields_[r.firstField].offset);
  fields_.resize(r.firstField);
  records_.pop_back();
}

void SignpostRecordBatch::clear() {
  records_.clear();
  fields_.clear();
  if (bytes_.capacity() > kRetainedBytes) {
    std::string().swap(bytes_);
  } else {
    bytes_.clear();
  }
}

}  // namespace lumvane

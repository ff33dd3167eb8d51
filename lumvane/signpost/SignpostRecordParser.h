// Parses one record of the signpost log store (a JSON object) and classifies
// it against the window being read. The checks that let most records go
// cheaply come first: the timestamp against the window and the event type are
// read as soon as they appear, and parsing stops once the record is known not
// to be a signpost inside the window. Records are therefore validated only as
// far as their use requires.
//
// Not thread-safe; one parser per reading thread.
#pragma once

#include <memory>
#include <string_view>

#include "lumvane/platform/Date.h"
#include "lumvane/signpost/SignpostRecord.h"

namespace lumvane {

class SignpostRecordParser final {
 public:
  enum class Kind {
    NotObject,      // not JSON, or JSON that is not an object (text lines)
    Trailer,        // the exporter's closing {"count":N,"finished":1}
    BadTimestamp,   // no timestamp, or one that cannot be read
    OutsideWindow,  // before the start or after the end
    Other,          // inside the window, not a signpost
    BadSignpost,    // a signpost inside the window missing a field it needs
    Signpost,       // a signpost inside the window, fields in the record
  };

  SignpostRecordParser();
  ~SignpostRecordParser();
  SignpostRecordParser(const SignpostRecordParser&) = delete;
  SignpostRecordParser& operator=(const SignpostRecordParser&) = delete;

  // `record` must be followed by `padding` readable bytes (at least 64).
  // On Signpost, *out holds the record's fields until the next call.
  Kind parse(std::string_view record, size_t padding, Date start, Date end, SignpostRecord* out);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace lumvane

// The error value that platform calls hand back instead of throwing: a
// readable description, as a log line or a command's message would show it.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace lumvane {

class Error final {
 public:
  explicit Error(std::string description) : description_(std::move(description)) {}

  // "<what>: <strerror(err)>", e.g. "cannot open /x: No such file or directory".
  static Error fromErrno(std::string_view what, int err);

  const std::string& localizedDescription() const { return description_; }
  const std::string& description() const { return description_; }

 private:
  std::string description_;
};

}  // namespace lumvane

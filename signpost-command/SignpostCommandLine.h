// The command line of lumvane-signpost, turned into one signpost to send.
//
// lumvane-signpost begin|end|event --subsystem S --category C [options]
// Each call is its own process, so a begin and an end can pair only in
// system scope or on behalf of one long-lived process (--pid); a begin or
// end in process scope without --pid could never pair and is refused, and so
// is thread scope.
#pragma once

#include <lumvane/signpost.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumvane {

class SignpostCommandLine final {
 public:
  // Parses argv (argv[0] is the program). On bad usage, `error()` says why.
  static SignpostCommandLine Parse(int argc, char* const argv[]);

  bool helpRequested() const { return help_; }
  const std::string& error() const { return error_; }
  bool ok() const { return error_.empty(); }

  lumvane_signpost_type type() const { return type_; }
  // Absent when none was given: a begin or event then takes a fresh one.
  std::optional<std::uint64_t> id() const { return id_; }
  pid_t objectPid() const { return objectPid_; }

  // The signpost and its arguments, pointing into this object: valid while
  // it lives and is not moved. `objectExe`/`objectComm` fill OBJECT_EXE and
  // OBJECT_COMM when non-empty.
  lumvane_signpost signpost() const;
  lumvane_signpost_args args(const std::string& objectExe, const std::string& objectComm) const;

  static const char* Usage();

 private:
  bool help_ = false;
  std::string error_;
  lumvane_signpost_type type_ = LUMVANE_SIGNPOST_EVENT;
  lumvane_signpost_scope scope_ = LUMVANE_SIGNPOST_SCOPE_PROCESS;
  unsigned flags_ = 0;
  std::string subsystem_, category_, name_, message_;
  bool hasMessage_ = false;
  std::optional<std::uint64_t> id_;
  pid_t objectPid_ = 0;
  std::optional<std::pair<std::string, std::string>> strings_[2];
  std::optional<std::pair<std::string, std::string>> numberTexts_[2];
  lumvane_signpost_number numbers_[2] = {};  // values only; names set by args()
  std::vector<std::pair<std::string, std::string>> attributeTexts_;
  mutable std::vector<lumvane_signpost_attribute> attributes_;
};

// Reads a number argument as readers of signposts do: an optional '-' and
// digits that fit int64 (or, without the sign, uint64) is an integer; else a
// number in JSON's grammar is a double; anything else is absent.
std::optional<lumvane_signpost_number> ParseSignpostNumber(const std::string& text);

}  // namespace lumvane

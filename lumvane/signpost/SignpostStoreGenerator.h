// Writes a synthetic signpost log store: JSON lines covering the day before
// an end time, deterministic for a seed. It mixes intervals, animation
// intervals with their frame events, single events, telemetry arguments
// (strings inside and outside the Cirros whitelist, private-looking ones,
// numbers of both signs), ordinary log lines, a few malformed lines, an
// exporter's text preamble and its trailer object. Used by the
// generate_signpost_store tool, the sample store and the reader benchmark.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "lumvane/platform/Date.h"
#include "lumvane/platform/Error.h"

namespace lumvane {

struct SignpostStoreGeneratorOptions {
  uint64_t seed = 1;
  uint64_t records = 10000;  // records between the preamble and the trailer
  Date end{};                // the store covers [end - 86400 s, end]
  int offsetMinutes = 0;     // local-time offset written in the timestamps
  // false: no signpost enables telemetry, so nothing would be reported.
  bool accept = true;
};

class SignpostStoreGenerator final {
 public:
  explicit SignpostStoreGenerator(SignpostStoreGeneratorOptions options);

  // Writes the store to `path` ("-" for standard output).
  [[nodiscard]] std::optional<Error> writeTo(const std::string& path);

  uint64_t bytesWritten() const { return bytes_; }

 private:
  SignpostStoreGeneratorOptions options_;
  uint64_t bytes_ = 0;
};

}  // namespace lumvane

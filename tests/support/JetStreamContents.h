// Reads every message of the LUMVANE stream back, in stream order, so a test can check "exactly these events, each
// once" without a collector.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fleet/ConnectionSettings.h"
#include "lumvane/platform/Error.h"

namespace lumvane::testing {

struct StoredMessage {
  std::string subject, data;
  std::string msgId;  // the Nats-Msg-Id header, "" when absent
};

// With `minimum`, messages are read only once the stream holds that many; before, `out` is left empty (a cheap way
// to wait).
[[nodiscard]] std::optional<Error> ReadLumvaneStream(const fleet::ConnectionSettings& settings,
                                                     std::vector<StoredMessage>* out, uint64_t minimum = 0);

}  // namespace lumvane::testing

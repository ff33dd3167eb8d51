// The LUMVANE stream: every lumvane event of the fleet, on subjects
// "lumvane.>", in file storage. With `create` it is added (or an existing
// stream of that name with the same subjects is accepted); without, it must
// exist. Errors name the server and say what to do.
#pragma once

#include <optional>
#include <string>

#include "fleet/ConnectionSettings.h"
#include "fleet/NatsHandles.h"
#include "lumvane/platform/Error.h"

namespace lumvane::fleet {

[[nodiscard]] std::optional<Error> EnsureLumvaneStream(jsCtx* js, const StreamSettings& settings,
                                                       const std::string& server);

}  // namespace lumvane::fleet

// Sends the payload of one accepted signpost object, twice: as
// "com.orvel.performance.signpost" and under the object's own event name.
// Each send is preceded by a throttle step on the calling thread (which may
// sleep) and is queued on the reporting queue without waiting, so the two
// events of an object go out in order, after those of earlier objects.
#pragma once

#include <memory>
#include <string>

#include "lumvane/platform/WorkQueue.h"
#include "lumvane/signpost/SignpostObject.h"
#include "lumvane/signpost/Value.h"
#include "lumvane/telemetry/ReportThrottle.h"

namespace lumvane {

// "sp__<subsystem>__<category>__<name>", the parts unchanged. A part the
// object lacks is written as "Unknown".
std::string perObjectEventName(const SignpostObject& object);

// The queued sends hold the object and the payload until they have run; the
// payload is shared by both and must not change afterwards.
void reportSignpostPayload(std::shared_ptr<const SignpostObject> object,
                           std::shared_ptr<const Dictionary> payload);

// The same with the throttle and queue given (for tests); both must outlive
// the queued sends.
void reportSignpostPayload(std::shared_ptr<const SignpostObject> object,
                           std::shared_ptr<const Dictionary> payload, ReportThrottle& throttle,
                           WorkQueue& queue);

}  // namespace lumvane

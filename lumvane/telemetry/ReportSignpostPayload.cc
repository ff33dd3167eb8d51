#include "lumvane/telemetry/ReportSignpostPayload.h"

#include <utility>

#include "lumvane/platform/DovetelEventSink.h"
#include "lumvane/telemetry/ReportingQueue.h"

namespace lumvane {

std::string perObjectEventName(const SignpostObject& object) {
  constexpr const char* kUnknown = "Unknown";
  std::string name = "sp__";
  name += object.subsystem().value_or(kUnknown);
  name += "__";
  name += object.category().value_or(kUnknown);
  name += "__";
  name += object.name().value_or(kUnknown);
  return name;
}

void reportSignpostPayload(std::shared_ptr<const SignpostObject> object,
                           std::shared_ptr<const Dictionary> payload) {
  reportSignpostPayload(std::move(object), std::move(payload), ReportThrottle::shared(),
                        reportingQueue());
}

void reportSignpostPayload(std::shared_ptr<const SignpostObject> object,
                           std::shared_ptr<const Dictionary> payload, ReportThrottle& throttle,
                           WorkQueue& queue) {
  throttle.throttleReportedEvent();
  queue.async([payload] { DovetelSendEvent("com.orvel.performance.signpost", *payload); });
  throttle.throttleReportedEvent();
  // The name is formed when the send runs, from the object it holds.
  queue.async([object = std::move(object), payload = std::move(payload)] {
    DovetelSendEvent(perObjectEventName(*object), *payload);
  });
}

}  // namespace lumvane

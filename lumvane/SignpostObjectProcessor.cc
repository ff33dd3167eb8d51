#include "lumvane/SignpostObjectProcessor.h"

#include "lumvane/filter/LVLog.h"
#include "lumvane/telemetry/ReportSignpostPayload.h"

namespace lumvane {

SignpostObjectProcessor::SignpostObjectProcessor(std::shared_ptr<LumvaneObjectFilter> objectFilter,
                                                 std::optional<std::string> bootFilesystemType,
                                                 std::string bootDiskType,
                                                 ReportThrottle& throttle, WorkQueue& queue)
    : objectFilter_(std::move(objectFilter)),
      bootFilesystemType_(std::move(bootFilesystemType)),
      bootDiskType_(std::move(bootDiskType)),
      throttle_(throttle),
      queue_(queue) {}

bool SignpostObjectProcessor::processSignpostObject(
    const std::shared_ptr<const SignpostObject>& object) {
  // The filter counts the object in its statistics whatever its verdict.
  if (!objectFilter_->shouldReportSignpostObject(*object, nullptr)) return true;
  std::optional<Dictionary> payload = object->dovetelPayload();
  if (!payload) {
    LVLogDebug("Failed to create payload for %@/%@%@", object->subsystem(), object->category(),
               object->name());
    return true;
  }
  payload->set("BootPartitionFS", bootFilesystemType_);
  payload->set("BootDiskType", bootDiskType_);
  // From here on both queued sends only read the payload.
  reportSignpostPayload(object, std::make_shared<const Dictionary>(std::move(*payload)), throttle_,
                        queue_);
  return true;
}

}  // namespace lumvane

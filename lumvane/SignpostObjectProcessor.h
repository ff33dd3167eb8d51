// The per-object handler of a reporting run: asks the object filter about
// each delivered object and, for an accepted one, builds its payload, adds
// the boot partition's filesystem type and disk type, and hands it to the
// sender. Lives for one run; called from the extractor's callbacks, one
// object at a time.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "lumvane/filter/LumvaneObjectFilter.h"
#include "lumvane/platform/WorkQueue.h"
#include "lumvane/signpost/SignpostObject.h"
#include "lumvane/telemetry/ReportThrottle.h"

namespace lumvane {

class SignpostObjectProcessor final {
 public:
  // `throttle` and `queue` must outlive the processor and every send it
  // queues.
  SignpostObjectProcessor(std::shared_ptr<LumvaneObjectFilter> objectFilter,
                          std::optional<std::string> bootFilesystemType,
                          std::string bootDiskType, ReportThrottle& throttle, WorkQueue& queue);

  // Always true: the extractor goes on whatever became of the object.
  bool processSignpostObject(const std::shared_ptr<const SignpostObject>& object);

 private:
  const std::shared_ptr<LumvaneObjectFilter> objectFilter_;
  const std::optional<std::string> bootFilesystemType_;
  const std::string bootDiskType_;
  ReportThrottle& throttle_;
  WorkQueue& queue_;
};

}  // namespace lumvane

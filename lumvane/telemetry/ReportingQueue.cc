#include "lumvane/telemetry/ReportingQueue.h"

#include "lumvane/platform/NoDestructor.h"

namespace lumvane {

WorkQueue& reportingQueue() {
  static NoDestructor<std::shared_ptr<WorkQueue>> queue(
      NewSerialWorkQueue("lumvane Dovetel reporting queue"));
  return **queue;
}

}  // namespace lumvane

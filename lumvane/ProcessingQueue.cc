#include "lumvane/ProcessingQueue.h"

#include "lumvane/platform/NoDestructor.h"

namespace lumvane {

WorkQueue& processingQueue() {
  static NoDestructor<std::shared_ptr<WorkQueue>> queue(
      NewSerialWorkQueue("lumvane processing queue"));
  return **queue;
}

}  // namespace lumvane

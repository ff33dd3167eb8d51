#include "lumvane/SubsystemCategoryFilter/LVDownsampleEntry.h"

#include "lumvane/filter/LVLog.h"

namespace lumvane {

std::shared_ptr<LVDownsampleEntry> LVDownsampleEntry::initWithCap(uint64_t cap,
                                                                  uint64_t downsampleRatio) {
  // Refusing a zero ratio here is what keeps shouldReportThisTime() from
  // ever dividing by zero.
  if (downsampleRatio == 0) {
    LVLogDebug("Tried to create a downsample entry with 0 downsample ratio");
    return nullptr;
  }
  return std::make_shared<LVDownsampleEntry>(PassKey(), cap, downsampleRatio);
}

bool LVDownsampleEntry::shouldReportThisTime() {
  // Every call is counted first, whatever the answer, so that the running
  // number keeps advancing after the cap has been reached.
  setEventsSeen(eventsSeen() + 1);
  if (eventsReported() >= cap()) return false;
  if (eventsSeen() % downsampleRatio() != 0) return false;
  setEventsReported(eventsReported() + 1);
  return true;
}

}  // namespace lumvane

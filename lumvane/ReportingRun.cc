#include "lumvane/ReportingRun.h"

namespace lumvane {

// The reporting run's entry point. It is empty for now: the run itself (gate,
// guard file, extraction, deferral poll, end-of-run report) is not built yet.
void performReportingRun(const std::shared_ptr<Activity>&) {}

}  // namespace lumvane

// The built-in subsystem/category/name filters, compiled in for platform 1
// (Ardenos) and platform 2 (Belvos). Each platform's rule table and the
// filter built from it come into being on the first request and live until
// the process ends; every request for the same platform gets the same filter,
// so all its holders share its counters (the caps and every-n-th counts run
// over the whole life of the process, not per holder or per run).
//
// Thread-safety: the first request builds under a once-only guard; concurrent
// first requests wait for it and get the same filter. The filter's own rule
// still holds: its shouldReportObject() calls are serialised across holders.
#pragma once

#include <memory>

#include "lumvane/SubsystemCategoryFilter/LVSubsystemCategoryNameFilter.h"
#include "lumvane/filter/LVPlatform.h"

namespace lumvane {

// The platform's shared filter for LVPlatformArdenos and LVPlatformBelvos;
// null for every other value.
std::shared_ptr<LVSubsystemCategoryNameFilter> LVBuiltInFilterForPlatform(LVPlatform platform);

}  // namespace lumvane

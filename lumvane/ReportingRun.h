// The reporting run: one pass over the last day of the signpost log, from the
// tasking gate to the end-of-run report. The activity handler calls it on the
// scheduler's thread when the activity is due and not deferred; it returns
// when the run is over, after the report has been sent and the guard file
// removed.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "lumvane/CookieFile.h"
#include "lumvane/platform/ActivityScheduler.h"
#include "lumvane/platform/ContinuousClock.h"
#include "lumvane/platform/Date.h"
#include "lumvane/platform/RepeatingTimer.h"
#include "lumvane/platform/WorkQueue.h"
#include "lumvane/signpost/VantrelObjectExtractor.h"
#include "lumvane/telemetry/ReportThrottle.h"
#include "lumvane/telemetry/RunStatistics.h"

namespace lumvane {

// How a run ended; the `lumvane run` command turns it into its exit status.
enum class ReportingRunOutcome {
  NotTasked,             // the tasking gate said no
  BailedOnGuardFile,     // an earlier run never finished; its guard file was cleared
  GuardFileNotCreated,   // the guard file could not be created
  Processed,             // the log was processed (to the end, or until deferral)
  ProcessingFailed,      // the extractor failed (unreadable store, say)
};

// What a run uses of the machine. Every reference must outlive the run.
struct ReportingRunEnvironment {
  ActivityScheduler& scheduler;
  ExtractorFactory makeExtractor;
  TimerFactory& timers;
  ContinuousClock& clock;
  ReportThrottle& throttle;
  WorkQueue& reportQueue;
  CookieFile& cookieFile;
  std::function<bool()> shouldReportTelemetry;
  std::function<std::optional<std::string>()> bootFilesystemType;
  std::function<Date()> now;
  std::function<void(const RunStatisticsInput&)> reportRunStatistics;
};

// The machine's environment: the log-store extractor, real timers, the
// boot-time clock, the shared throttle, the reporting queue, the guard file
// at its fixed path, the tasking gate, the boot filesystem probe, the wall
// clock and the process-wide report.
ReportingRunEnvironment DefaultReportingRunEnvironment(ActivityScheduler& scheduler);

// Performs the run for `activity`. When the extractor fails, its error (if it
// gave one) is also put into *processingError for a caller that reports it.
ReportingRunOutcome performReportingRun(const std::shared_ptr<Activity>& activity,
                                        const ReportingRunEnvironment& environment,
                                        std::optional<Error>* processingError = nullptr);

}  // namespace lumvane

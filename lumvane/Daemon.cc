#include "lumvane/Daemon.h"

#include <signal.h>
#include <unistd.h>

#include "lumvane/ActivityHandler.h"
#include "lumvane/ProcessingQueue.h"
#include "lumvane/ReportingRun.h"
#include "lumvane/platform/NoDestructor.h"
#include "lumvane/platform/SignalSource.h"
#include "lumvane/telemetry/ReportingQueue.h"

namespace lumvane {
namespace {

// The interrupt source lives as long as the process.
std::unique_ptr<SignalSource>& interruptSource() {
  static NoDestructor<std::unique_ptr<SignalSource>> source;
  return *source;
}

}  // namespace

std::optional<Error> startDaemon(ActivityScheduler& scheduler) {
  processingQueue();
  reportingQueue();

  // An interrupt ends the process at once, leaving everything as it is: a
  // run cut short leaves its guard file behind on purpose.
  std::optional<Error> error;
  interruptSource() = NewSignalSource(SIGINT, processingQueue(), [] { ::_exit(0); }, &error);
  if (!interruptSource()) return error;

  scheduler.registerActivity(kLumvaneActivityIdentifier, ActivityCriteria::CheckIn,
                             [&scheduler](std::shared_ptr<Activity> activity) {
                               handleActivity(scheduler, std::move(activity),
                                              [&scheduler](const std::shared_ptr<Activity>& a) {
                                                performReportingRun(
                                                    a, DefaultReportingRunEnvironment(scheduler));
                                              });
                             });
  interruptSource()->resume();
  return std::nullopt;
}

}  // namespace lumvane

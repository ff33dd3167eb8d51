#include "lumvane/ReportingRun.h"

#include <atomic>

#include "lumvane/platform/NoDestructor.h"

#include "lumvane/BootFilesystemProbe.h"
#include "lumvane/SignpostObjectProcessor.h"
#include "lumvane/filter/LVLog.h"
#include "lumvane/filter/LumvaneObjectFilter.h"
#include "lumvane/signpost/LogStoreExtractor.h"
#include "lumvane/telemetry/ReportingQueue.h"
#include "lumvane/telemetry/TaskingGate.h"

namespace lumvane {
namespace {

constexpr double kWindowSeconds = 86400.0;
constexpr const char* kBootDiskType = "SSD";
constexpr std::chrono::nanoseconds kDeferPollPeriod{10'000'000'000};
constexpr std::chrono::nanoseconds kDeferPollLeeway{10'000'000'000};

// The deferral poll: while the scheduler asks to defer, every poll asks the
// extractor (if it still exists) to stop and marks the run as interrupted.
// It holds the extractor only weakly, so it never keeps it alive.
std::function<void()> makeDeferralPoll(ActivityScheduler& scheduler,
                                       std::shared_ptr<Activity> activity,
                                       std::weak_ptr<VantrelObjectExtractor> extractor,
                                       std::shared_ptr<std::atomic<bool>> wasInterrupted) {
  return [&scheduler, activity = std::move(activity), extractor = std::move(extractor),
          wasInterrupted = std::move(wasInterrupted)] {
    if (scheduler.shouldDefer(*activity)) {
      LVLogDebug("Trying to stop in-flight reporting work.");
      if (auto strong = extractor.lock()) strong->stopProcessing();
      wasInterrupted->store(true);
      LVLogDebug("Concluding processing due to deferral request");
    } else {
      LVLogDebug("Deferral not requested, continuing.");
    }
  };
}

}  // namespace

ReportingRunEnvironment DefaultReportingRunEnvironment(ActivityScheduler& scheduler) {
  static NoDestructor<CookieFile> cookieFile;
  return ReportingRunEnvironment{
      scheduler,
      LogStoreExtractorFactory(),
      DefaultTimerFactory(),
      DefaultContinuousClock(),
      ReportThrottle::shared(),
      reportingQueue(),
      *cookieFile,
      [] { return shouldReportTelemetry(); },
      [] { return bootFilesystemType(); },
      DateNow,
      [](const RunStatisticsInput& input) { reportRunStatistics(input); },
  };
}

ReportingRunOutcome performReportingRun(const std::shared_ptr<Activity>& activity,
                                        const ReportingRunEnvironment& env,
                                        std::optional<Error>* processingError) {
  if (!env.shouldReportTelemetry()) return ReportingRunOutcome::NotTasked;

  if (env.cookieFile.cookieFileExists()) {
    LVLogDebug("Bailing due to cookie file");
    env.cookieFile.clearCookieFile();
    return ReportingRunOutcome::BailedOnGuardFile;
  }
  if (!env.cookieFile.createCookieFile()) return ReportingRunOutcome::GuardFileNotCreated;

  const uint64_t runStart = env.clock.now();
  std::shared_ptr<VantrelObjectExtractor> extractor = env.makeExtractor();
  std::shared_ptr<LumvaneObjectFilter> objectFilter = LumvaneObjectFilter::init();
  std::optional<std::string> bootFilesystemType = env.bootFilesystemType();

  auto processor = std::make_shared<SignpostObjectProcessor>(
      objectFilter, std::move(bootFilesystemType), kBootDiskType, env.throttle, env.reportQueue);
  LVLogDebug("Boot disk type: %@", kBootDiskType);

  // Each callback holds the processor; all three hand their object to it.
  extractor->setIntervalCompletionProcessingBlock(
      [processor](std::shared_ptr<const SignpostInterval> o) {
        return processor->processSignpostObject(o);
      });
  extractor->setAnimationIntervalCompletionProcessingBlock(
      [processor](std::shared_ptr<const SignpostAnimationInterval> o) {
        return processor->processSignpostObject(o);
      });
  extractor->setEmitEventProcessingBlock([processor](std::shared_ptr<const SignpostEvent> o) {
    return processor->processSignpostObject(o);
  });
  extractor->setBuildAnimationCompositeIntervalTimelines(false);

  auto wasInterrupted = std::make_shared<std::atomic<bool>>(false);
  const Date now = env.now();
  const Date startDate = DateByAddingSeconds(now, -kWindowSeconds);
  const Date endDate = env.now();

  std::shared_ptr<WorkQueue> pollQueue = NewSerialWorkQueue("lumvane defer polling queue");
  std::unique_ptr<RepeatingTimer> pollTimer = env.timers.makeRepeatingTimer(
      pollQueue, makeDeferralPoll(env.scheduler, activity, extractor, wasInterrupted));
  pollTimer->setSchedule(std::chrono::nanoseconds(0), kDeferPollPeriod, kDeferPollLeeway);
  pollTimer->start();

  std::optional<Error> error;
  const bool processed =
      extractor->processLogArchiveWithPath(std::nullopt, startDate, endDate, &error);

  pollTimer->cancel();
  // A poll already under way when the timer was cancelled finishes first:
  // nothing of this run is touched by the poll after this point.
  pollQueue->sync([] {});

  if (!processed) {
    LVLogDebug("Failed to process signpost data due to error: %@",
               error ? std::optional<std::string>(error->localizedDescription()) : std::nullopt);
    if (processingError) *processingError = error;
  }

  RunStatisticsInput input{objectFilter, runStart, extractor, startDate, endDate, wasInterrupted};
  // Every send of this run was queued before the report, and the queue is
  // serial: the report runs after all of them.
  env.reportQueue.sync([&] { env.reportRunStatistics(input); });

  env.cookieFile.clearCookieFile();
  return processed ? ReportingRunOutcome::Processed : ReportingRunOutcome::ProcessingFailed;
}

}  // namespace lumvane

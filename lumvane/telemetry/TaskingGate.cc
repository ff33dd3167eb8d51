#include "lumvane/telemetry/TaskingGate.h"

#include <atomic>
#include <optional>
#include <string>

#include "lumvane/filter/LVLog.h"
#include "lumvane/platform/CountingSemaphore.h"
#include "lumvane/platform/InternalDiagnostics.h"
#include "lumvane/platform/WorkQueue.h"
#include "lumvane/telemetry/LumvaneConfigObserverDelegate.h"

namespace lumvane {
namespace {

// The configuration test: the first rule that applies decides.
bool isTaskedOnConfiguration(const std::optional<Value>& configuration, const std::string& type) {
  if (type != kTaskingConfigurationType) {
    LVLogDebug("Not reporting based on not being tasked-on by Dovetel (unexpected type string: '%@')",
               type);
    return false;
  }
  if (!configuration) {
    LVLogDebug("Not reporting based on not being tasked-on by Dovetel (nil configuration object)");
    return false;
  }
  const Dictionary* dict = configuration->asDictionary();
  if (!dict) {
    LVLogDebug(
        "Not reporting based on not being tasked-on by Dovetel (Non-dictionary configuration "
        "object)");
    return false;
  }
  const Value* value = dict->find(kTaskedOnKey);
  if (!value) {
    LVLogDebug("Not reporting since is not tasked-on by Dovetel (nil value for %@ key)",
               kTaskedOnKey);
    return false;
  }
  const Number* number = value->asNumber();
  if (!number) {
    LVLogDebug("Not reporting since not tasked-on by Dovetel (Wrong value class for class for %@)",
               kTaskedOnKey);
    return false;
  }
  if (number->boolValue()) {
    LVLogDebug("Reporting based on being tasked-on by Dovetel");
    return true;
  }
  LVLogDebug("Not reporting based on not being tasked-on by Dovetel ('%@' is false)",
             kTaskedOnKey);
  return false;
}

}  // namespace

bool shouldReportTelemetry() { return shouldReportTelemetry(TaskingGateOptions()); }

bool shouldReportTelemetry(const TaskingGateOptions& options) {
  if (LVHasInternalDiagnostics("com.orvel.signpost")) {
    LVLogDebug("Reporting based on internal-diagnostics variant result");
    return true;
  }
  return isTaskedOnByDovetel(options);
}

bool isTaskedOnByDovetel() { return isTaskedOnByDovetel(TaskingGateOptions()); }

bool isTaskedOnByDovetel(const TaskingGateOptions& options) {
  std::shared_ptr<WorkQueue> queue = NewSerialWorkQueue("lumvane configuration observing queue");
  // Shared with the delegate, which may outlive this call: a late delivery
  // writes the verdict and raises a signal that nobody waits for.
  auto signal = std::make_shared<CountingSemaphore>(0);
  auto tasked = std::make_shared<std::atomic<bool>>(false);

  std::shared_ptr<DovetelConfigurationObserver> observer = options.makeObserver();
  std::shared_ptr<LumvaneConfigObserverDelegate> delegate =
      LumvaneConfigObserverDelegate::initWithCallbackBlock(
          [signal, tasked](const std::optional<Value>& configuration, const std::string& type) {
            tasked->store(isTaskedOnConfiguration(configuration, type));
            signal->signal();
          });
  observer->setConfigurationObserverDelegate(delegate, queue);
  observer->startObservingConfigurationType(kTaskingConfigurationType);

  if (!signal->waitFor(options.timeout)) {
    LVLogDebug(
        "Not reporting based on not being tasked-on by Dovetel (Timeout waiting for config)");
    return false;
  }
  // The semaphore orders the delivery's write before this read; with several
  // deliveries made by now, the last one written wins.
  return tasked->load();
}

}  // namespace lumvane

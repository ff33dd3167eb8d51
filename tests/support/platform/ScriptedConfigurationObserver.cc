#include "tests/support/platform/ScriptedConfigurationObserver.h"

#include <utility>

namespace lumvane {

ScriptedConfigurationObserver::ScriptedConfigurationObserver(std::vector<Delivery> onStart,
                                                             bool settleBeforeReturning)
    : onStart_(std::move(onStart)), settleBeforeReturning_(settleBeforeReturning) {}

void ScriptedConfigurationObserver::startObservingConfigurationType(const std::string& type) {
  {
    std::lock_guard<std::mutex> lock(mu_);
    observedTypes_.push_back(type);
  }
  for (const Delivery& d : onStart_) deliver(d.configuration, d.type);
  if (settleBeforeReturning_) settle();
}

void ScriptedConfigurationObserver::deliverNow(const std::optional<Value>& configuration,
                                               const std::string& type) {
  deliver(configuration, type);
}

void ScriptedConfigurationObserver::settle() {
  if (std::shared_ptr<WorkQueue> queue = deliveryQueue()) queue->sync([] {});
}

std::vector<std::string> ScriptedConfigurationObserver::observedTypes() const {
  std::lock_guard<std::mutex> lock(mu_);
  return observedTypes_;
}

}  // namespace lumvane

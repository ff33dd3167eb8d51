// Test double for the telemetry service's configuration observer: delivers
// what a test asks, when it asks. Deliveries scripted at construction go out
// when observation starts (none, one or several, in order); deliverNow()
// sends more at any later time, after a waiting caller has given up, say.
// Thread-safe.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "lumvane/platform/DovetelConfigurationObserver.h"

namespace lumvane {

class ScriptedConfigurationObserver final : public DovetelConfigurationObserver {
 public:
  struct Delivery {
    std::optional<Value> configuration;
    std::string type;
  };

  // With `settleBeforeReturning`, starting to observe returns only after the
  // scripted deliveries have reached the delegate, so that a caller that
  // waits afterwards finds all of them made.
  explicit ScriptedConfigurationObserver(std::vector<Delivery> onStart = {},
                                         bool settleBeforeReturning = false);

  void startObservingConfigurationType(const std::string& type) override;

  void deliverNow(const std::optional<Value>& configuration, const std::string& type);
  // Waits until every delivery made so far has reached the delegate.
  void settle();

  std::vector<std::string> observedTypes() const;

 private:
  const std::vector<Delivery> onStart_;
  const bool settleBeforeReturning_;
  mutable std::mutex mu_;
  std::vector<std::string> observedTypes_;
};

}  // namespace lumvane

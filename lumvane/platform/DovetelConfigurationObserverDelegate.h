// The receiving side of the telemetry service's configuration deliveries.
//
// The service's protocol has one operation, observer:didChangeConfiguration:
// type:, kept here in its keyword form as the method `observer` with the
// parameters (observer, configuration, type).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "lumvane/signpost/Value.h"

namespace lumvane {

class DovetelConfigurationObserver;

class DovetelConfigurationObserverDelegate {
 public:
  virtual ~DovetelConfigurationObserverDelegate() = default;

  // Called on the queue given with the delegate, once per delivered
  // configuration. `observer` is the delivering observer, held weakly: a
  // delivery may still arrive after its owner has let it go. `configuration`
  // is absent when the service has none (a JSON null).
  virtual void observer(const std::weak_ptr<DovetelConfigurationObserver>& observer,
                        const std::optional<Value>& configuration,
                        const std::string& type) = 0;
};

}  // namespace lumvane

// The delegate that the tasking gate hands to the configuration observer: it
// forwards every delivered (configuration, type) to its callback block.
//
// Thread-safety: deliveries call the block on the observer's queue. The block
// is a plain field, so set it before the delegate is handed to an observer;
// replacing it while deliveries may run is a data race.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "lumvane/platform/DovetelConfigurationObserverDelegate.h"

namespace lumvane {

class LumvaneConfigObserverDelegate final : public DovetelConfigurationObserverDelegate {
 public:
  using CallbackBlock =
      std::function<void(const std::optional<Value>& configuration, const std::string& type)>;

  // `callbackBlock` must be callable: deliveries call it without a test.
  static std::shared_ptr<LumvaneConfigObserverDelegate> initWithCallbackBlock(
      CallbackBlock callbackBlock);
  explicit LumvaneConfigObserverDelegate(CallbackBlock callbackBlock);

  // Calls the block with (configuration, type); `observer` is not used.
  void observer(const std::weak_ptr<DovetelConfigurationObserver>& observer,
                const std::optional<Value>& configuration, const std::string& type) override;

  const CallbackBlock& callbackBlock() const { return callbackBlock_; }
  void setCallbackBlock(CallbackBlock callbackBlock);

 private:
  CallbackBlock callbackBlock_;
};

}  // namespace lumvane

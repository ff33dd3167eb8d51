#include "lumvane/telemetry/LumvaneConfigObserverDelegate.h"

#include <utility>

namespace lumvane {

std::shared_ptr<LumvaneConfigObserverDelegate> LumvaneConfigObserverDelegate::initWithCallbackBlock(
    CallbackBlock callbackBlock) {
  return std::make_shared<LumvaneConfigObserverDelegate>(std::move(callbackBlock));
}

LumvaneConfigObserverDelegate::LumvaneConfigObserverDelegate(CallbackBlock callbackBlock)
    : callbackBlock_(std::move(callbackBlock)) {}

void LumvaneConfigObserverDelegate::observer(const std::weak_ptr<DovetelConfigurationObserver>&,
                                             const std::optional<Value>& configuration,
                                             const std::string& type) {
  callbackBlock_(configuration, type);
}

void LumvaneConfigObserverDelegate::setCallbackBlock(CallbackBlock callbackBlock) {
  callbackBlock_ = std::move(callbackBlock);
}

}  // namespace lumvane

// The telemetry payloads of the signpost classes. Declared on the classes
// themselves (lumvane/signpost/), built here with the rest of the telemetry
// code: each class starts from its parent's payload and adds its own keys.
// Keys appear in the order they are set; an absent value leaves its key out.

#include <string>

#include "lumvane/filter/LVLog.h"
#include "lumvane/signpost/SignpostAnimationInterval.h"
#include "lumvane/signpost/SignpostEvent.h"
#include "lumvane/signpost/SignpostInterval.h"
#include "lumvane/signpost/SignpostObject.h"
#include "lumvane/telemetry/BundleIdentifierCache.h"

namespace lumvane {
namespace {

constexpr const char* kUnknown = "Unknown";
// The one subsystem whose intervals may name their process themselves.
constexpr const char* kBundleIdOverrideSubsystem = "com.orvel.halvenrod";

// A named argument is reported only together with its name.
template <typename T>
void SetNamedArgument(Dictionary& payload, const char* nameKey, const char* valueKey,
                      const std::optional<std::string>& name, const std::optional<T>& value) {
  if (!name) return;
  payload.set(nameKey, name);
  payload.set(valueKey, value);
}

// The process behind one side of an object: its bundle's identifier when its
// executable lies in a bundle, else its process name, else "Unknown". A
// missing side (no event) counts as a side without process information.
std::string ProcessNameOfSide(const SignpostEvent* side) {
  if (!side) return kUnknown;
  if (std::optional<std::string> id = bundleIdentifierForImagePath(side->processImagePath())) {
    return *std::move(id);
  }
  return side->processName().value_or(kUnknown);
}

}  // namespace

std::optional<Dictionary> SignpostObject::dovetelPayload() const {
  Dictionary payload;
  payload.set("Subsystem", subsystem());
  payload.set("Category", category());
  payload.set("Name", name().value_or(kUnknown));
  SetNamedArgument(payload, "String1Name", "String1Value", string1Name(), string1Value());
  SetNamedArgument(payload, "String2Name", "String2Value", string2Name(), string2Value());
  SetNamedArgument(payload, "Number1Name", "Number1Value", number1Name(), number1Value());
  SetNamedArgument(payload, "Number2Name", "Number2Value", number2Name(), number2Value());
  payload.set("IntervalType", signpostType());
  payload.set("DurationInSeconds", Number::fromFloat(durationSeconds()));
  return payload;
}

std::optional<Dictionary> SignpostEvent::dovetelPayload() const {
  std::optional<Dictionary> payload = SignpostObject::dovetelPayload();
  if (!payload) return std::nullopt;
  payload->set("StartProcessName", ProcessNameOfSide(this));
  return payload;
}

std::optional<Dictionary> SignpostInterval::dovetelPayload() const {
  std::optional<Dictionary> payload = SignpostObject::dovetelPayload();
  if (!payload) return std::nullopt;
  if (const Value* overrideValue = attributes().find("BundleIdOverride");
      overrideValue && subsystem() == kBundleIdOverrideSubsystem) {
    // Whatever the attribute holds names both sides, unchecked.
    payload->set("StartProcessName", *overrideValue);
    payload->set("EndProcessName", *overrideValue);
    LVLogDebug("%@/%@/%@: Overriding bundle ID to %@", subsystem(), category(), name(),
               *overrideValue);
    return payload;
  }
  payload->set("StartProcessName", ProcessNameOfSide(beginEvent().get()));
  payload->set("EndProcessName", ProcessNameOfSide(endEvent().get()));
  return payload;
}

std::optional<Dictionary> SignpostAnimationInterval::dovetelPayload() const {
  std::optional<Dictionary> payload = SignpostInterval::dovetelPayload();
  if (!payload) return std::nullopt;
  payload->set("FrameRate", Number::fromFloat(frameRate()));
  return payload;
}

}  // namespace lumvane

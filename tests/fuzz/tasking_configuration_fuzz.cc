// Fuzz target of the tasking-configuration reader: the input is the content
// of the configuration file. It is parsed as the configuration observer
// parses it and, when it parses, handed to the tasking gate as the service's
// delivery, so that every shape of value meets the gate's checks. Nothing may
// crash or trip a sanitizer, whatever the bytes.
#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "lumvane/platform/JsonValue.h"
#include "lumvane/telemetry/TaskingGate.h"
#include "tests/fuzz/FuzzLogSink.h"
#include "tests/support/platform/ScriptedConfigurationObserver.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace lumvane;
  fuzz::DiscardLogs();
  std::optional<Value> configuration;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  if (ParseJsonValue(text, &configuration)) return 0;  // refused with an error: fine

  TaskingGateOptions options;
  options.makeObserver = [&] {
    return std::make_shared<ScriptedConfigurationObserver>(
        std::vector<ScriptedConfigurationObserver::Delivery>{
            {configuration, kTaskingConfigurationType}},
        /*settleBeforeReturning=*/true);
  };
  options.timeout = std::chrono::seconds(5);
  (void)isTaskedOnByDovetel(options);
  return 0;
}

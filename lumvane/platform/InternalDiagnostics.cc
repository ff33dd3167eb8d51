#include "lumvane/platform/InternalDiagnostics.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "lumvane/platform/NoDestructor.h"

namespace lumvane {
namespace {

constexpr const char* kMarkerFile = "/etc/lumvane/internal-diagnostics";

class MachineInternalDiagnosticsCheck final : public InternalDiagnosticsCheck {
 public:
  bool hasInternalDiagnostics(std::string_view) const override {
    const char* env = std::getenv("LUMVANE_INTERNAL_DIAGNOSTICS");
    if (env && std::strcmp(env, "1") == 0) return true;
    return access(kMarkerFile, F_OK) == 0;
  }
};

std::shared_ptr<InternalDiagnosticsCheck>& currentCheck() {
  static NoDestructor<std::shared_ptr<InternalDiagnosticsCheck>> check(
      NewMachineInternalDiagnosticsCheck());
  return *check;
}

}  // namespace

std::shared_ptr<InternalDiagnosticsCheck> NewMachineInternalDiagnosticsCheck() {
  return std::make_shared<MachineInternalDiagnosticsCheck>();
}

std::shared_ptr<InternalDiagnosticsCheck> ExchangeInternalDiagnosticsCheck(
    std::shared_ptr<InternalDiagnosticsCheck> check) {
  return std::atomic_exchange(&currentCheck(), std::move(check));
}

bool LVHasInternalDiagnostics(std::string_view subsystem) {
  return std::atomic_load(&currentCheck())->hasInternalDiagnostics(subsystem);
}

}  // namespace lumvane

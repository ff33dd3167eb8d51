// Whether this machine is an internal-diagnostics variant. On such a machine
// the string whitelist is off and the tasking gate always says yes.
//
// The machine answer: true when LUMVANE_INTERNAL_DIAGNOSTICS=1 is in the
// environment or the file /etc/lumvane/internal-diagnostics exists. It is
// asked afresh on every call (the file may come and go).
#pragma once

#include <memory>
#include <string_view>

namespace lumvane {

class InternalDiagnosticsCheck {
 public:
  virtual ~InternalDiagnosticsCheck() = default;
  // Thread-safe. `subsystem` names who asks ("com.orvel.signpost").
  virtual bool hasInternalDiagnostics(std::string_view subsystem) const = 0;
};

std::shared_ptr<InternalDiagnosticsCheck> NewMachineInternalDiagnosticsCheck();

// The process-wide check that the system asks; tests swap in a double.
// Returns the previous check.
std::shared_ptr<InternalDiagnosticsCheck> ExchangeInternalDiagnosticsCheck(
    std::shared_ptr<InternalDiagnosticsCheck> check);
bool LVHasInternalDiagnostics(std::string_view subsystem);

}  // namespace lumvane

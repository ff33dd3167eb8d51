// Whether this machine is an internal-diagnostics variant. On such a machine
// the string whitelist is off and the tasking gate always says yes.
//
// The machine answer: true when LUMVANE_INTERNAL_DIAGNOSTICS=1 is in the
// environment or the file /etc/lumvane/internal-diagnostics exists. It is
// asked afresh on every call (the file may come and go).
#pragma once

#include <atomic>
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

// Test double: answers as told and counts the questions.
class FakeInternalDiagnosticsCheck final : public InternalDiagnosticsCheck {
 public:
  explicit FakeInternalDiagnosticsCheck(bool answer = false) : answer_(answer) {}
  bool hasInternalDiagnostics(std::string_view) const override {
    calls_.fetch_add(1);
    return answer_.load();
  }
  void setAnswer(bool answer) { answer_.store(answer); }
  int calls() const { return calls_.load(); }

 private:
  std::atomic<bool> answer_;
  mutable std::atomic<int> calls_{0};
};

}  // namespace lumvane

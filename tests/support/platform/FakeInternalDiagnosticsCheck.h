// Test double for the internal-diagnostics check: answers as told and counts
// the questions. Thread-safe.
#pragma once

#include <atomic>
#include <string_view>

#include "lumvane/platform/InternalDiagnostics.h"

namespace lumvane {

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

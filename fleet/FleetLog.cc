#include "fleet/FleetLog.h"

#include <unistd.h>

#include <mutex>
#include <utility>

#include "lumvane/platform/NoDestructor.h"

namespace lumvane::fleet {
namespace {

struct LogState {
  std::mutex mu;
  bool enabled = true;
  std::string program = "lumvane";
};

LogState& State() {
  static NoDestructor<LogState> state;
  return *state;
}

}  // namespace

void SetFleetProgramName(const std::string& name) {
  std::lock_guard<std::mutex> lock(State().mu);
  State().program = name;
}

void FleetLog(const std::string& message) {
  std::lock_guard<std::mutex> lock(State().mu);
  if (!State().enabled) return;
  const std::string line = State().program + ": " + message + "\n";
  // One write(2) per line; a short write to a pipe is not worth a retry.
  (void)!::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace lumvane::fleet

namespace lumvane::fleet {

bool SetFleetLogEnabled(bool enabled) {
  std::lock_guard<std::mutex> lock(State().mu);
  return std::exchange(State().enabled, enabled);
}

}  // namespace lumvane::fleet

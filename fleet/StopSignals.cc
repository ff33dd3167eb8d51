#include "fleet/StopSignals.h"

#include <signal.h>

namespace lumvane::fleet {
namespace {

std::atomic<bool> gStop{false};

void OnStopSignal(int) { gStop.store(true); }

}  // namespace

const std::atomic<bool>& InstallStopSignals() {
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
  return gStop;
}

}  // namespace lumvane::fleet

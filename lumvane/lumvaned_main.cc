// lumvaned: the signpost telemetry reporter daemon. It takes no arguments;
// what it needs from the machine comes from its environment.
#include <signal.h>

#include <cstdio>
#include <cstring>

#include "lumvane/Daemon.h"
#include "lumvane/platform/LocalActivityScheduler.h"
#include "lumvane/platform/NoDestructor.h"
#include "lumvane/platform/SignalSource.h"

namespace {

constexpr char kUsage[] =
    "usage: lumvaned\n"
    "\n"
    "The signpost telemetry reporter daemon. It takes no arguments: it checks in\n"
    "with its scheduler, then once a day reads the last 24 hours of signposts\n"
    "from the machine's journal and sends what may be reported to the local\n"
    "telemetry service.\n"
    "SIGINT ends it at once with status 0.\n"
    "\n"
    "Environment:\n"
    "  LUMVANE_STATE_DIR          scheduler state: the activity-last-run record and\n"
    "                             the defer file (default /var/lib/lumvane)\n"
    "  LUMVANE_ACTIVITY_INTERVAL  seconds from one completed run to the next\n"
    "                             (default 86400)\n"
    "  LUMVANE_DEFER_RETRY        seconds before a deferred run is due again\n"
    "                             (default 600)\n"
    "  LUMVANE_EXIT_WHEN_CLEAN    1: exit once checked in and no run is due or\n"
    "                             under way (for a service manager's timer);\n"
    "                             0: keep running (default)\n"
    "  LUMVANE_LOG_TARGET         stderr, syslog or journal (default: journal when\n"
    "                             JOURNAL_STREAM names standard error, else stderr)\n"
    "  LUMVANE_LOG_LEVEL          debug (default), info, error or off\n"
    "  LUMVANE_DOVETEL_DIR        the local telemetry service's directory\n"
    "                             (default /var/lib/lumvane/dovetel)\n"
    "  LUMVANE_SIGNPOST_STORE     a signpost store to read instead of the\n"
    "                             machine's journal (see lumvane --help)\n"
    "\n"
    "While the file $LUMVANE_STATE_DIR/defer exists, a due run gives way and is\n"
    "tried again after LUMVANE_DEFER_RETRY seconds.\n";

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
      std::fputs(kUsage, stdout);
      return 0;
    }
    std::fprintf(stderr, "lumvaned: unexpected argument '%s'\n\n%s", argv[1], kUsage);
    return 2;
  }

  // Before any thread exists, so that every thread inherits the mask and the
  // interrupt reaches only the daemon's own source.
  lumvane::BlockSignalInProcess(SIGINT);

  static lumvane::NoDestructor<lumvane::LocalActivityScheduler> scheduler(
      lumvane::LocalActivitySchedulerOptions::fromEnvironment());
  scheduler->start();
  if (std::optional<lumvane::Error> error = lumvane::startDaemon(*scheduler)) {
    std::fprintf(stderr, "lumvaned: cannot start: %s\n", error->description().c_str());
    return 1;
  }
  lumvane::ParkCallingThreadForever();
}

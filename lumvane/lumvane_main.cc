// lumvane: runs the daemon's job once, in the foreground. `lumvane run` makes
// the same activity-handler call with the same code as the daemon when its
// activity is due: the tasking gate, the guard file, the read of the last
// 24 hours of the signpost store, the sends and the end-of-run report.
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>

#include "lumvane/ActivityHandler.h"
#include "lumvane/CookieFile.h"
#include "lumvane/ReportingRun.h"
#include "lumvane/platform/DovetelDirectory.h"
#include "lumvane/platform/ForegroundActivityScheduler.h"
#include "lumvane/platform/LocalActivityScheduler.h"
#include "lumvane/signpost/LogStoreExtractor.h"

namespace {

constexpr char kUsage[] =
    "usage: lumvane run [--store PATH] [--dovetel-dir DIR] [--now TIME]\n"
    "       lumvane --help\n"
    "\n"
    "Runs the reporting job once in the foreground, exactly as the daemon does\n"
    "when its activity is due: asks the telemetry service whether to report,\n"
    "guards against repeating an unfinished run, reads the last 24 hours of\n"
    "signposts from the journal, sends every object that may be reported, and\n"
    "ends with the run's statistics.\n"
    "\n"
    "Options:\n"
    "  --store PATH        the signpost store to read instead of the machine's\n"
    "                      journal: a journal directory (such as a copy of\n"
    "                      /var/log/journal), one .journal file, a file of JSON\n"
    "                      lines as 'journalctl -o json' writes them, a directory\n"
    "                      of .json/.ndjson files, or - for JSON lines on standard\n"
    "                      input (default $LUMVANE_SIGNPOST_STORE, else the\n"
    "                      machine's journal)\n"
    "  --dovetel-dir DIR   the telemetry service's directory: events are appended\n"
    "                      to DIR/events.ndjson, the tasking configuration is read\n"
    "                      from DIR/configurations/ (default $LUMVANE_DOVETEL_DIR,\n"
    "                      else /var/lib/lumvane/dovetel)\n"
    "  --now TIME          the wall-clock time of the run, ISO 8601 with offset\n"
    "                      (2024-05-01T12:00:00+02:00) or @SECONDS since the\n"
    "                      epoch: the run reads the 24 hours before it, so that\n"
    "                      an exported journal of another day can be read\n"
    "\n"
    "Exit status: 0 when the run processed the log (to its end or until a\n"
    "deferral stopped it), 1 when it ended without processing (not tasked on,\n"
    "guard file present or not creatable, deferred, unreadable store), 2 for bad\n"
    "usage.\n"
    "\n"
    "Environment: LUMVANE_LOG_LEVEL (debug, info, error, off), LUMVANE_LOG_TARGET\n"
    "(stderr, syslog, journal; unset: journal when JOURNAL_STREAM names standard\n"
    "error, else stderr), LUMVANE_STATE_DIR (its file 'defer' asks the run to give\n"
    "way), LUMVANE_INTERNAL_DIAGNOSTICS=1 (report without asking the telemetry\n"
    "service; also the file /etc/lumvane/internal-diagnostics).\n"
    "The guard file of a run under way is /var/tmp/lumvane_running.\n";

// "--now": ISO 8601 date and time with an optional fraction and a UTC offset
// ("+02:00", "+0200" or "Z"), or "@SECONDS" since the epoch.
std::optional<lumvane::Date> parseNow(const std::string& text) {
  using std::chrono::microseconds;
  const char* const end = text.c_str() + text.size();
  if (!text.empty() && text[0] == '@') {
    long long seconds = 0;
    const auto [p, ec] = std::from_chars(text.c_str() + 1, end, seconds);
    if (ec != std::errc() || p != end || p == text.c_str() + 1) return std::nullopt;
    return lumvane::Date(microseconds(seconds * 1000000));
  }
  std::tm tm{};
  const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &tm);
  if (!rest) rest = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
  if (!rest) return std::nullopt;
  long long fraction = 0;  // microseconds
  if (*rest == '.') {
    const char* digits = ++rest;
    for (long long scale = 100000; *rest >= '0' && *rest <= '9'; ++rest, scale /= 10) {
      fraction += (*rest - '0') * scale;
    }
    if (rest == digits) return std::nullopt;
  }
  if (*rest == '\0') return std::nullopt;  // an offset is required
  tm.tm_gmtoff = 0;
  rest = strptime(rest, "%z", &tm);
  if (!rest || *rest != '\0') return std::nullopt;
  const long offset = tm.tm_gmtoff;
  const time_t utc = timegm(&tm);
  if (utc == static_cast<time_t>(-1)) return std::nullopt;
  return lumvane::Date(microseconds((static_cast<long long>(utc) - offset) * 1000000 + fraction));
}

int usageError(const char* what, const char* arg) {
  std::fprintf(stderr, "lumvane: %s%s%s\n\n%s", what, arg ? " " : "", arg ? arg : "", kUsage);
  return 2;
}

const char* outcomeText(lumvane::ReportingRunOutcome outcome) {
  using lumvane::ReportingRunOutcome;
  switch (outcome) {
    case ReportingRunOutcome::NotTasked:
      return "not tasked on by the telemetry service (see its configurations/ directory)";
    case ReportingRunOutcome::BailedOnGuardFile:
      return "a guard file left by an unfinished run was found and cleared; the next run "
             "proceeds";
    case ReportingRunOutcome::GuardFileNotCreated:
      return "the guard file could not be created";
    case ReportingRunOutcome::Processed:
      return "processed the log";
    case ReportingRunOutcome::ProcessingFailed:
      return "the signpost store could not be read";
  }
  return "?";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return usageError("missing command", nullptr);
  if (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0 ||
      std::strcmp(argv[1], "help") == 0) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (std::strcmp(argv[1], "run") != 0) return usageError("unknown command", argv[1]);

  std::optional<std::string> store;
  std::optional<std::string> dovetelDir;
  std::optional<lumvane::Date> now;
  for (int i = 2; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    std::string value;
    std::string::size_type eq = arg.find('=');
    if (eq != std::string::npos && arg.rfind("--", 0) == 0) {
      value = arg.substr(eq + 1);
      arg.resize(eq);
    } else if (arg == "--store" || arg == "--dovetel-dir" || arg == "--now") {
      if (i + 1 >= argc) return usageError("missing value for", argv[i]);
      value = argv[++i];
    } else {
      return usageError("unexpected argument", argv[i]);
    }
    if (value.empty()) return usageError("empty value for", arg.c_str());
    if (arg == "--store") {
      store = value;
    } else if (arg == "--dovetel-dir") {
      dovetelDir = value;
    } else if (arg == "--now") {
      now = parseNow(value);
      if (!now) {
        return usageError("--now is neither an ISO 8601 time with offset nor @SECONDS:",
                          value.c_str());
      }
    } else {
      return usageError("unknown option", arg.c_str());
    }
  }
  // The run reads these where the daemon reads them; set before any thread
  // starts.
  if (store) setenv("LUMVANE_SIGNPOST_STORE", store->c_str(), 1);
  if (dovetelDir) setenv("LUMVANE_DOVETEL_DIR", dovetelDir->c_str(), 1);

  lumvane::ForegroundActivityScheduler scheduler(
      lumvane::LocalActivitySchedulerOptions::fromEnvironment().stateDirectory);
  std::optional<lumvane::ReportingRunOutcome> outcome;
  std::optional<lumvane::Error> processingError;
  scheduler.registerActivity(
      lumvane::kLumvaneActivityIdentifier, lumvane::ActivityCriteria::CheckIn,
      [&](std::shared_ptr<lumvane::Activity> activity) {
        lumvane::handleActivity(scheduler, std::move(activity),
                                [&](const std::shared_ptr<lumvane::Activity>& a) {
                                  auto env = lumvane::DefaultReportingRunEnvironment(scheduler);
                                  if (now) env.now = [t = *now] { return t; };
                                  outcome = lumvane::performReportingRun(a, env, &processingError);
                                });
      });
  scheduler.runOnce();

  if (!outcome) {
    std::fprintf(stderr, "lumvane: the run gave way to a deferral request (%s exists)\n",
                 scheduler.deferFilePath().c_str());
    return 1;
  }
  if (*outcome == lumvane::ReportingRunOutcome::ProcessingFailed && processingError) {
    std::fprintf(stderr, "lumvane: %s: %s\n", outcomeText(*outcome),
                 processingError->localizedDescription().c_str());
  } else {
    std::fprintf(stderr, "lumvane: %s\n", outcomeText(*outcome));
  }
  if (*outcome != lumvane::ReportingRunOutcome::Processed) return 1;
  std::fprintf(stderr, "lumvane: events were appended to %s/events.ndjson\n",
               lumvane::DovetelDirectory().c_str());
  return 0;
}

// The cost of marking one signpost with liblumvane-signpost against a bare
// sd_journal_send() of the same fields (same values, same clock and thread
// look-ups), both sent to a journald of this program's own with its rate
// limit off: without a journald both return at once and measure nothing.
// Prints the ratio of the two and the peak anonymous memory.
//
// Usage: signpost_emit_bench [Google Benchmark options]
// Needs user namespaces (it runs journald in private ones, as the tests do).
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <benchmark/benchmark.h>
#include <lumvane/signpost.h>
#include <systemd/sd-journal.h>
#include <time.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdlib>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>

#include "tests/support/PrivateJournal.h"

namespace {

lumvane::testing::PrivateJournal* gJournal = nullptr;

std::uint64_t BoottimeNsec() {
  timespec now;
  clock_gettime(CLOCK_BOOTTIME, &now);
  return std::uint64_t(now.tv_sec) * 1000000000u + std::uint64_t(now.tv_nsec);
}

void Drain(benchmark::State& state) {
  std::string error = gJournal->sync();  // the previous run's backlog, untimed
  if (!error.empty()) state.SkipWithError(error.c_str());
}

void BM_BareJournalSend(benchmark::State& state) {
  Drain(state);
  std::uint64_t id = 1;
  for (auto _ : state) {
    int r = sd_journal_send(
        "MESSAGE_ID=" LUMVANE_SIGNPOST_MESSAGE_ID,
        "MESSAGE=signpost begin org.example.app/net/fetch %" PRIu64, id, "PRIORITY=6",
        "SIGNPOST_TYPE=begin", "SIGNPOST_ID=%" PRIu64, id, "SIGNPOST_SCOPE=process",
        "SIGNPOST_SUBSYSTEM=org.example.app", "SIGNPOST_CATEGORY=net", "SIGNPOST_NAME=fetch",
        "SIGNPOST_TELEMETRY=1", "SIGNPOST_STRING1_NAME=Host",
        "SIGNPOST_STRING1_VALUE=example.org", "SIGNPOST_NUMBER1_NAME=Bytes",
        "SIGNPOST_NUMBER1_VALUE=%" PRIu64, UINT64_C(1048576), "SIGNPOST_ATTRIBUTE=mode=fast",
        "SIGNPOST_ATTRIBUTE=retries=0", "SIGNPOST_TID=%d", int(gettid()),
        "SIGNPOST_BOOTTIME_NSEC=%" PRIu64, BoottimeNsec(), nullptr);
    if (r < 0) state.SkipWithError("sd_journal_send failed");
    ++id;
  }
}

void BM_Signpost(benchmark::State& state) {
  Drain(state);
  static const lumvane_signpost sp = {"org.example.app", "net", "fetch",
                                      LUMVANE_SIGNPOST_SCOPE_PROCESS, LUMVANE_SIGNPOST_TELEMETRY};
  static const lumvane_signpost_attribute attributes[] = {{"mode", "fast"}, {"retries", "0"}};
  lumvane_signpost_args args{};
  args.strings[0] = {"Host", "example.org"};
  args.numbers[0] = {"Bytes", LUMVANE_SIGNPOST_NUMBER_UINT64, {.u = 1048576}};
  args.attributes = attributes;
  args.attribute_count = 2;
  for (auto _ : state) {
    if (lumvane_signpost_begin(&sp, lumvane_signpost_id_generate(), &args) < 0)
      state.SkipWithError("lumvane_signpost_begin failed");
  }
}

// Baseline and signpost alternate, so that a slow spell of journald's falls
// on both alike.
BENCHMARK(BM_BareJournalSend)->Iterations(20000)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_Signpost)->Iterations(20000)->Repetitions(5)->ReportAggregatesOnly(true);

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs)
      if (run.aggregate_name == "median") {
        real_[run.run_name.function_name] = run.GetAdjustedRealTime();
        cpu_[run.run_name.function_name] = run.GetAdjustedCPUTime();
      }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> real_, cpu_;
};

std::string PeakRssAnon() {
  // VmHWM counts file mappings too; RssAnon is anonymous memory now, which
  // for this program's steady loop is its peak.
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("RssAnon:", 0) == 0) return line.substr(8);
  return " unknown";
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i)
    if (std::string(argv[i]) == "--help") {
      std::printf("Usage: %s [Google Benchmark options]\n"
                  "Compares one signpost with a bare sd_journal_send of the same fields,\n"
                  "both sent to a private journald (needs user namespaces).\n", argv[0]);
      return 0;
    }
  // Repetitions of both in random order, so that a slow spell of journald's
  // falls on both alike (a command-line flag still overrides this).
  setenv("BENCHMARK_ENABLE_RANDOM_INTERLEAVING", "true", 0);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  // Before any thread exists: unshare(2) needs a single-threaded process.
  auto started = lumvane::testing::PrivateJournal::Start({/*rateLimit=*/false, true});
  if (!started.journal) {
    std::fprintf(stderr, "signpost_emit_bench: no private journald: %s%s\n",
                 started.skip.c_str(), started.error.c_str());
    return 1;
  }
  gJournal = started.journal.get();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  // Wall time includes waiting while journald's queue is full; CPU time is
  // the sender's own work.
  for (auto [label, times] : {std::make_pair("wall", &reporter.real_), std::make_pair("CPU", &reporter.cpu_)}) {
    double base = (*times)["BM_BareJournalSend"], ours = (*times)["BM_Signpost"];
    if (base > 0 && ours > 0)
      std::printf("signpost / bare sd_journal_send, median %s time per entry: %.3fx (goal <= 1.2x)\n",
                  label, ours / base);
  }
  std::printf("RssAnon:%s\n", PeakRssAnon().c_str());
  return 0;
}

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

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
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

// RssAnon from /proc/self/status in kB, or 0.
long RssAnonKb() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.rfind("RssAnon:", 0) == 0) return std::atol(line.c_str() + 8);
  return 0;
}

// The largest RssAnon seen between runs (the kernel keeps no peak of it).
long gPeakRssAnonKb = 0;

void Drain(benchmark::State& state) {
  gPeakRssAnonKb = std::max(gPeakRssAnonKb, RssAnonKb());
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
        "SIGNPOST_TELEMETRY=1", "SIGNPOST_STRING1_NAME=Host", "SIGNPOST_STRING1_VALUE=example.org",
        "SIGNPOST_NUMBER1_NAME=Bytes", "SIGNPOST_NUMBER1_VALUE=%" PRIu64, UINT64_C(1048576),
        "SIGNPOST_ATTRIBUTE=mode=fast", "SIGNPOST_ATTRIBUTE=retries=0", "SIGNPOST_TID=%d",
        int(gettid()), "SIGNPOST_BOOTTIME_NSEC=%" PRIu64, BoottimeNsec(), nullptr);
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
// Two shapes of use: bursts of 8 entries, fewer than the socket queue holds
// (net.unix.max_dgram_qlen may be as low as 10), so the send returns
// without waiting for journald; and 20000 in a row, where both wait on
// journald as soon as its queue is full.
struct Shape {
  const char* name;
  int iterations, repetitions;
} const kShapes[] = {{"burst", 8, 300}, {"sustained", 20000, 5}};

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

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i)
    if (std::string(argv[i]) == "--help") {
      std::printf(
          "Usage: %s [Google Benchmark options]\n"
          "Compares one signpost with a bare sd_journal_send of the same fields,\n"
          "both sent to a private journald (needs user namespaces).\n",
          argv[0]);
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
    std::fprintf(stderr, "signpost_emit_bench: no private journald: %s%s\n", started.skip.c_str(),
                 started.error.c_str());
    return 1;
  }
  gJournal = started.journal.get();
  for (const Shape& shape : kShapes)
    for (auto [name, fn] :
         {std::make_pair("bare", BM_BareJournalSend), std::make_pair("signpost", BM_Signpost)})
      benchmark::RegisterBenchmark((std::string(name) + "/" + shape.name).c_str(), fn)
          ->Iterations(shape.iterations)
          ->Repetitions(shape.repetitions)
          ->ReportAggregatesOnly(true);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  // Wall time includes any wait for journald; CPU time is the sender's own
  // work.
  for (const Shape& shape : kShapes)
    for (auto [label, times] :
         {std::make_pair("wall", &reporter.real_), std::make_pair("CPU", &reporter.cpu_)}) {
      double base = (*times)[std::string("bare/") + shape.name];
      double ours = (*times)[std::string("signpost/") + shape.name];
      if (base > 0 && ours > 0)
        std::printf(
            "%-9s signpost / bare sd_journal_send, median %-4s time: %.3fx (goal <= 1.2x)\n",
            shape.name, label, ours / base);
    }
  gPeakRssAnonKb = std::max(gPeakRssAnonKb, RssAnonKb());
  std::printf("peak RssAnon between runs: %ld kB\n", gPeakRssAnonKb);
  return 0;
}

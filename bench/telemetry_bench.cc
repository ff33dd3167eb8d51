// Cost of building payloads and of appending events to the event file.
// Figures are meant as ratios within one run: the full interval payload
// against the common payload alone, and a durable append (with fdatasync)
// against a plain one.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <unistd.h>

#include "lumvane/platform/DovetelEventSink.h"
#include "lumvane/signpost/SignpostInterval.h"
#include "lumvane/signpost/SignpostObject.h"

namespace lumvane {
namespace {

SignpostObjectProperties FullProperties() {
  SignpostObjectProperties p;
  p.subsystem = "com.example.net";
  p.category = "fetch";
  p.name = "Request";
  p.string1Name = "host";
  p.string1Value = "example.com";
  p.string2Name = "method";
  p.string2Value = "GET";
  p.number1Name = "bytes";
  p.number1Value = Number::fromUInt64(123456);
  p.number2Name = "status";
  p.number2Value = Number::fromInt64(200);
  p.durationSeconds = 0.25f;
  p.telemetryEnabled = true;
  return p;
}

std::shared_ptr<const SignpostInterval> FullInterval() {
  auto side = [](const char* process) {
    return std::make_shared<SignpostEvent>(FullProperties(), process,
                                           std::string("/usr/libexec/") + process);
  };
  return std::make_shared<SignpostInterval>(FullProperties(), side("netd"), side("fetcher"));
}

// Baseline: the common payload only, without the process-name lookups.
void BM_CommonPayload(benchmark::State& state) {
  auto interval = FullInterval();
  for (auto _ : state) {
    benchmark::DoNotOptimize(interval->SignpostObject::dovetelPayload());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CommonPayload);

// The interval payload with every argument and both (cached) process names.
void BM_IntervalPayload(benchmark::State& state) {
  auto interval = FullInterval();
  for (auto _ : state) {
    benchmark::DoNotOptimize(interval->dovetelPayload());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_IntervalPayload);

void AppendEvents(benchmark::State& state, bool sync) {
  const std::string dir = std::filesystem::temp_directory_path().string() + "/lumvane-bench-" +
                          std::to_string(::getpid());
  setenv("LUMVANE_DOVETEL_DIR", dir.c_str(), 1);
  auto sink = NewFileDovetelEventSink(FileDovetelEventSinkOptions{sync});
  auto payload = FullInterval()->dovetelPayload();
  for (auto _ : state) {
    sink->sendEvent("com.orvel.performance.signpost", *payload);
  }
  state.SetItemsProcessed(state.iterations());
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
}

// Baseline: appends without fdatasync.
void BM_AppendNoSync(benchmark::State& state) { AppendEvents(state, false); }
BENCHMARK(BM_AppendNoSync)->UseRealTime();

void BM_AppendWithSync(benchmark::State& state) { AppendEvents(state, true); }
BENCHMARK(BM_AppendWithSync)->UseRealTime();

}  // namespace
}  // namespace lumvane

BENCHMARK_MAIN();

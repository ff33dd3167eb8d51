// Cost of the per-object verdict on a run's typical mix: most objects have
// telemetry disabled, some are accepted, some fail the string whitelist.
// Baselines measured in the same run: building one aggregation key (the
// filter builds at least two per object) and a single whitelist set lookup.
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "lumvane/filter/LVLog.h"
#include "lumvane/filter/LVStringWhitelist.h"
#include "lumvane/filter/LumvaneAggregationKey.h"
#include "lumvane/filter/LumvaneObjectFilter.h"
#include "lumvane/platform/InternalDiagnostics.h"
#include "lumvane/signpost/SignpostAnimationInterval.h"
#include "tests/support/platform/FakeInternalDiagnosticsCheck.h"

namespace lumvane {
namespace {

constexpr size_t kMixSize = 4096;

// 70% telemetry disabled, 20% accepted by the whitelist, 10% rejected by it.
// `listed` is a value of the platform's whitelist.
std::vector<std::shared_ptr<const SignpostObject>> MakeMix(const std::string& listed,
                                                           bool withDownsampledSubsystem) {
  std::mt19937 rng(7);
  std::vector<std::shared_ptr<const SignpostObject>> mix;
  mix.reserve(kMixSize);
  for (size_t i = 0; i < kMixSize; ++i) {
    SignpostObjectProperties p;
    const unsigned roll = rng() % 100;
    p.subsystem = "com.orvel.service" + std::to_string(rng() % 24);
    if (withDownsampledSubsystem && roll % 20 == 0) p.subsystem = "com.orvel.Lanternfield";
    p.category = "category" + std::to_string(rng() % 4);
    p.name = "operation" + std::to_string(rng() % 50);
    p.durationSeconds = 0.25f;
    p.telemetryEnabled = roll >= 70;
    if (roll >= 80) {
      p.string1Name = "Source";
      p.string1Value = roll >= 90 ? std::string("/home/user/Documents/x") : listed;
    }
    switch (rng() % 3) {
      case 0:
        mix.push_back(std::make_shared<const SignpostEvent>(p, "proc", "/usr/bin/proc"));
        break;
      case 1:
        mix.push_back(std::make_shared<const SignpostInterval>(p, nullptr, nullptr));
        break;
      default:
        mix.push_back(std::make_shared<const SignpostAnimationInterval>(p, nullptr, nullptr,
                                                                        Dictionary(), 60.0f));
    }
  }
  return mix;
}

// Quiet log and a fixed internal-diagnostics answer for the whole program, so
// that the figures measure the filter rather than the machine.
struct Environment {
  Environment() {
    LVLog().exchangeBackend(NewDisabledLogBackend());
    ExchangeInternalDiagnosticsCheck(std::make_shared<FakeInternalDiagnosticsCheck>(false));
  }
};

void RunFilter(benchmark::State& state, LVPlatform platform, const std::string& listed) {
  static Environment environment;
  auto mix = MakeMix(listed, platform == LVPlatformBelvos);
  auto filter = LumvaneObjectFilter::initWithPlatform(platform);
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(filter->shouldReportSignpostObject(*mix[i], nullptr));
    i = (i + 1) % kMixSize;
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_ShouldReport_Cirros(benchmark::State& state) {
  RunFilter(state, LVPlatformCirros, "Root");
}
void BM_ShouldReport_Belvos(benchmark::State& state) {
  RunFilter(state, LVPlatformBelvos, "com.orvel.Sharing.activity.SaveToFolder");
}

void BM_Baseline_AggregationKey(benchmark::State& state) {
  auto mix = MakeMix("Root", false);
  size_t i = 0;
  for (auto _ : state) {
    auto key = LumvaneAggregationKey::initWithSubsystem(mix[i]->subsystem(), mix[i]->category());
    benchmark::DoNotOptimize(key->hash());
    i = (i + 1) % kMixSize;
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_Baseline_SetLookup(benchmark::State& state) {
  static Environment environment;
  const std::string value = "com.orvel.Sharing.activity.SaveToFolder";
  LVStringWhitelistForPlatform(LVPlatformBelvos);
  for (auto _ : state) {
    benchmark::DoNotOptimize(LVPlatformWhitelistContains(value, LVPlatformBelvos));
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_Baseline_AggregationKey);
BENCHMARK(BM_Baseline_SetLookup);
BENCHMARK(BM_ShouldReport_Cirros);
BENCHMARK(BM_ShouldReport_Belvos);

}  // namespace
}  // namespace lumvane

BENCHMARK_MAIN();

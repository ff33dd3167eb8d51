// Cost of the subsystem/category/name filter's per-object decision, for an
// object a rule governs and for one no rule governs, against two baselines
// measured in the same run: building the lookup's query alone, and one plain
// hash-map lookup by subsystem (the least any keyed filter must do).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <unordered_map>

#include "lumvane/SubsystemCategoryFilter/FilterQuery.h"
#include "lumvane/SubsystemCategoryFilter/LVSubsystemCategoryNameFilter.h"
#include "lumvane/signpost/Value.h"

namespace lumvane {
namespace {

SignpostObject Object(const char* s, const char* c, const char* n) {
  SignpostObjectProperties p;
  p.subsystem = s;
  p.category = c;
  p.name = n;
  return SignpostObject(std::move(p));
}

Value Rule(const char* subsystem, const char* category, const char* name, int32_t cap,
           int32_t ratio) {
  Dictionary d;
  d.set("Subsystem", subsystem);
  if (category) d.set("Category", category);
  if (name) d.set("Name", name);
  d.set("Cap", Number::fromInt64(cap));
  d.set("DownsampleRatio", Number::fromInt64(ratio));
  return Value(std::move(d));
}

// A table shaped like the larger built-in one.
std::shared_ptr<LVSubsystemCategoryNameFilter> MakeFilter() {
  return LVSubsystemCategoryNameFilter::initWithDictionaryArray(Array{
      Rule("com.orvel.Lanternfield", nullptr, nullptr, 500, 503),
      Rule("com.orvel.velmarsh.quillary", "signpost", "Tallowmark", 0, 1),
      Rule("com.orvel.Pettimore.HighSeverity", "MurkwaterCondition", "HollowgateCondition", 0, 1),
      Rule("com.orvel.Pettimore.MediumSeverity", "EmberlockCondition", "FennrowBatchIndex", 0, 1),
  });
}

void BM_BaselineBuildQuery(benchmark::State& state) {
  const SignpostObject o = Object("com.orvel.velmarsh.quillary", "signpost", "Tallowmark");
  for (auto _ : state) {
    const FilterQuery q = FilterQuery::initWithSubsystem(o.subsystem(), o.category(), o.name());
    benchmark::DoNotOptimize(q);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_BaselineHashMapLookup(benchmark::State& state) {
  std::unordered_map<std::string, uint64_t> map = {
      {"com.orvel.Lanternfield", 1},
      {"com.orvel.velmarsh.quillary", 2},
      {"com.orvel.Pettimore.HighSeverity", 3},
      {"com.orvel.Pettimore.MediumSeverity", 4}};
  const SignpostObject o = Object("com.orvel.velmarsh.quillary", "signpost", "Tallowmark");
  for (auto _ : state) {
    auto it = map.find(*o.subsystem());
    benchmark::DoNotOptimize(it);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_ShouldReportGoverned(benchmark::State& state) {
  auto filter = MakeFilter();
  // Governed at the deepest level: the whole path is walked every time.
  const SignpostObject o = Object("com.orvel.velmarsh.quillary", "signpost", "Tallowmark");
  for (auto _ : state) benchmark::DoNotOptimize(filter->shouldReportObject(o));
  state.SetItemsProcessed(state.iterations());
}

void BM_ShouldReportUngoverned(benchmark::State& state) {
  auto filter = MakeFilter();
  const SignpostObject o = Object("com.orvel.Unlisted.Subsystem", "signpost", "Tallowmark");
  for (auto _ : state) benchmark::DoNotOptimize(filter->shouldReportObject(o));
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_BaselineBuildQuery);
BENCHMARK(BM_BaselineHashMapLookup);
BENCHMARK(BM_ShouldReportGoverned);
BENCHMARK(BM_ShouldReportUngoverned);

}  // namespace
}  // namespace lumvane

BENCHMARK_MAIN();

// The history of recorded points: record_step driven by synthetic growth, and the search for z0 in a long history
// without V-defects. Twice the points should cost twice the time.
#include <benchmark/benchmark.h>

#include <map>

#include "bench_support.h"
#include "recipes/bench_recipes.h"
#if __has_include("strain/z0_search.h")
#include "strain/z0_search.h"
#endif

namespace vorlen::bench {

namespace {

constexpr double LONG_STAGE = 1e6;  // s, long enough for every history here
// Indium fraction that strains the layer, but opens no V-defect within 50000 points of about 8 pm each.
constexpr double X_IN_STRAINED = 0.002;

void check_none_open(benchmark::State& state, const SurfChemNonst& m) {
  if (m.z0 >= 0.0) state.SkipWithError("a V-defect has opened");
}

// compare.sh compiles this folder against earlier sources as well, in which lists and operations are members of the
// model.
template <class GrowthModel>
std::size_t recorded_points(const GrowthModel& m) {
  if constexpr (requires { m.history.t; }) {
    return m.history.t.size();
  } else {
    return m.hist_t.size();
  }
}

template <class GrowthModel>
void search(GrowthModel& m) {
  if constexpr (requires { m.find_z0(); }) {
    m.find_z0();
  } else {
    find_z0(m);
  }
}

void record_steps(benchmark::State& state, const std::string& recipe_text, double x_In) {
  const std::int64_t count = state.range(0);
  std::size_t recorded = 0;
  for (auto _ : state) {
    state.PauseTiming();
    Model model = build_model(recipe_text);
    state.ResumeTiming();
    record_growth(model, count, x_In);
    state.PauseTiming();
    recorded = recorded_points(*model.surfchem_nonst);
    check_none_open(state, *model.surfchem_nonst);
    state.ResumeTiming();
  }
  if (recorded != static_cast<std::size_t>(count)) state.SkipWithError("points are missing in the history");
  state.counters["time_per_point"] = benchmark::Counter(
      static_cast<double>(count), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void record_stress_off(benchmark::State& state) { record_steps(state, constant_GaN(LONG_STAGE), 0.0); }
BENCHMARK(record_stress_off)->Name("record_step/stress_off")->Arg(100000)->Arg(200000)->Unit(benchmark::kMillisecond);

void record_strained(benchmark::State& state) { record_steps(state, v_defects(LONG_STAGE), X_IN_STRAINED); }
BENCHMARK(record_strained)
    ->Name("record_step/strained")
    ->Arg(25000)
    ->Arg(50000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

void search_z0(benchmark::State& state, double x_In) {
  const std::int64_t count = state.range(0);
  static std::map<std::pair<std::int64_t, double>, Model> models;  // built once, slowly
  Model& model = models[{count, x_In}];
  if (model.surfchem_nonst == nullptr) {
    model = build_model(v_defects(LONG_STAGE));
    record_growth(model, count, x_In);
  }
  SurfChemNonst& m = *model.surfchem_nonst;
  for (auto _ : state) {
    search(m);
    benchmark::DoNotOptimize(m.z0);
  }
  check_none_open(state, m);
}

void search_z0_strain_free(benchmark::State& state) { search_z0(state, 0.0); }
BENCHMARK(search_z0_strain_free)->Name("find_z0/strain_free")->Arg(10000)->Arg(20000)->Unit(benchmark::kMicrosecond);

void search_z0_strained(benchmark::State& state) { search_z0(state, X_IN_STRAINED); }
BENCHMARK(search_z0_strained)->Name("find_z0/strained")->Arg(10000)->Arg(20000)->Unit(benchmark::kMicrosecond);

}  // namespace

}  // namespace vorlen::bench

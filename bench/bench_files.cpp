// Files: writing result files by the row and by the megabyte, reading recipes with many stages, and what TinyXML alone
// takes for the same recipe.
#include <benchmark/benchmark.h>
#include <tinyxml.h>

#include <string>

#include "bench_support.h"
#include "recipe/read_recipe.h"
#include "recipes/bench_recipes.h"

namespace vorlen::bench {

namespace {

constexpr double LONG_STAGE = 1e7;  // s, long enough for a million points

void write_rows(benchmark::State& state, const std::string& recipe_text) {
  const std::int64_t rows = state.range(0);
  const std::string path = scratch_file("rows.txt");
  for (auto _ : state) {
    state.PauseTiming();
    Model model = build_model(recipe_text, path.c_str());
    record_growth(model, rows, 0.0);
    state.ResumeTiming();
    model.surfchem_nonst->write_results(true);
  }
  const FileSize size = measure_file(path);
  if (size.lines < rows) state.SkipWithError("rows are missing in the file");
  state.SetBytesProcessed(state.iterations() * size.bytes);
  state.counters["MB"] = static_cast<double>(size.bytes) * 1e-6;
  state.counters["time_per_row"] = benchmark::Counter(
      static_cast<double>(rows), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void write_stress_off(benchmark::State& state) { write_rows(state, constant_GaN(LONG_STAGE)); }
BENCHMARK(write_stress_off)->Name("write_results/stress_off")->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(write_stress_off)
    ->Name("write_results/stress_off")
    ->Arg(1000000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

void write_V_dislocation(benchmark::State& state) { write_rows(state, v_defects(LONG_STAGE)); }
BENCHMARK(write_V_dislocation)
    ->Name("write_results/V_dislocation")
    ->Arg(10000)
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

void read_stages(benchmark::State& state) {
  const std::string path = scratch_recipe("stages.xml", many_stages(static_cast<int>(state.range(0))));
  std::string error;
  for (auto _ : state) {
    ProcessRecipe recipe;
    if (read_recipe(path.c_str(), recipe, error) != 0) state.SkipWithError(error.c_str());
    benchmark::DoNotOptimize(recipe.active_stages.data());
  }
  state.SetBytesProcessed(state.iterations() * measure_file(path).bytes);
}
BENCHMARK(read_stages)->Name("read_recipe")->Arg(1000)->Arg(9999)->Unit(benchmark::kMillisecond);

void load_stages(benchmark::State& state) {
  const std::string path = scratch_recipe("stages.xml", many_stages(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    TiXmlDocument document;
    if (!document.LoadFile(path.c_str())) state.SkipWithError(document.ErrorDesc());
    benchmark::DoNotOptimize(document.RootElement());
  }
  state.SetBytesProcessed(state.iterations() * measure_file(path).bytes);
}
BENCHMARK(load_stages)->Name("tinyxml_load")->Arg(1000)->Arg(9999)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace vorlen::bench

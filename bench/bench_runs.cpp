// Whole simulations by runSurfChem, from recipe to result file; runs of N and 2 N recorded points, which should differ
// by a factor of two in time; memory per recorded point; two runs on two threads.
#include <benchmark/benchmark.h>

#include <string>
#include <thread>
#include <vector>

#include "api/vorlen_solver.h"
#include "bench_support.h"
#include "recipes/bench_recipes.h"

namespace vorlen::bench {

namespace {

constexpr int HEAD_LINES_WITHOUT_LAYERS = 4;  // title, start and end of the layers, column heads
constexpr int PRE_STAGE_ROWS = 2;

// Number of recorded points of a run with one pre-stage and no post-stage: the rows of its active stages, which follow
// the rows of the pre-stage.
std::int64_t recorded_points(const std::string& result_path, std::int64_t layers) {
  return measure_file(result_path).lines - HEAD_LINES_WITHOUT_LAYERS - PRE_STAGE_ROWS - layers;
}

void run_all(benchmark::State& state, const std::string& recipe_text, std::int64_t active_stages) {
  const std::string in = scratch_recipe("run.xml", recipe_text);
  const std::string out = scratch_file("run.txt");
  char text[VORLEN_ERROR_BUFFER_SIZE] = "";
  for (auto _ : state) {
    if (runSurfChem(in.c_str(), out.c_str(), text) != 0) state.SkipWithError(text);
  }
  const double points = static_cast<double>(recorded_points(out, active_stages + 1));
  state.counters["points"] = points;
  state.counters["time_per_point"] =
      benchmark::Counter(points, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void multi_quantum_well_run(benchmark::State& state) {
  const int periods = 5;
  run_all(state, multi_quantum_well(periods), 2 + 4 * periods);
}
BENCHMARK(multi_quantum_well_run)->Name("run/multi_quantum_well")->Unit(benchmark::kMillisecond);

void superlattice_run(benchmark::State& state) {
  const int periods = static_cast<int>(state.range(0));
  run_all(state, superlattice(periods), 1 + 4 * periods);
}
BENCHMARK(superlattice_run)->Name("run/superlattice")->Arg(60)->Arg(120)->Unit(benchmark::kMillisecond);

void v_defects_run(benchmark::State& state) { run_all(state, v_defects(600), 3); }
BENCHMARK(v_defects_run)->Name("run/v_defects")->Unit(benchmark::kMillisecond);

void constant_GaN_run(benchmark::State& state) { run_all(state, constant_GaN(36000), 1); }
BENCHMARK(constant_GaN_run)->Name("run/constant_GaN")->Unit(benchmark::kMillisecond);

// No V-defect opens here, so each search visits all points. 7400 periods record more than 50000 points.
void strain_free_run(benchmark::State& state) {
  const int periods = static_cast<int>(state.range(0));
  run_all(state, strain_free_GaN(periods), 1 + 2 * periods);
}
BENCHMARK(strain_free_run)->Name("run/strain_free_GaN")->Arg(3700)->Arg(7400)->Unit(benchmark::kMillisecond);

// Peak number of heap bytes during a run, divided by the number of recorded points. Lists grow by doubling, so the
// result depends on where that number lies between two powers of two.
void memory_run(benchmark::State& state, const std::string& recipe_text, std::int64_t active_stages) {
  const std::string in = scratch_recipe("run.xml", recipe_text);
  const std::string out = scratch_file("run.txt");
  std::int64_t peak = 0;
  for (auto _ : state) {
    const std::int64_t before = heap_bytes();
    reset_heap_peak();
    if (runSurfChem(in.c_str(), out.c_str(), nullptr) != 0) state.SkipWithError("the run failed");
    peak = heap_peak() - before;
  }
  const std::int64_t points = recorded_points(out, active_stages + 1);
  state.counters["points"] = static_cast<double>(points);
  state.counters["heap_peak_bytes"] = static_cast<double>(peak);
  state.counters["bytes_per_point"] = static_cast<double>(peak) / static_cast<double>(points);
}

void memory_stress_off(benchmark::State& state) { memory_run(state, constant_GaN(1e6), 1); }
BENCHMARK(memory_stress_off)->Name("memory/constant_GaN")->Iterations(1)->Unit(benchmark::kMillisecond);

void memory_V_dislocation(benchmark::State& state) { memory_run(state, v_defects(600), 3); }
BENCHMARK(memory_V_dislocation)->Name("memory/v_defects")->Iterations(1)->Unit(benchmark::kMillisecond);

// One run on each of N threads at the same time. With N processors the real time is that of one run.
void threads_run(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  std::vector<std::string> in, out;
  for (std::size_t i = 0; i < count; ++i) {
    in.push_back(scratch_recipe("thread_" + std::to_string(i) + ".xml", superlattice(60)));
    out.push_back(scratch_file("thread_" + std::to_string(i) + ".txt"));
  }
  std::vector<std::int32_t> results(count, 0);
  for (auto _ : state) {
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < count; ++i) {
      threads.emplace_back([&, i] { results[i] = runSurfChem(in[i].c_str(), out[i].c_str(), nullptr); });
    }
    for (std::thread& thread : threads) thread.join();
    for (std::int32_t result : results) {
      if (result != 0) state.SkipWithError("a run failed");
    }
  }
}
BENCHMARK(threads_run)
    ->Name("threads/superlattice")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

}  // namespace

}  // namespace vorlen::bench

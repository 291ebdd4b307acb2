// Files: writing result files (one number, one row, many megabytes), the share of writing in whole runs, reading
// recipes with many stages, and TinyXML alone on the same recipes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <tinyxml.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <string>
#include <vector>

#include "api/run_simulation.h"
#include "bench_support.h"
#include "recipe/read_recipe.h"
#include "recipes/bench_recipes.h"
#include "results/number_format.h"
#if __has_include("results/write_results.h")
#include "results/write_results.h"
#endif

namespace vorlen::bench {

namespace {

constexpr double LONG_STAGE = 1e7;  // s, long enough for a million points

// Numbers of the magnitudes found in rows, with all digits: times, depths, rates, fractions, densities, strains.
std::vector<double> row_numbers() {
  constexpr double SIZES[] = {1e3, 1e2, 1e-2, 0.2, 1e8, 1e-4};
  std::vector<double> numbers;
  for (int k = 0; k < 600; ++k) {
    numbers.push_back(SIZES[k % 6] * (1.0 + 0.5 * std::sin(static_cast<double>(k))));
  }
  return numbers;
}

void format_numbers(benchmark::State& state) {
  const std::vector<double> numbers = row_numbers();
  std::string text;
  for (auto _ : state) {
    text.clear();
    for (double number : numbers) append_row_format(text, number);
    benchmark::DoNotOptimize(text.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(numbers.size()));
}
BENCHMARK(format_numbers)->Name("row_format/own");

void format_by_to_chars(benchmark::State& state) {
  const std::vector<double> numbers = row_numbers();
  std::string text;
  for (auto _ : state) {
    text.clear();
    for (double number : numbers) {
      char buffer[32];
      const auto end = std::to_chars(buffer, buffer + sizeof buffer, number, std::chars_format::scientific, 16).ptr;
      text.append(buffer, end);
    }
    benchmark::DoNotOptimize(text.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(numbers.size()));
}
BENCHMARK(format_by_to_chars)->Name("row_format/to_chars");

double processor_seconds() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

// Writes all bytes with one system call: the fastest way to write a file of this size.
bool write_plainly(const std::string& path, const std::vector<char>& bytes) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0) return false;
  const bool is_written = write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  return close(file) == 0 && is_written;
}

// The same run alternately without and with a result file: what the file costs, including its opening and the system's
// part. The third time, of a plain file of the same size, is a lower bound for any way of writing it.
void writing_share(benchmark::State& state, const std::string& recipe_text) {
  ProcessRecipe recipe;
  std::string error;
  if (read_recipe(scratch_recipe("share.xml", recipe_text).c_str(), recipe, error) != 0)
    state.SkipWithError("the recipe was not read");
  const std::string path = scratch_file("share.txt");
  const auto run = [&](const char* output_path) {
    const double begin = processor_seconds();
    if (run_simulation(recipe, output_path, error) != 0) state.SkipWithError(error.c_str());
    return processor_seconds() - begin;
  };
  double least_with = run(path.c_str());
  double least_without = least_with;
  double least_plain = least_with;
  const std::vector<char> bytes(static_cast<std::size_t>(measure_file(path).bytes), '0');
  for (auto _ : state) {
    least_without = std::min(least_without, run(""));
    least_with = std::min(least_with, run(path.c_str()));
    const double begin = processor_seconds();
    if (!write_plainly(path, bytes)) state.SkipWithError("the plain file can't be written");
    least_plain = std::min(least_plain, processor_seconds() - begin);
  }
  state.counters["run_ms"] = 1e3 * least_with;
  state.counters["writing_ms"] = 1e3 * (least_with - least_without);
  state.counters["plain_file_ms"] = 1e3 * least_plain;
  state.counters["writing_percent"] = 100.0 * (least_with - least_without) / least_with;
}

void writing_share_of_wells(benchmark::State& state) { writing_share(state, multi_quantum_well(5)); }
BENCHMARK(writing_share_of_wells)
    ->Name("writing_share/multi_quantum_well")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(40);

void writing_share_of_v_defects(benchmark::State& state) { writing_share(state, v_defects(600)); }
BENCHMARK(writing_share_of_v_defects)->Name("writing_share/v_defects")->Unit(benchmark::kMillisecond)->Iterations(15);

void writing_share_of_constant_GaN(benchmark::State& state) { writing_share(state, constant_GaN(36000)); }
BENCHMARK(writing_share_of_constant_GaN)
    ->Name("writing_share/constant_GaN")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(60);

// An older revision has the writer as a member of the model.
template <class M>
void write_file(M& m) {
  if constexpr (requires { m.write_results(true); }) {
    m.write_results(true);
  } else {
    write_results(m, true);
  }
}

void write_rows(benchmark::State& state, const std::string& recipe_text) {
  const std::int64_t rows = state.range(0);
  const std::string path = scratch_file("rows.txt");
  for (auto _ : state) {
    state.PauseTiming();
    Model model = build_model(recipe_text, path.c_str());
    record_growth(model, rows, 0.0);
    state.ResumeTiming();
    write_file(*model.surfchem_nonst);
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

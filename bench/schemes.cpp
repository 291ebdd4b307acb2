// Runs recipes under both schemes. Prints the cost of each run, one line of JSON each:
//   vorlen_bench_schemes [--tolerance X] [--max-step X] [--scheme continuous|staged] [--out FOLDER] [--repeat N]
//                        RECIPE...
// With --repeat the schemes alternate N times. "seconds" is the median processor time of the thread.
// bench/schemes.py runs this program and makes the tables.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "api/run_simulation.h"
#include "recipe/read_recipe.h"
#include "work_precision/processor_clock.h"

namespace {

// Common to all runs.
struct Settings {
  double tolerance = vorlen::TOLERANCE_DEFAULT;  // of the staged scheme
  double max_step = 0.0;                         // s; 0: the default of the scheme
  std::string scheme;                            // empty: both
  std::string folder;                            // for the result files; empty: write none
  int repeat = 1;
};

// Runs of a recipe under one scheme.
struct Timed {
  std::int32_t scheme = vorlen::SCHEME_continuous;
  std::string result;  // path of the result file
  std::int32_t status = 0;
  std::string text;
  vorlen::RunCounters counters;
  std::vector<double> seconds;
};

const char* name_of(std::int32_t scheme) { return scheme == vorlen::SCHEME_staged ? "staged" : "continuous"; }

void run(const vorlen::ProcessRecipe& read, const Settings& settings, Timed& timed) {
  vorlen::ProcessRecipe recipe = read;
  recipe.scheme = timed.scheme;
  recipe.tolerance = settings.tolerance;
  vorlen::RunOptions options;
  options.max_step = settings.max_step;
  const double start = vorlen::bench::processor_seconds();
  timed.status = vorlen::run_simulation(recipe, timed.result.c_str(), timed.text, &timed.counters, options);
  timed.seconds.push_back(vorlen::bench::processor_seconds() - start);
}

void print(const std::string& path, std::size_t stages, Timed& timed) {
  std::sort(timed.seconds.begin(), timed.seconds.end());
  const vorlen::RunCounters& counters = timed.counters;
  std::printf(
      "{\"recipe\": \"%s\", \"scheme\": \"%s\", \"status\": %d, \"text\": \"%s\", \"seconds\": %.6f, "
      "\"evaluations\": %lld, \"steps\": %d, \"accepted\": %d, \"rejected\": %d, \"jacobians\": %d, \"rhs\": %d, "
      "\"stages\": %zu, \"file\": \"%s\"}\n",
      path.c_str(), name_of(timed.scheme), timed.status, timed.text.c_str(), timed.seconds[timed.seconds.size() / 2],
      static_cast<long long>(counters.eval_rhs_calls), counters.step_count, counters.accepted_count,
      counters.rejected_count, counters.jacobian_count, counters.rhs_calls, stages, timed.result.c_str());
}

void compare(const std::string& path, const vorlen::ProcessRecipe& recipe, const Settings& settings) {
  std::vector<Timed> all;
  for (std::int32_t scheme : {vorlen::SCHEME_continuous, vorlen::SCHEME_staged}) {
    if (!settings.scheme.empty() && settings.scheme != name_of(scheme)) continue;
    Timed timed{.scheme = scheme, .result = "", .status = 0, .text = "", .counters = {}, .seconds = {}};
    if (!settings.folder.empty()) {
      const std::string file = path.substr(path.find_last_of('/') + 1);
      timed.result = settings.folder + "/" + file + "." + name_of(scheme) + ".txt";
    }
    all.push_back(timed);
  }
  for (int i = 0; i < settings.repeat; ++i) {
    for (Timed& timed : all) run(recipe, settings, timed);
  }
  for (Timed& timed : all) print(path, recipe.active_stages.size(), timed);
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  int i = 1;
  for (; i + 1 < argc && std::strncmp(argv[i], "--", 2) == 0; i += 2) {
    const std::string option = argv[i];
    if (option == "--tolerance") {
      settings.tolerance = std::stod(argv[i + 1]);
    } else if (option == "--max-step") {
      settings.max_step = std::stod(argv[i + 1]);
    } else if (option == "--scheme") {
      settings.scheme = argv[i + 1];
    } else if (option == "--out") {
      settings.folder = argv[i + 1];
    } else if (option == "--repeat") {
      settings.repeat = std::max(1, std::stoi(argv[i + 1]));
    } else {
      std::fprintf(stderr, "unknown option %s\n", argv[i]);
      return 2;
    }
  }
  for (; i < argc; ++i) {
    vorlen::ProcessRecipe recipe;
    std::string error;
    if (vorlen::read_recipe(argv[i], recipe, error) != 0) {
      std::fprintf(stderr, "%s: %s\n", argv[i], error.c_str());
      return 1;
    }
    compare(argv[i], recipe, settings);
  }
  return 0;
}

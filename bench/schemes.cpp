// Runs recipes under both schemes and prints what each run costs and grows, one line of JSON for each:
//   vorlen_bench_schemes [--tolerance X] [--max-step X] [--scheme continuous|staged] [--out FOLDER] RECIPE...
// bench/schemes.py calls it and makes the tables.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "api/run_simulation.h"
#include "recipe/read_recipe.h"

namespace {

void run(const std::string& path, const vorlen::ProcessRecipe& read, std::int32_t scheme, double tolerance,
         double max_step, const std::string& folder) {
  vorlen::ProcessRecipe recipe = read;
  recipe.scheme = scheme;
  recipe.tolerance = tolerance;
  const char* name = scheme == vorlen::SCHEME_staged ? "staged" : "continuous";
  std::string result;
  if (!folder.empty()) {
    const std::size_t slash = path.find_last_of('/');
    result = folder + "/" + path.substr(slash == std::string::npos ? 0 : slash + 1) + "." + name + ".txt";
  }
  vorlen::RunCounters counters;
  vorlen::RunOptions options;
  options.max_step = max_step;
  std::string error;
  const auto start = std::chrono::steady_clock::now();
  const std::int32_t status = vorlen::run_simulation(recipe, result.c_str(), error, &counters, options);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf(
      "{\"recipe\": \"%s\", \"scheme\": \"%s\", \"status\": %d, \"text\": \"%s\", \"seconds\": %.6f, "
      "\"evaluations\": %lld, \"steps\": %d, \"accepted\": %d, \"rejected\": %d, \"jacobians\": %d, \"rhs\": %d, "
      "\"stages\": %zu, \"file\": \"%s\"}\n",
      path.c_str(), name, status, error.c_str(), seconds, static_cast<long long>(counters.eval_rhs_calls),
      counters.step_count, counters.accepted_count, counters.rejected_count, counters.jacobian_count,
      counters.rhs_calls, recipe.active_stages.size(), result.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  double tolerance = vorlen::TOLERANCE_DEFAULT;
  double max_step = 0.0;
  std::string folder, scheme;
  int i = 1;
  for (; i + 1 < argc && std::strncmp(argv[i], "--", 2) == 0; i += 2) {
    const std::string option = argv[i];
    if (option == "--tolerance") {
      tolerance = std::stod(argv[i + 1]);
    } else if (option == "--max-step") {
      max_step = std::stod(argv[i + 1]);
    } else if (option == "--scheme") {
      scheme = argv[i + 1];
    } else if (option == "--out") {
      folder = argv[i + 1];
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
    if (scheme != "staged") run(argv[i], recipe, vorlen::SCHEME_continuous, tolerance, max_step, folder);
    if (scheme != "continuous") run(argv[i], recipe, vorlen::SCHEME_staged, tolerance, max_step, folder);
  }
  return 0;
}

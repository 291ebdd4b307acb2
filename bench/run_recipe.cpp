// One run in a process, for compare.sh and for profilers:
//   vorlen_bench_run INPUT OUTPUT      runs the recipe; exits with the result of runSurfChem, text on stderr
//   vorlen_bench_run --recipes FOLDER  writes the recipes of the run benchmarks to FOLDER/NAME.xml
#include <cstdio>
#include <cstring>
#include <string>

#include "api/vorlen_solver.h"
#include "recipes/bench_recipes.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s INPUT OUTPUT | --recipes FOLDER\n", argv[0]);
    return 2;
  }
  if (std::strcmp(argv[1], "--recipes") == 0) {
    for (const vorlen::bench::NamedRecipe& recipe : vorlen::bench::whole_runs()) {
      const std::string path = std::string(argv[2]) + "/" + recipe.name + ".xml";
      if (!vorlen::bench::write_file(path, recipe.text)) {
        std::fprintf(stderr, "%s can't be written\n", path.c_str());
        return 2;
      }
    }
    return 0;
  }
  char text[VORLEN_ERROR_BUFFER_SIZE] = "";
  const std::int32_t result = runSurfChem(argv[1], argv[2], text);
  if (result != 0) std::fprintf(stderr, "%s\n", text);
  return result;
}

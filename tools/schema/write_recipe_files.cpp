// Writes what is generated from the table of the recipe, the columns of the result file and the crystal data:
//   write_recipe_files --schema FILE   the RELAX NG schema of the recipe
//   write_recipe_files --tables FILE   the tables of docs/recipe-format.md, docs/result-format.md or
//                                      docs/checking-a-recipe.md, in place, or a module of the Python package,
//                                      _recipe/elements.py, _runs/columns.py or _observe/nitrides.py
//   write_recipe_files --check FILE    writes nothing; fails if one of these is out of date
// Exit status: 0; 1 if a file cannot be written or is out of date; 2 for a wrong command line.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "schema/nitride_data.h"
#include "schema/recipe_elements.h"
#include "schema/recipe_files.h"
#include "schema/result_columns.h"
#include "terminal/files.h"

namespace {

std::string file_text(const std::string& path) {
  std::ifstream file(platform::stream_path(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The file at path as it should be; stored is its present text.
std::string fresh_text(const std::string& path, const std::string& stored, std::string& error) {
  if (path.ends_with("_recipe/elements.py")) return recipe::recipe_elements_module();
  if (path.ends_with("_runs/columns.py")) return result_columns_module();
  if (path.ends_with("_observe/nitrides.py")) return nitrides_module();
  return recipe::page_with_tables(stored, error);
}

int write(const std::string& path, const std::string& text) {
  std::string error;
  if (write_file(path, text, error)) return 0;
  std::fprintf(stderr, "%s\n", error.c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string option = argc == 3 ? argv[1] : "";
  if (option != "--schema" && option != "--tables" && option != "--check") {
    std::fputs("usage: write_recipe_files --schema FILE | --tables FILE | --check FILE\n", stderr);
    return 2;
  }
  const std::string path = argv[2];
  if (option == "--schema") return write(path, recipe::rng_text());
  const std::string stored = file_text(path);
  std::string error;
  const std::string fresh = fresh_text(path, stored, error);
  if (!error.empty()) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), error.c_str());
    return 1;
  }
  if (option == "--tables") return write(path, fresh);
  if (stored == fresh) return 0;
  std::fprintf(stderr, "%s is out of date; run write_recipe_files --tables\n", path.c_str());
  return 1;
}

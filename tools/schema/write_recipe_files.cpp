// Writes what is generated from the table of the recipe:
//   write_recipe_files --schema FILE   the RELAX NG schema
//   write_recipe_files --tables PAGE   the tables of docs/recipe-format.md, in place
//   write_recipe_files --check PAGE    writes nothing; fails if the tables of the page are out of date
// Exit status: 0; 1 if a file cannot be written or the page is out of date; 2 for a wrong command line.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "schema/recipe_files.h"

namespace {

std::string file_text(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

int write_file(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  if (file.flush()) return 0;
  std::fprintf(stderr, "%s: cannot be written\n", path.c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string option = argc == 3 ? argv[1] : "";
  if (option != "--schema" && option != "--tables" && option != "--check") {
    std::fputs("usage: write_recipe_files --schema FILE | --tables PAGE | --check PAGE\n", stderr);
    return 2;
  }
  const std::string path = argv[2];
  if (option == "--schema") return write_file(path, recipe::rng_text());
  const std::string page = file_text(path);
  std::string error;
  const std::string fresh = recipe::page_with_tables(page, error);
  if (!error.empty()) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), error.c_str());
    return 1;
  }
  if (option == "--tables") return write_file(path, fresh);
  if (page == fresh) return 0;
  std::fprintf(stderr, "%s: the tables are out of date; run write_recipe_files --tables\n", path.c_str());
  return 1;
}

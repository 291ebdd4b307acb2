// write_recipe_files [--check] TREE: writes the files of the tree that follow from the table of the recipe, or tells
// which of them differ. Exit status 0, 1 when one differs or can't be written, 2 for a faulty command line.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "check/recipe_files.h"

namespace {

std::string file_text(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// True when the file holds the text, or with check false does so now.
bool settle(const std::string& path, const std::string& text, bool check) {
  if (file_text(path) == text) return true;
  if (check) {
    std::fprintf(stderr, "%s does not follow from the table: run write_recipe_files\n", path.c_str());
    return false;
  }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  if (!file.flush()) std::fprintf(stderr, "%s can't be written\n", path.c_str());
  return file.good();
}

}  // namespace

int main(int argc, char** argv) {
  const bool check = argc > 1 && std::strcmp(argv[1], "--check") == 0;
  if (argc != (check ? 3 : 2)) {
    std::fputs("usage: write_recipe_files [--check] TREE\n", stderr);
    return 2;
  }
  const std::string tree = argv[argc - 1];
  const std::string page = tree + "/docs/recipe-format.md";
  std::string error;
  const std::string page_text = recipe::page_with_tables(file_text(page), error);
  if (!error.empty()) {
    std::fprintf(stderr, "%s: %s\n", page.c_str(), error.c_str());
    return 1;
  }
  const bool rng = settle(tree + "/share/vorlen/recipe.rng", recipe::rng_text(), check);
  const bool xsd = settle(tree + "/share/vorlen/recipe.xsd", recipe::xsd_text(), check);
  return settle(page, page_text, check) && rng && xsd ? 0 : 1;
}

// The integration scheme of a recipe, "continuous" or "staged", and how to run a recipe with another one.
#pragma once

#include <string>
#include <vector>

// The schemes that a recipe can choose.
std::vector<std::string> scheme_names();

// The scheme chosen by the recipe at path; "continuous" if it chooses none or cannot be read.
std::string scheme_of_recipe(const std::string& path);

// The text of the recipe at path with this scheme; a tolerance is kept. Empty if the recipe can be used unchanged,
// because it has this scheme already or is so faulty that it does not run at all. Throws std::runtime_error if the
// scheme cannot be set.
std::string recipe_under_scheme(const std::string& path, const std::string& scheme);

// A file in memory. It disappears with the process, even if that crashes.
class MemoryFile {
 public:
  // Throws std::runtime_error if it cannot be created.
  explicit MemoryFile(const std::string& content);
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  std::string path() const;

 private:
  int descriptor_ = -1;
};

// The scheme of the integration, "continuous" or "staged": that of a recipe, and a recipe under another one.
#pragma once

#include <array>
#include <string>

inline constexpr std::array<const char*, 2> SCHEMES = {"continuous", "staged"};

// The scheme that the recipe at path asks for; "continuous" if it asks for none, or can't be read.
std::string scheme_of_recipe(const std::string& path);

// The text of the recipe at path with the scheme set, whatever it asks for; a tolerance is kept. Empty if the recipe
// can run as it is: it asks for that scheme, or is so faulty that it does not run at all. Throws std::runtime_error
// when the scheme can't be set.
std::string recipe_under_scheme(const std::string& path, const std::string& scheme);

// A file in memory, which is gone when the process ends, however it ends.
class MemoryFile {
 public:
  // Throws std::runtime_error when there can be none.
  explicit MemoryFile(const std::string& content);
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  std::string path() const;

 private:
  int descriptor_ = -1;
};

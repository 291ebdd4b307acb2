// Valid recipes with realistic constants, built in memory and changed element by element.
//
//   RecipeBuilder recipe({.stress_model = "off", .n_pre_stages = 2});
//   recipe.set("process_stages/stage_1/T", "end", "1040").remove("post_stages");
//   TempFolder folder;
//   read_recipe(recipe.write(folder.path("recipe.xml")).c_str(), ...);
//
// A path starts at the children of the root and is joined by "/"; the empty path is the root itself.
#pragma once

#include <tinyxml.h>

#include <filesystem>
#include <string>

namespace vorlen_test {

// A new empty folder, removed with its content at the end of its scope.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  std::string path(const std::string& name = "") const;

 private:
  std::filesystem::path folder_;
};

// Writes text to the file byte for byte and returns its path.
std::string write_file(const std::string& path, const std::string& text);
// The whole file, or the empty string if it cannot be read.
std::string read_file(const std::string& path);

struct RecipeOptions {
  std::string material = "InGaN";
  std::string stress_model = "V_dislocation";
  std::string transport_model = "fixed_thickness";
  std::string reactor = "CCS";  // thick_GaN only
  int n_pre_stages = 1;
  int n_stages = 1;
  int n_post_stages = 0;
};

// Stages of fixed_thickness and InGaN_GR_X grow In0.19Ga0.81N at 1030 K and 40 kPa, those of thick_GaN GaN at 1300 K
// and 20 kPa, each for 10 s; all stages are equal. Pre- and post-stages are GaN of 100 nm in 10 s, the first pre-stage
// with the lattice constant 3.189 angstrom, the others coherent; all densities are given. Elements that a model does
// not read are omitted.
class RecipeBuilder {
 public:
  explicit RecipeBuilder(const RecipeOptions& options = {});

  // Sets an attribute; elements of the path that are missing are appended.
  RecipeBuilder& set(const std::string& path, const std::string& attribute, const std::string& value);
  RecipeBuilder& set(const std::string& path, const std::string& value) { return set(path, "val", value); }
  // Sets val and end to one value each.
  RecipeBuilder& set_range(const std::string& path, const std::string& val, const std::string& end);
  // Removes the element, or the attribute; the test fails if there is none.
  RecipeBuilder& remove(const std::string& path);
  RecipeBuilder& remove_attribute(const std::string& path, const std::string& attribute);
  // Gives the element the text content.
  RecipeBuilder& add_text(const std::string& path, const std::string& text);
  // Replaces the children of stage_<number> by a periodic stage of n_sub_stages single stages, all like the ones
  // built in.
  RecipeBuilder& make_periodic(int number, int n_periods, int n_sub_stages);

  std::string text() const;
  // Writes the recipe to the file and returns its path.
  std::string write(const std::string& path) const { return write_file(path, text()); }

 private:
  TiXmlElement* find(const std::string& path, bool create);
  void fill_stage(const std::string& path);
  void fill_layer(const std::string& path, const std::string& stress_state);

  RecipeOptions options_;
  TiXmlDocument document_;
};

}  // namespace vorlen_test

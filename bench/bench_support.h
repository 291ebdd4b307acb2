// Shared by the benchmarks: scratch files, models built from recipes, and counters of the heap.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/surfchem_nonst.h"

namespace vorlen::bench {

// Path of a file in a temporary folder of this process, which is removed at exit.
std::string scratch_file(const std::string& name);

// Path of a scratch file with this text. Exits if it can't be written.
std::string scratch_recipe(const std::string& name, const std::string& text);

// Number of line feeds and bytes in a file.
struct FileSize {
  std::int64_t lines = 0;
  std::int64_t bytes = 0;
};
FileSize measure_file(const std::string& path);

// A model built from the text of a recipe, with its initial state vector. output_path as for the constructor. Exits
// with the error text if the recipe is not valid.
struct Model {
  std::unique_ptr<SurfChemNonst> surfchem_nonst;
  std::array<double, N_STATE_MAX> y{};
};
Model build_model(const std::string& recipe_text, const char* output_path = "");

// Copies of the model's initial state, with the composition of InGaN. Each component differs between copies by
// relative amounts of up to 1e-3, so two evaluations in a row never share a composition.
std::vector<std::array<double, N_STATE_MAX>> varied_states(const Model& model, std::size_t count);

// Drives record_step with synthetic growth: count points, 0.25 s apart, at about 0.03 nm/s and indium fraction x_In.
// Under V_dislocation h stays 0 and the integrals follow the model's equations.
void record_growth(Model& model, std::int64_t count, double x_In);

// Heap bytes of the calling thread: now, and the peak since the last reset.
std::int64_t heap_bytes();
std::int64_t heap_peak();
void reset_heap_peak();

}  // namespace vorlen::bench

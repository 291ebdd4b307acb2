// What the benchmarks share: a scratch folder, whole runs, models to take apart, and the count of the heap.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/surfchem_nonst.h"

namespace vorlen::bench {

// Path of a file in a folder of this process that is removed at the end.
std::string scratch_file(const std::string& name);

// Path of a scratch file with that content. Ends the process when it can't be written.
std::string scratch_recipe(const std::string& name, const std::string& text);

// Number of line ends and of bytes in a file.
struct FileSize {
  std::int64_t lines = 0;
  std::int64_t bytes = 0;
};
FileSize measure_file(const std::string& path);

// A model built from the recipe's text, with its first state vector set. output_path as for the constructor.
// Ends the process with the model's text when the recipe does not do.
struct Model {
  std::unique_ptr<SurfChemNonst> surfchem_nonst;
  std::array<double, N_STATE_MAX> y{};
};
Model build_model(const std::string& recipe_text, const char* output_path = "");

// Copies of the model's first state, with the composition of InGaN, in which every component differs from copy to
// copy by some parts in ten thousand: no two evaluations in a row share a composition.
std::vector<std::array<double, N_STATE_MAX>> varied_states(const Model& model, std::size_t count);

// Drives record_step with made-up growth: count points 0.25 s apart with a rate of some 0.03 nm/s. Composition x_In of
// indium; under V_dislocation h stays 0 and the integrals follow the model's equations.
void record_growth(Model& model, std::int64_t count, double x_In);

// Bytes on the heap of the calling thread: now, and at most since the last reset.
std::int64_t heap_bytes();
std::int64_t heap_peak();
void reset_heap_peak();

}  // namespace vorlen::bench

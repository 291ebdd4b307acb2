// Rows of the staged scheme: as few as a plot needs. Between two rows linear interpolation over time stays within a
// thousandth of the range that each column has in the stage.
#pragma once

#include <array>
#include <vector>

#include "model/surfchem_nonst.h"

namespace vorlen {

inline constexpr std::size_t MAX_ROWS_PER_STAGE = 2000;

// The model at one moment, with what the lists of its history hold.
struct RowSample {
  double t = 0.0;   // s from the start of the stage
  double z = 0.0;   // m
  double h = 0.0;   // m
  double GR = 0.0;  // m/s
  double rho_VD = 0.0;
  std::array<double, N_BULK> x_b{};
  std::array<double, N_ADSORBED> c_a{};
  std::array<double, 4> integrals{};  // I0, I1, J0_0, J0_1
  std::array<double, 3> balance{};    // J0, J1, J2
  double r = 0.0;
};

// The samples of a stage, or of its part before or after the opening of V-defects.
struct RowSelection {
  double begin = 0.0;  // of the stage, s
  std::vector<RowSample> samples;
};

// Takes a sample; times rise. Memory stays bounded: samples that no row needs are dropped.
void add_sample(const SurfChemNonst& model, RowSelection& selection, const RowSample& sample);

// Writes the rows to the history of the model, the first and the last sample always, and empties the selection.
// A first sample at the time of the last row of the history is moved to the next larger number.
void finish_rows(SurfChemNonst& model, RowSelection& selection);

}  // namespace vorlen

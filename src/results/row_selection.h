// Rows of the staged scheme: as few as a plot needs. Linear interpolation over time between two rows is within a
// thousandth of each column's range in the run. The selection uses a tenth of that, and the smaller range in the stage,
// because samples do not show all of a curve.
#pragma once

#include <array>
#include <vector>

#include "model/surfchem_nonst.h"

namespace vorlen {

inline constexpr std::size_t MAX_ROWS_PER_STAGE = 2000;

// What the detail columns show of a moment. Energies of one V-defect, J.
struct RowDetail {
  std::array<double, N_ADSORBED> c_a{};  // kmol/m^2
  // Under V_dislocation
  double I0 = 0.0, I1 = 0.0, J0_0 = 0.0, J0_1 = 0.0;
  double J0 = 0.0, J1 = 0.0, J2 = 0.0;
  double deltaE = 0.0;
  double E_V_loop = 0.0;
  double r = 0.0;
};

// The model at one moment.
struct RowSample {
  double t = 0.0;       // s from the start of the stage
  double z = 0.0;       // m
  double h = 0.0;       // thickness grown in tension, m
  double GR = 0.0;      // growth rate, m/s
  double rho_VD = 0.0;  // m^-2
  std::array<double, N_BULK> x_b{};
  RowDetail detail{};  // with detail_output
};

// The samples of a stage, or of its part before or after the opening of V-defects.
struct RowSelection {
  double begin = 0.0;  // of the stage, s
  std::vector<RowSample> samples;
};

// Takes a sample; times rise. Memory stays bounded: samples that no row needs are dropped.
void add_sample(const SurfChemNonst& model, RowSelection& selection, const RowSample& sample);

// Writes the rows to the history of the model, the first and the last sample always, and empties the selection.
// A first sample at the time of the last row is moved to the next larger representable time.
void finish_rows(SurfChemNonst& model, RowSelection& selection);

// Adds rows to the history where the columns of the finished structure have their step at z0, and above it as close as
// these columns need whatever the final density of V-defects; directly after V-defects have opened.
void add_rows_at_z0(SurfChemNonst& model);

}  // namespace vorlen

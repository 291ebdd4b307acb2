// Rows of the staged scheme: as few as a plot needs. Linear interpolation over time between two rows is within a
// thousandth of each column's range in the run. The selection uses a tenth of that, and the smaller range in the stage,
// because samples do not show all of a curve.
#pragma once

#include <vector>

#include "model/surfchem_nonst.h"

namespace vorlen {

inline constexpr std::size_t MAX_ROWS_PER_STAGE = 2000;

// The samples of a stage, or of its part before or after the opening of V-defects.
struct RowSelection {
  double begin = 0.0;                 // of the stage, s
  std::vector<HistoryPoint> samples;  // t in s from the start of the stage
};

// Takes a sample; times rise. Memory stays bounded: samples that no row needs are dropped.
void add_sample(const SurfChemNonst& model, RowSelection& selection, const HistoryPoint& sample);

// Writes the rows to the history of the model, the first and the last sample always, and empties the selection.
// A first sample at the time of the last row is moved to the next larger representable time.
void finish_rows(SurfChemNonst& model, RowSelection& selection);

// Adds rows to the history where the columns of the finished structure have their step at z0, and above it as close as
// these columns need whatever the final density of V-defects; directly after V-defects have opened.
void add_rows_at_z0(SurfChemNonst& model);

}  // namespace vorlen

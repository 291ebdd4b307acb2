// Differences between two result files: layers, and columns on a common depth axis.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "results/result_file.h"

// Where one column of the table differs most.
struct ColumnDeviation {
  std::size_t column = 0;  // index for vorlen::column_at
  double largest = 0.0;    // |a - b| in the column's unit; infinite where only one is NaN
  double relative = 0.0;   // the same, over the largest magnitude of the column in both files
  double z = 0.0;          // height there, nm
  std::string layer;       // the layer of the first file there
  double a = 0.0;
  double b = 0.0;
};

struct ResultDifference {
  std::vector<std::string> structure;  // a sentence for each difference of the layers and of the table
  bool row_by_row = false;             // the heights are the same in both, row by row
  double z_begin = 0.0;                // heights that both files cover, nm
  double z_end = 0.0;
  std::vector<ColumnDeviation> columns;  // each column but the height; empty without a common axis
  bool same = false;                     // no difference beyond the tolerance
};

// tolerance: relative deviations (of a column, duration or thickness) up to this are ignored; with 0 everything counts,
// including the number of rows.
ResultDifference compare_results(const ResultFile& a, const ResultFile& b, double tolerance);

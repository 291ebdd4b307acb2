// The differences between two result files: of their layers, and of their columns on a common depth axis.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "results/result_file.h"

// Where one column of the table differs most.
struct ColumnDeviation {
  ResultColumn column = ResultColumn::TIME;
  double largest = 0.0;   // |a - b| in the column's unit; infinite where only one is a number
  double relative = 0.0;  // the same, over the largest magnitude of the column in both files
  double z = 0.0;         // height of that place, nm
  std::string layer;      // the layer of the first file there
  double a = 0.0;
  double b = 0.0;
};

struct ResultDifference {
  std::vector<std::string> structure;  // a sentence on each difference of the layers
  bool row_by_row = false;             // the heights are the same in both, row by row
  double z_begin = 0.0;                // heights that both files cover, nm
  double z_end = 0.0;
  std::vector<ColumnDeviation> columns;  // each column but the height; none when there is no common axis
  bool same = false;                     // no difference beyond the tolerance
};

// Identifier and unit of each column.
struct ColumnName {
  const char* identifier;  // "x_in"
  const char* unit;        // "", or in ASCII: "nm", "cm^-2"
};
ColumnName column_name(ResultColumn column);

// tolerance: the largest relative deviation (of a column, duration or thickness) that counts as none; with 0 everything
// counts, the number of rows included.
ResultDifference compare_results(const ResultFile& a, const ResultFile& b, double tolerance);

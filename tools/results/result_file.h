// Reader of result files (docs/result-format.md): the layers, and the table over time and depth.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "results/columns.h"

using vorlen::ResultColumn;

// One stage of the recipe.
struct ResultLayer {
  std::string name;        // "Layer" and the number when the recipe gives none
  double duration = 0.0;   // s
  double thickness = 0.0;  // nm
};

struct ResultRow {
  bool active = false;  // of a simulated stage, not of a pre-stage or post-stage
  std::array<double, vorlen::N_RESULT_COLUMNS> values{};
  std::vector<double> detail{};  // the columns after these; empty unless the recipe asked for them

  double at(ResultColumn column) const { return values[static_cast<std::size_t>(column)]; }
  // By the index that vorlen::column_at takes.
  double at(std::size_t column) const {
    return column < values.size() ? values[column] : detail[column - values.size()];
  }
};

struct ResultFile {
  std::vector<ResultLayer> layers;  // pre-stages, active stages, post-stages
  std::size_t column_count = vorlen::N_RESULT_COLUMNS;
  std::vector<ResultRow> rows;  // in order of time
};

// Reads the file at path into result. The reader is strict: any deviation from the format is an error. Values are free,
// NaN and infinity included. The file of a failed run can be read; it has fewer rows.
// Returns false with a message in error that names the path and the line, and leaves result incomplete.
bool read_result_file(const std::string& path, ResultFile& result, std::string& error);

// The same for the content of a result file; path is its name in messages.
bool read_result_text(const std::string& path, std::string_view content, ResultFile& result, std::string& error);

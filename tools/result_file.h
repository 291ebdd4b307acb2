// Reader of result files, as docs/result-format.md describes them: the layers, and the table over time and depth.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

// The columns of the table that the tool shows, by index; result-format.md tells all of them.
enum class ResultColumn : std::size_t {
  TIME = 0,       // s
  Z = 1,          // nm, from the bottom of the first pre-stage
  RATE = 2,       // nm/s in active rows; the recipe's own number in the others
  X_IN = 3,       // fraction
  X_GA = 4,       // fraction
  X_AL = 5,       // fraction
  RHO_TD_T = 6,   // threading dislocations, cm^-2
  RHO_VD0_T = 7,  // two times the density of V-defects, cm^-2
  EPS_XX_T = 9    // in-plane strain, positive when stretched
};

constexpr std::size_t RESULT_COLUMN_COUNT = 19;

// One stage of the recipe.
struct ResultLayer {
  std::string name;        // "Layer" and the number when the recipe gives none
  double duration = 0.0;   // s
  double thickness = 0.0;  // nm
};

struct ResultRow {
  bool active = false;  // of a simulated stage, not of a pre-stage or post-stage
  std::array<double, RESULT_COLUMN_COUNT> values{};
};

struct ResultFile {
  std::vector<ResultLayer> layers;  // pre-stages, active stages, post-stages
  std::vector<ResultRow> rows;      // in order of time
};

// Reads the file at path into result. The reading is strict: whatever differs from the format is an error, only the
// values are free (infinities and not-a-numbers included). The file of a failed run reads well; it has fewer rows.
// Returns false with a text in error, which names the path and the line, and leaves result incomplete.
bool read_result_file(const std::string& path, ResultFile& result, std::string& error);

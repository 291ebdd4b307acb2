// Reader of result files, as docs/result-format.md describes them: the layers, and the table over time and depth.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

// The columns of the table, by index. (t): when the depth was the surface; (z): in the finished structure.
enum class ResultColumn : std::size_t {
  TIME = 0,       // s
  Z = 1,          // nm, from the bottom of the first pre-stage
  RATE = 2,       // nm/s in active rows; the recipe's own number in the others
  X_IN = 3,       // fraction
  X_GA = 4,       // fraction
  X_AL = 5,       // fraction
  RHO_TD_T = 6,   // threading dislocations, cm^-2
  RHO_VD0_T = 7,  // two times the density of V-defects, cm^-2
  A_EFF_T = 8,    // in-plane lattice constant, angstrom
  EPS_XX_T = 9,   // in-plane strain, positive when stretched
  EPS_YY_T = 10,  // equal to EPS_XX_T
  EPS_ZZ_T = 11,  // strain along the growth direction
  EPS_YZ_T = 12,  // 0
  RHO_TD_Z = 13,  // and so on, (z)
  A_EFF_Z = 14,
  EPS_XX_Z = 15,
  EPS_YY_Z = 16,
  EPS_ZZ_Z = 17,
  EPS_YZ_Z = 18
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

  double at(ResultColumn column) const { return values[static_cast<std::size_t>(column)]; }
};

struct ResultFile {
  std::vector<ResultLayer> layers;  // pre-stages, active stages, post-stages
  std::vector<ResultRow> rows;      // in order of time
};

// Reads the file at path into result. The reading is strict: whatever differs from the format is an error, only the
// values are free (infinities and not-a-numbers included). The file of a failed run reads well; it has fewer rows.
// Returns false with a text in error, which names the path and the line, and leaves result incomplete.
bool read_result_file(const std::string& path, ResultFile& result, std::string& error);

// The values of each layer of a result file: docs/result-format.md, "Values of a layer".
#pragma once

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "results/result_file.h"

enum class LayerKind { PRE, ACTIVE, POST };

// The value of what is undefined: nothing grew, or the run ended before the layer did.
inline constexpr double UNDEFINED = std::numeric_limits<double>::quiet_NaN();

struct LayerValues {
  std::string name;
  LayerKind kind = LayerKind::ACTIVE;
  double begin = 0.0;             // s
  double end = 0.0;               // s
  double duration = 0.0;          // s
  double thickness = 0.0;         // nm
  double mean_rate = 0.0;         // nm/s
  std::array<double, 3> x{};      // mean fractions of In, Ga, Al over the height grown
  std::array<double, 3> x_mid{};  // the same over the middle half of that height, without the interfaces
  std::array<double, 3> x_end{};  // at the end of the layer, as all that follows
  double eps_xx_t = 0.0;          // in-plane strain as it grew
  double eps_xx_z = 0.0;          // in-plane strain in the finished structure
  double rho_td_t = 0.0;          // threading dislocations as it grew, cm^-2
  double rho_td_z = 0.0;          // threading dislocations in the finished structure, cm^-2
  double v_defects_t = 0.0;       // V-defects as it grew, cm^-2
  double relaxation = 0.0;        // 0 coherent with the last pre-stage, 1 fully relaxed
};

// One record for each layer of result, in the file's order.
std::vector<LayerValues> layer_values(const ResultFile& result);

// "pre", "active" or "post".
const char* layer_kind_name(LayerKind kind);

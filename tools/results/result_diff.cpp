// If the heights agree row by row, rows are compared one by one. Otherwise each file is a curve over height, linear
// between its rows, and the curves are compared at the heights of both. Where several rows share a height (growth
// pauses and etched film) a curve jumps from the first of them to the last, and both sides of the jump are compared.
#include "results/result_diff.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>

#include "results/layer_values.h"
#include "terminal/printable.h"

namespace {

constexpr double INFINITE = std::numeric_limits<double>::infinity();

// |a - b|; 0 between two NaNs or equal infinities.
double deviation_of(double a, double b) {
  if (a == b || (std::isnan(a) && std::isnan(b))) return 0.0;
  const double deviation = std::fabs(a - b);
  return std::isnan(deviation) ? INFINITE : deviation;
}

bool beyond(double deviation, double scale, double tolerance) {
  return deviation > 0.0 && !(deviation <= tolerance * scale);
}

// A result file as a curve over height.
struct Curve {
  const ResultFile* result = nullptr;
  std::vector<double> height;  // of each row, raised to the greatest height before it
};

// False if a height is NaN or infinite.
bool make_curve(const ResultFile& result, Curve& curve) {
  curve.result = &result;
  for (const ResultRow& row : result.rows) {
    const double z = row.at(ResultColumn::Z);
    if (!std::isfinite(z)) return false;
    curve.height.push_back(curve.height.empty() ? z : std::max(curve.height.back(), z));
  }
  return !curve.height.empty();
}

// The curve just below z and just above: a mix of two rows each.
struct CurvePlace {
  const ResultRow* below = nullptr;
  const ResultRow* above = nullptr;
  double share = 0.0;  // between rows: of above; at a row: negative, and the two are both sides of the jump
};

// z lies within the curve.
CurvePlace find_place(const Curve& curve, double z) {
  const auto [first, past] = std::equal_range(curve.height.begin(), curve.height.end(), z);
  const std::vector<ResultRow>& rows = curve.result->rows;
  const auto row = [&](auto place) { return &rows[static_cast<std::size_t>(place - curve.height.begin())]; };
  if (first != past) return {row(first), row(past - 1), -1.0};
  return {row(first - 1), row(first), (z - *(first - 1)) / (*first - *(first - 1))};
}

std::array<double, 2> values_at(const CurvePlace& place, std::size_t column) {
  const double below = place.below->at(column);
  const double above = place.above->at(column);
  if (place.share < 0.0) return {below, above};
  const double value = below + place.share * (above - below);
  return {value, value};
}

// The layer that grows at a time; at a boundary the one that ends there.
std::string layer_at(const std::vector<LayerValues>& layers, double time) {
  for (const LayerValues& layer : layers) {
    if (time <= layer.end * (1.0 + 1e-12)) return layer.name;
  }
  return layers.empty() ? "" : layers.back().name;
}

struct DeviationSearch {
  std::vector<ColumnDeviation> columns;
  std::vector<double> times;  // in the first file, of each column's largest deviation

  explicit DeviationSearch(std::size_t count) : columns(count), times(count) {}
};

void look_at(DeviationSearch& search, std::size_t column, double a, double b, double z, double time) {
  const double deviation = deviation_of(a, b);
  ColumnDeviation& found = search.columns[column];
  if (!(deviation > found.largest)) return;
  found.largest = deviation;
  found.z = z;
  found.a = a;
  found.b = b;
  search.times[column] = time;
}

void compare_rows(const ResultFile& a, const ResultFile& b, DeviationSearch& search) {
  for (std::size_t i = 0; i < a.rows.size(); ++i) {
    const ResultRow& row = a.rows[i];
    for (std::size_t c = 0; c < search.columns.size(); ++c) {
      look_at(search, c, row.at(c), b.rows[i].at(c), row.at(ResultColumn::Z), row.at(ResultColumn::TIME));
    }
  }
}

void compare_curves(const Curve& a, const Curve& b, const ResultDifference& difference, DeviationSearch& search) {
  std::vector<double> heights;
  std::set_union(a.height.begin(), a.height.end(), b.height.begin(), b.height.end(), std::back_inserter(heights));
  heights.erase(std::unique(heights.begin(), heights.end()), heights.end());
  for (const double z : heights) {
    if (z < difference.z_begin || z > difference.z_end) continue;
    const CurvePlace place_a = find_place(a, z);
    const CurvePlace place_b = find_place(b, z);
    const std::array<double, 2> times = values_at(place_a, static_cast<std::size_t>(ResultColumn::TIME));
    for (std::size_t c = 0; c < search.columns.size(); ++c) {
      const std::array<double, 2> values_a = values_at(place_a, c);
      const std::array<double, 2> values_b = values_at(place_b, c);
      for (std::size_t side = 0; side < 2; ++side) look_at(search, c, values_a[side], values_b[side], z, times[side]);
    }
  }
}

double column_scale(const ResultFile& result, std::size_t column) {
  double scale = 0.0;
  for (const ResultRow& row : result.rows) {
    if (std::isfinite(row.at(column))) scale = std::max(scale, std::fabs(row.at(column)));
  }
  return scale;
}

void compare_layers(const ResultFile& a, const ResultFile& b, double tolerance, std::vector<std::string>& structure) {
  if (a.layers.size() != b.layers.size()) {
    structure.push_back(fmt::format("{} layers and {}", a.layers.size(), b.layers.size()));
  }
  for (std::size_t i = 0; i < std::min(a.layers.size(), b.layers.size()); ++i) {
    const ResultLayer& of_a = a.layers[i];
    const ResultLayer& of_b = b.layers[i];
    const std::string layer = fmt::format("layer {}, \"{}\": ", i + 1, printable(of_a.name));
    if (of_a.name != of_b.name) structure.push_back(layer + "the other's name is \"" + printable(of_b.name) + '"');
    const auto compare = [&](const char* what, const char* unit, double x, double y) {
      if (!beyond(deviation_of(x, y), std::max(std::fabs(x), std::fabs(y)), tolerance)) return;
      structure.push_back(fmt::format("{}{} {} {} and {} {}", layer, what, x, unit, y, unit));
    };
    compare("duration", "s", of_a.duration, of_b.duration);
    compare("thickness", "nm", of_a.thickness, of_b.thickness);
  }
  if (tolerance == 0.0 && a.rows.size() != b.rows.size()) {
    structure.push_back(fmt::format("{} rows and {}", a.rows.size(), b.rows.size()));
  }
}

bool same_heights(const ResultFile& a, const ResultFile& b) {
  return std::equal(a.rows.begin(), a.rows.end(), b.rows.begin(), b.rows.end(),
                    [](const ResultRow& row_a, const ResultRow& row_b) {
                      return deviation_of(row_a.at(ResultColumn::Z), row_b.at(ResultColumn::Z)) == 0.0;
                    });
}

}  // namespace

ResultDifference compare_results(const ResultFile& a, const ResultFile& b, double tolerance) {
  ResultDifference difference;
  compare_layers(a, b, tolerance, difference.structure);
  if (a.column_count != b.column_count) {
    difference.structure.push_back(fmt::format("{} columns and {}", a.column_count, b.column_count));
  }
  DeviationSearch search(std::min(a.column_count, b.column_count));
  difference.row_by_row = same_heights(a, b);
  if (difference.row_by_row) {
    compare_rows(a, b, search);
    if (!a.rows.empty()) {
      difference.z_begin = a.rows.front().at(ResultColumn::Z);
      difference.z_end = a.rows.back().at(ResultColumn::Z);
    }
  } else {
    Curve curve_a;
    Curve curve_b;
    if (!make_curve(a, curve_a) || !make_curve(b, curve_b)) {
      difference.structure.emplace_back("no rows, or heights that are NaN or infinite: there is no common depth axis");
      return difference;
    }
    difference.z_begin = std::max(curve_a.height.front(), curve_b.height.front());
    difference.z_end = std::min(curve_a.height.back(), curve_b.height.back());
    const double z_end_max = std::max(curve_a.height.back(), curve_b.height.back());
    if (beyond(z_end_max - difference.z_end, z_end_max, tolerance)) {
      difference.structure.push_back(
          fmt::format("total height {} nm and {} nm", curve_a.height.back(), curve_b.height.back()));
    }
    compare_curves(curve_a, curve_b, difference, search);
  }

  difference.same = difference.structure.empty();
  const std::vector<LayerValues> layers = layer_values(a);
  for (std::size_t c = 0; c < search.columns.size(); ++c) {
    if (static_cast<ResultColumn>(c) == ResultColumn::Z) continue;
    ColumnDeviation& found = search.columns[c];
    found.column = c;
    if (found.largest > 0.0) {
      const double scale = std::max(column_scale(a, c), column_scale(b, c));
      found.relative = scale > 0.0 ? found.largest / scale : INFINITE;
      found.layer = layer_at(layers, search.times[c]);
      if (found.relative > tolerance) difference.same = false;
    }
    difference.columns.push_back(found);
  }
  return difference;
}

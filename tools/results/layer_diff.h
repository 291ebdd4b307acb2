// What differs between the layers of two results, in the digits in which it is shown: vorlen diff, and the comparison
// pages of the Python package, which read its JSON.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "results/layer_match.h"
#include "results/layer_values.h"

// How a number is rounded: to a number of decimals, or to significant digits.
struct Rounding {
  bool significant = false;
  int digits = 0;
  double smallest = 0.0;  // last digit that has a meaning, in the shown unit
};

// A value of a layer that is compared.
struct ComparedQuantity {
  const char* identifier;  // as in docs/result-format.md
  const char* name;        // in a sentence: "its ... rises"
  const char* heading;
  const char* unit;  // of the shown numbers; empty for a fraction
  double factor;     // from the value to the shown number
  Rounding rounding;
  enum { ALWAYS, IF_PRESENT, IF_DIFFERENT, WITH_DURATION } shown;
  bool tolerance_of_itself;  // otherwise of the greatest magnitude in both results
  double least_scale;        // a difference counts relative to the greater value, but to no less than this
  double weight;             // of its share when the largest change is looked for; 0: never, as for a setting
  double (*value)(const LayerValues& layer);
};

constexpr std::size_t N_COMPARED = 8;
const std::array<ComparedQuantity, N_COMPARED>& compared_quantities();
// Places in it.
inline constexpr std::size_t DURATION = 0;
inline constexpr std::size_t THICKNESS = 1;
inline constexpr std::size_t RATE = 2;

// One value in both results. What a layer does not have is NaN.
struct ComparedValue {
  double a = 0.0;
  double b = 0.0;
  double share = 0.0;    // the difference relative to the greater value, to find the largest
  bool equal = true;     // or both undefined
  bool visible = false;  // the difference is at least a unit of the last digit, and beyond the tolerance
  std::string text_a;    // rounded; "-" if undefined, empty if the layer is not in this result
  std::string text_b;    //
  // The difference of the rounded values, "+0.171"; "0" if equal, "<0.001" if less than the digits show, "-" if
  // undefined.
  std::string change;
};

struct ComparedLayer {
  LayerPair pair;
  std::array<ComparedValue, N_COMPARED> values;
  bool equal = true;     // all values are
  bool visible = false;  // a difference is
  // Thinner than SLIVER in both, such as a pause: its values have little meaning, and none of them is visible.
  bool sliver = false;
  bool differs = false;  // a difference would be visible if this were not a sliver
};

struct LayerComparison {
  std::vector<LayerValues> a;
  std::vector<LayerValues> b;
  std::vector<ComparedLayer> layers;
  std::array<bool, N_COMPARED> shown{};  // the quantities that a table needs
  double tolerance = 0.0;
};

// tolerance: relative differences up to this are not visible.
LayerComparison compare_layer_values(const ResultFile& a, const ResultFile& b, double tolerance);

inline constexpr double SLIVER = 0.1;  // nm; a monolayer of GaN is 0.26 nm

// Lines with the layers whose rounded values differ: a table, in which equal lines are one, and sentences about the
// other layers.
std::string layer_table_text(const LayerComparison& comparison);

// "The largest change is in layer 5, AlGaN barrier: ..."; empty if no layer does visibly.
std::string largest_change(const LayerComparison& comparison);

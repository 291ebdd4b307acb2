// Compositions are those of the middle half of a layer, which the interfaces do not reach. Gallium is the rest.
#include "results/layer_diff.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "terminal/printable.h"

namespace {

constexpr double ROUNDING = 1e-14;      // relative; what means of the same rows may differ by
constexpr double VISIBLE = 1.0 - 1e-6;  // units of the last digit from which a difference is shown

constexpr Rounding DECIMALS_3 = {false, 3, 1e-3};
constexpr Rounding DECIMALS_4 = {false, 4, 1e-4};
constexpr Rounding ALMOST_EXACT = {true, 10, 0.0};
constexpr Rounding DENSITY = {true, 3, 1.0};

// The strain has half the weight, because it follows the composition. So have duration and rate: they count when they
// compensate each other, otherwise the thickness shows them.
constexpr std::array<ComparedQuantity, N_COMPARED> QUANTITIES = {{
    {"duration", "duration", "Duration, s", "s", 1.0, ALMOST_EXACT, ComparedQuantity::IF_DIFFERENT, true, 1.0, 0.5,
     [](const LayerValues& layer) { return layer.duration; }},
    {"thickness", "thickness", "Thickness, nm", "nm", 1.0, DECIMALS_3, ComparedQuantity::ALWAYS, true, 1.0, 1.0,
     [](const LayerValues& layer) { return layer.thickness; }},
    {"mean_rate", "growth rate", "Rate, nm/s", "nm/s", 1.0, DECIMALS_4, ComparedQuantity::WITH_DURATION, true, 0.01,
     0.5, [](const LayerValues& layer) { return layer.mean_rate; }},
    {"x_in_mid", "indium fraction", "In", "", 1.0, DECIMALS_4, ComparedQuantity::IF_PRESENT, false, 0.1, 1.0,
     [](const LayerValues& layer) { return layer.x_mid[0]; }},
    {"x_al_mid", "aluminium fraction", "Al", "", 1.0, DECIMALS_4, ComparedQuantity::IF_PRESENT, false, 0.1, 1.0,
     [](const LayerValues& layer) { return layer.x_mid[2]; }},
    {"eps_xx_z", "in-plane strain", "Strain, %", "%", 100.0, DECIMALS_3, ComparedQuantity::IF_PRESENT, false, 0.002,
     0.5, [](const LayerValues& layer) { return layer.eps_xx_z; }},
    {"rho_td_z", "dislocation density", "Dislocations, cm^-2", "cm^-2", 1.0, DENSITY, ComparedQuantity::IF_DIFFERENT,
     false, 1e6, 1.0, [](const LayerValues& layer) { return layer.rho_td_z; }},
    {"v_defects_t", "density of V-defects", "V-defects, cm^-2", "cm^-2", 1.0, DENSITY, ComparedQuantity::IF_DIFFERENT,
     false, 1e6, 1.0, [](const LayerValues& layer) { return layer.v_defects_t; }},
}};

// One unit of the last digit in which the greater of two shown numbers is written.
double last_digit(const Rounding& rounding, double a, double b) {
  const double magnitude = std::max(std::fabs(a), std::fabs(b));
  if (!rounding.significant || !std::isfinite(magnitude) || magnitude == 0.0) return rounding.smallest;
  return std::max(rounding.smallest, std::pow(10.0, std::floor(std::log10(magnitude)) + 1 - rounding.digits));
}

std::string rounded(const Rounding& rounding, double shown) {
  if (!rounding.significant) return fixed_number(shown, rounding.digits);
  return std::isnan(shown) ? "-" : fmt::format("{:.{}g}", shown, rounding.digits);
}

bool equal_values(double a, double b) {
  if (a == b || (std::isnan(a) && std::isnan(b))) return true;
  return std::fabs(a - b) <= ROUNDING * std::fabs(a) && std::isfinite(b);
}

// The difference of the rounded numbers, so that the three agree.
std::string change_text(const Rounding& rounding, double a, double b) {
  const double change = b - a;
  if (equal_values(a, b)) return "0";
  if (!std::isfinite(change)) return "-";
  const double unit = last_digit(rounding, a, b);
  if (std::fabs(change) < VISIBLE * unit) return fmt::format("<{:g}", unit);
  const double between =
      std::strtod(rounded(rounding, b).c_str(), nullptr) - std::strtod(rounded(rounding, a).c_str(), nullptr);
  const double shown = unit * std::round((between == 0.0 ? change : between) / unit);
  if (!rounding.significant) return fmt::format("{:+.{}f}", shown, rounding.digits);
  return fmt::format("{:+.{}g}", shown, rounding.digits);
}

double value_of(const ComparedQuantity& quantity, const std::vector<LayerValues>& layers, std::size_t index) {
  return index == NO_LAYER ? UNDEFINED : quantity.value(layers[index]);
}

// The greatest magnitude of a quantity in both results.
double scale_of(const ComparedQuantity& quantity, const LayerComparison& comparison) {
  double scale = 0.0;
  for (const std::vector<LayerValues>* layers : {&comparison.a, &comparison.b}) {
    for (const LayerValues& layer : *layers) {
      const double value = std::fabs(quantity.value(layer));
      if (std::isfinite(value)) scale = std::max(scale, value);
    }
  }
  return scale;
}

ComparedValue compare_value(const ComparedQuantity& quantity, double a, double b, double scale, double tolerance) {
  ComparedValue value;
  value.a = a;
  value.b = b;
  value.equal = equal_values(a, b);
  const double shown_a = quantity.factor * a;
  const double shown_b = quantity.factor * b;
  value.text_a = rounded(quantity.rounding, shown_a);
  value.text_b = rounded(quantity.rounding, shown_b);
  value.change = change_text(quantity.rounding, shown_a, shown_b);
  const double itself = std::max(std::fabs(a), std::fabs(b));
  const double difference = std::fabs(a - b);
  if (value.equal || !std::isfinite(difference)) {
    value.visible = !value.equal;
    value.share = value.equal ? 0.0 : 1.0;
    return value;
  }
  value.share = difference / std::max(itself, quantity.least_scale);
  value.visible = quantity.factor * difference >= VISIBLE * last_digit(quantity.rounding, shown_a, shown_b) &&
                  difference > tolerance * (quantity.tolerance_of_itself ? itself : scale);
  return value;
}

bool is_sliver(const LayerComparison& comparison, const LayerPair& pair) {
  const auto is_thin = [](const std::vector<LayerValues>& layers, std::size_t index) {
    return index == NO_LAYER || std::fabs(layers[index].thickness) < SLIVER;
  };
  return is_thin(comparison.a, pair.a) && is_thin(comparison.b, pair.b);
}

// Whether a table needs the quantity.
bool is_shown(const ComparedQuantity& quantity, std::size_t index, const LayerComparison& comparison) {
  const auto any_layer = [&](auto holds) {
    return std::any_of(comparison.layers.begin(), comparison.layers.end(),
                       [&](const ComparedLayer& layer) { return !layer.sliver && holds(layer); });
  };
  const auto is_not_zero = [&](double value) {
    return quantity.factor * std::fabs(value) >= 0.5 * quantity.rounding.smallest;
  };
  switch (quantity.shown) {
    case ComparedQuantity::ALWAYS:
      return true;
    case ComparedQuantity::IF_PRESENT:
      return any_layer([&](const ComparedLayer& layer) {
        return is_not_zero(layer.values[index].a) || is_not_zero(layer.values[index].b);
      });
    case ComparedQuantity::WITH_DURATION:
      return comparison.shown[DURATION];
    case ComparedQuantity::IF_DIFFERENT:
      break;
  }
  return any_layer([index](const ComparedLayer& layer) {
    return layer.pair.a != NO_LAYER && layer.pair.b != NO_LAYER && layer.values[index].visible;
  });
}

}  // namespace

const std::array<ComparedQuantity, N_COMPARED>& compared_quantities() { return QUANTITIES; }

LayerComparison compare_layer_values(const ResultFile& a, const ResultFile& b, double tolerance) {
  LayerComparison comparison;
  comparison.tolerance = tolerance;
  comparison.a = layer_values(a);
  comparison.b = layer_values(b);
  for (const LayerPair& pair : match_layers(comparison.a, comparison.b)) {
    ComparedLayer layer;
    layer.pair = pair;
    layer.sliver = is_sliver(comparison, pair);
    comparison.layers.push_back(layer);
  }
  for (std::size_t q = 0; q < N_COMPARED; ++q) {
    const ComparedQuantity& quantity = QUANTITIES[q];
    const double scale = scale_of(quantity, comparison);
    for (ComparedLayer& layer : comparison.layers) {
      ComparedValue& value = layer.values[q];
      value = compare_value(quantity, value_of(quantity, comparison.a, layer.pair.a),
                            value_of(quantity, comparison.b, layer.pair.b), scale, tolerance);
      const bool in_both = layer.pair.a != NO_LAYER && layer.pair.b != NO_LAYER;
      if (!in_both) {
        (layer.pair.a == NO_LAYER ? value.text_a : value.text_b).clear();
        value.change.clear();
      }
    }
    comparison.shown[q] = is_shown(quantity, q, comparison);
    for (ComparedLayer& layer : comparison.layers) {
      ComparedValue& value = layer.values[q];
      layer.equal = layer.equal && value.equal;
      const bool counts = quantity.shown != ComparedQuantity::WITH_DURATION || comparison.shown[DURATION];
      layer.differs = layer.differs || (counts && value.visible);
      value.visible = value.visible && !layer.sliver;
      layer.visible = layer.differs && !layer.sliver;
    }
  }
  return comparison;
}

// Layers are found in the rows by time: the durations add up from the time of the first row. Rows of pre-stages and
// post-stages come in pairs and are marked as not active by the reader.
#include "results/layer_values.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

constexpr double TIME_TOLERANCE = 1e-9;     // of a layer's end, for sums of durations that were rounded otherwise
constexpr double SMALLEST_MISMATCH = 1e-6;  // angstrom; below it a relaxation says nothing
constexpr std::array<ResultColumn, 3> METALS = {ResultColumn::X_IN, ResultColumn::X_GA, ResultColumn::X_AL};

// The rows of the three kinds: [0, active_begin) of pre-stages, [active_begin, active_end) active, then post-stages.
struct RowGroups {
  std::size_t active_begin = 0;
  std::size_t active_end = 0;
  std::size_t pre_layers = 0;
  std::size_t post_layers = 0;
};

RowGroups group_rows(const ResultFile& result) {
  const auto is_active = [](const ResultRow& row) { return row.active; };
  const std::vector<ResultRow>& rows = result.rows;
  const auto first = std::find_if(rows.begin(), rows.end(), is_active);
  const auto last = std::find_if(rows.rbegin(), rows.rend(), is_active);
  RowGroups groups;
  groups.active_begin = static_cast<std::size_t>(first - rows.begin());
  groups.active_end = first == rows.end() ? rows.size() : static_cast<std::size_t>(rows.rend() - last);
  groups.pre_layers = std::min(groups.active_begin / 2, result.layers.size());
  groups.post_layers = std::min((rows.size() - groups.active_end) / 2, result.layers.size() - groups.pre_layers);
  return groups;
}

double at_time(const ResultRow& a, const ResultRow& b, ResultColumn column, double time) {
  const double share = (time - a.at(ResultColumn::TIME)) / (b.at(ResultColumn::TIME) - a.at(ResultColumn::TIME));
  return a.at(column) + share * (b.at(column) - a.at(column));
}

// The first of the rows later than time; past if there is none.
const ResultRow* first_after(const ResultRow* first, const ResultRow* past, double time) {
  return std::partition_point(first, past, [time](const ResultRow& row) { return row.at(ResultColumn::TIME) <= time; });
}

struct HeightPoint {
  double z = 0.0;
  std::array<double, 3> x{};
};

HeightPoint point_of(const ResultRow& row) {
  return {row.at(ResultColumn::Z), {row.at(METALS[0]), row.at(METALS[1]), row.at(METALS[2])}};
}

// What grew between two consecutive rows, or the part of it that belongs to the layer; x and z are linear in time.
struct GrowthStep {
  HeightPoint from;
  HeightPoint to;
};

// The steps between the rows in [first, past), clipped in time to the layer.
std::vector<GrowthStep> growth_steps(const ResultRow* first, const ResultRow* past, double begin, double end) {
  std::vector<GrowthStep> steps;
  for (const ResultRow* b = first == past ? past : first + 1; b < past; ++b) {
    const ResultRow* a = b - 1;
    const double from = std::max(begin, a->at(ResultColumn::TIME));
    const double to = std::min(end, b->at(ResultColumn::TIME));
    if (!(to > from)) continue;
    const auto point_at = [a, b](double time) {
      HeightPoint point;
      point.z = at_time(*a, *b, ResultColumn::Z, time);
      for (std::size_t metal = 0; metal < METALS.size(); ++metal) point.x[metal] = at_time(*a, *b, METALS[metal], time);
      return point;
    };
    steps.push_back({point_at(from), point_at(to)});
  }
  return steps;
}

// The integral of x dz by the trapezoid rule over the steps, divided by the height grown.
std::array<double, 3> mean_composition(const std::vector<GrowthStep>& steps) {
  std::array<double, 3> integral{};
  double grown = 0.0;
  for (const GrowthStep& step : steps) {
    const double height = step.to.z - step.from.z;
    grown += height;
    for (std::size_t metal = 0; metal < METALS.size(); ++metal) {
      integral[metal] += 0.5 * (step.from.x[metal] + step.to.x[metal]) * height;
    }
  }
  if (!(grown > 0.0)) return {UNDEFINED, UNDEFINED, UNDEFINED};
  for (double& x : integral) x /= grown;
  return integral;
}

// The mean of x over the heights from 1/4 to 3/4 of what the steps have grown, in the film that is there after the last
// of them: a height belongs to the last step that rises through it, so that what evaporated again does not count.
std::array<double, 3> middle_composition(const std::vector<GrowthStep>& steps) {
  constexpr std::array<double, 3> NONE = {UNDEFINED, UNDEFINED, UNDEFINED};
  if (steps.empty()) return NONE;
  const double grown = steps.back().to.z - steps.front().from.z;
  if (!(grown > 0.0) || std::isinf(grown)) return NONE;
  const double low = steps.front().from.z + 0.25 * grown;
  const double high = low + 0.5 * grown;
  std::array<double, 3> integral{};
  double half = 0.0;  // the height of the middle half, summed like the integral, so that a constant x is its own mean
  double uncovered = steps.back().to.z;  // the lowest height of the steps that were looked at: above it nothing is left
  for (auto step = steps.rbegin(); step != steps.rend() && uncovered > low; ++step) {
    if (!(step->from.z < uncovered)) continue;
    const double bottom = std::max(step->from.z, low);
    const double top = std::min(uncovered, high);
    uncovered = step->from.z;
    if (!(top > bottom)) continue;
    half += top - bottom;
    const double share = (0.5 * (bottom + top) - step->from.z) / (step->to.z - step->from.z);
    for (std::size_t metal = 0; metal < METALS.size(); ++metal) {
      const double middle = step->from.x[metal] + share * (step->to.x[metal] - step->from.x[metal]);
      integral[metal] += middle * (top - bottom);
    }
  }
  for (double& x : integral) x /= half;
  return integral;
}

double relaxation(const ResultRow& row, double a_sub) {
  const double a_eff = row.at(ResultColumn::A_EFF_Z);
  const double a_free = a_eff / (1.0 + row.at(ResultColumn::EPS_XX_Z));
  return std::fabs(a_free - a_sub) < SMALLEST_MISMATCH ? UNDEFINED : (a_eff - a_sub) / (a_free - a_sub);
}

void set_end_values(LayerValues& layer, const ResultRow* row, double a_sub) {
  const auto value = [row](ResultColumn column) { return row == nullptr ? UNDEFINED : row->at(column); };
  for (std::size_t metal = 0; metal < METALS.size(); ++metal) layer.x_end[metal] = value(METALS[metal]);
  layer.eps_xx_t = value(ResultColumn::EPS_XX_T);
  layer.eps_xx_z = value(ResultColumn::EPS_XX_Z);
  layer.rho_td_t = value(ResultColumn::RHO_TD_T);
  layer.rho_td_z = value(ResultColumn::RHO_TD_Z);
  layer.v_defects_t = value(ResultColumn::RHO_VD0_T) / 2.0;  // the column holds two times the density
  layer.relaxation = row == nullptr ? UNDEFINED : relaxation(*row, a_sub);
}

}  // namespace

std::vector<LayerValues> layer_values(const ResultFile& result) {
  const RowGroups groups = group_rows(result);
  const ResultRow* rows = result.rows.data();
  const ResultRow* active_begin = rows + groups.active_begin;
  const ResultRow* active_end = rows + groups.active_end;
  const std::size_t count = result.layers.size();
  const std::size_t substrate_row = groups.pre_layers > 0 ? 2 * groups.pre_layers - 1 : 0;
  const double a_sub = result.rows.empty() ? UNDEFINED : rows[substrate_row].at(ResultColumn::A_EFF_Z);
  double clock = result.rows.empty() ? UNDEFINED : rows[0].at(ResultColumn::TIME);

  std::vector<LayerValues> values;
  for (std::size_t i = 0; i < count; ++i) {
    LayerValues layer;
    layer.name = result.layers[i].name;
    layer.duration = result.layers[i].duration;
    layer.thickness = result.layers[i].thickness;
    layer.begin = clock;
    clock += layer.duration;
    layer.end = clock;
    layer.mean_rate = layer.duration == 0.0 ? UNDEFINED : layer.thickness / layer.duration;

    const ResultRow* first = nullptr;  // of the rows that touch the layer
    const ResultRow* past = nullptr;
    const ResultRow* end_row = nullptr;
    if (i < groups.pre_layers || i + groups.post_layers >= count) {
      layer.kind = i < groups.pre_layers ? LayerKind::PRE : LayerKind::POST;
      first = i < groups.pre_layers ? rows + 2 * i : active_end + 2 * (i + groups.post_layers - count);
      past = first + 2;
      end_row = first + 1;
    } else if (active_begin < active_end) {
      const double slack = TIME_TOLERANCE * std::fabs(layer.end);
      const ResultRow* after_begin = first_after(active_begin, active_end, layer.begin);
      const ResultRow* after_end = first_after(after_begin, active_end, layer.end);
      const ResultRow* past_end = first_after(active_begin, active_end, layer.end + slack);
      first = after_begin == active_begin ? active_begin : after_begin - 1;
      past = after_end == active_end ? active_end : after_end + 1;
      const bool has_end = past_end > active_begin && past_end[-1].at(ResultColumn::TIME) > layer.begin + slack;
      if (has_end) end_row = past_end - 1;
    }
    // The two rows of a pre-stage or post-stage are its start and end, whatever times were rounded to.
    const std::vector<GrowthStep> steps = layer.kind == LayerKind::ACTIVE
                                              ? growth_steps(first, past, layer.begin, layer.end)
                                              : std::vector<GrowthStep>{{point_of(first[0]), point_of(first[1])}};
    layer.x = mean_composition(steps);
    layer.x_mid = middle_composition(steps);
    set_end_values(layer, end_row, a_sub);
    values.push_back(layer);
  }
  return values;
}

const char* layer_kind_name(LayerKind kind) {
  switch (kind) {
    case LayerKind::PRE:
      return "pre";
    case LayerKind::ACTIVE:
      return "active";
    case LayerKind::POST:
      return "post";
  }
  return "";
}

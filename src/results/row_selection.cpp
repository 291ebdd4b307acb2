// Selection of rows: the longest chords that stay within the tolerance of every column at all samples between them.
//
// In order: columns that rows must follow, chords, lists of the history, rows at z0.
#include "results/row_selection.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>

#include "model/constants.h"

namespace vorlen {

namespace {

constexpr double PART_OF_RANGE = 1e-4;        // a tenth of what is promised: means over layers are smooth then
constexpr std::size_t MAX_SELECTED = 900;     // a stage has two selections at most, and some rows at z0
constexpr std::size_t MAX_SAMPLES = 1 << 14;  // more are thinned out

// What the rows must follow, and the least range of each that counts.
enum Followed : std::size_t {
  F_Z,
  F_GR,
  F_X_IN,
  F_X_GA,
  F_X_AL,
  F_RHO_TD,
  F_RHO_VD,
  F_A_EFF,
  F_EPS_XX,
  F_EPS_ZZ,
  F_RHO_TD_LAST,
  F_EPS_LAST,
  N_FOLLOWED
};
using Columns = std::array<double, N_FOLLOWED>;
constexpr Columns LEAST_RANGE = {1e-11, 1e-14, 1e-4, 1e-4, 1e-4, 1.0, 1.0, 1e-5, 1e-6, 1e-6, 1.0, 1e-6};
constexpr double LEAST_RELATIVE_RANGE = 1e-4;  // of the value, for the growth rate and the densities

Columns columns_of(const SurfChemNonst& m, const HistoryPoint& s) {
  const double a = m.lattice_a(s.x_b.data());
  const double eps = m.eps_in_plane(a, s.rho_VD, s.z, s.h);
  Columns c = {s.z, s.GR, s.x_b[InN_b], s.x_b[GaN_b], s.x_b[AlN_b]};
  c[F_RHO_VD] = s.rho_VD;
  c[F_A_EFF] = (eps + 1.0) * a;
  c[F_EPS_XX] = eps;
  c[F_EPS_ZZ] = eps * m.strain_ratio(s.x_b.data());
  if (m.stress_model != STRESS_V_dislocation) return c;
  c[F_RHO_TD] = m.rho_TD_at(s.rho_VD, s.z, s.h);
  if (m.z0 < 0.0) return c;
  // The final density of V-defects is not known yet. It lies between the present and the largest one.
  c[F_RHO_TD_LAST] = m.rho_TD_at(RHO_VD_MAX, s.z, s.h);
  c[F_EPS_LAST] = m.eps_in_plane(a, RHO_VD_MAX, s.z, s.h);
  return c;
}

struct Chord {
  Columns low, high;  // slopes from the last row that stay near all samples since
};

// The numbers of the samples that become rows, for a tolerance of each column.
std::vector<std::size_t> select(const std::vector<HistoryPoint>& samples, const std::vector<Columns>& columns,
                                const Columns& tolerance) {
  constexpr double INFINITE = std::numeric_limits<double>::infinity();
  std::vector<std::size_t> rows{0};
  Chord chord;
  chord.low.fill(-INFINITE);
  chord.high.fill(INFINITE);
  for (std::size_t i = 1; i < samples.size(); ++i) {
    const auto fits = [&](std::size_t from) {
      const double dt = samples[i].t - samples[from].t;
      for (std::size_t c = 0; c < N_FOLLOWED; ++c) {
        const double slope = (columns[i][c] - columns[from][c]) / dt;
        // A column that is not finite needs no row.
        if (slope < chord.low[c] || slope > chord.high[c]) return false;
      }
      return true;
    };
    if (!fits(rows.back())) {
      rows.push_back(i - 1);
      chord.low.fill(-INFINITE);
      chord.high.fill(INFINITE);
    }
    const std::size_t from = rows.back();
    const double dt = samples[i].t - samples[from].t;
    for (std::size_t c = 0; c < N_FOLLOWED; ++c) {
      const double d = columns[i][c] - columns[from][c];
      chord.low[c] = std::max(chord.low[c], (d - tolerance[c]) / dt);
      chord.high[c] = std::min(chord.high[c], (d + tolerance[c]) / dt);
    }
  }
  if (rows.back() + 1 != samples.size()) rows.push_back(samples.size() - 1);
  return rows;
}

// Keeps the samples that become rows, at most max_count.
void thin_out(const SurfChemNonst& m, std::vector<HistoryPoint>& samples, std::size_t max_count) {
  if (samples.size() < 3) return;
  std::vector<Columns> columns;
  columns.reserve(samples.size());
  for (const HistoryPoint& s : samples) columns.push_back(columns_of(m, s));
  Columns tolerance;
  for (std::size_t c = 0; c < N_FOLLOWED; ++c) {
    double low = columns[0][c], high = low, largest = 0.0;
    for (const Columns& values : columns) {
      low = std::min(low, values[c]);
      high = std::max(high, values[c]);
      largest = std::max(largest, std::abs(values[c]));
    }
    double range = std::max(high - low, LEAST_RANGE[c]);
    if (c == F_GR || c == F_RHO_TD || c == F_RHO_VD || c == F_RHO_TD_LAST)
      range = std::max(range, LEAST_RELATIVE_RANGE * largest);
    tolerance[c] = PART_OF_RANGE * range;
  }
  std::vector<std::size_t> rows = select(samples, columns, tolerance);
  while (rows.size() > max_count) {
    for (double& t : tolerance) t *= 2.0;
    rows = select(samples, columns, tolerance);
  }
  for (std::size_t i = 0; i < rows.size(); ++i) samples[i] = samples[rows[i]];
  samples.resize(rows.size());
}

// The lists of the history that have a value for each row until V-defects open.
std::vector<std::vector<double>*> lists_of(SurfChemNonst& m) {
  std::vector<std::vector<double>*> lists;
  const auto add = [&lists](std::initializer_list<std::vector<double>*> more) {
    for (std::vector<double>* list : more) lists.push_back(list);
  };
  History& h = m.history;
  const bool relaxes = m.stress_model == STRESS_V_dislocation;
  add({&h.t, &h.z, &h.Vg, &h.x_In, &h.x_Ga, &h.x_Al});
  if (relaxes) add({&h.h, &h.rho_VD});
  if (!m.detail_output) return lists;
  add({&h.c_In, &h.c_Ga, &h.c_Al, &h.c_N, &h.c_H});
  if (relaxes) add({&h.I0, &h.I1, &h.J0_0, &h.J0_1, &h.J0, &h.J1, &h.J2, &h.deltaE, &h.E_V_loop, &h.K1, &h.r});
  return lists;
}

double next_above(double t) { return std::nextafter(t, std::numeric_limits<double>::infinity()); }

}  // namespace

void add_sample(const SurfChemNonst& m, RowSelection& selection, const HistoryPoint& sample) {
  if (selection.samples.size() >= MAX_SAMPLES) thin_out(m, selection.samples, MAX_SAMPLES / 2);
  selection.samples.push_back(sample);
}

void finish_rows(SurfChemNonst& m, RowSelection& selection) {
  std::vector<HistoryPoint>& samples = selection.samples;
  thin_out(m, samples, MAX_SELECTED);
  const bool relaxes = m.stress_model == STRESS_V_dislocation;
  const bool detail = m.detail_output;
  const HistoryLists kept{.relaxation = relaxes, .integrals = relaxes && detail && m.z0 < 0.0, .detail = detail};
  for (HistoryPoint& s : samples) {
    s.t += selection.begin;
    if (!m.history.t.empty() && !(s.t > m.history.t.back())) s.t = next_above(m.history.t.back());
    append_point(m.history, s, kept);
  }
  samples.clear();
}

void add_rows_at_z0(SurfChemNonst& m) {
  constexpr double FIRST_DEPTH = 5e-12;  // of the first row above z0, m; far below 1 / k for any density
  constexpr double RATIO = 1.1;          // of the depths of two rows
  // From the top down: rows are inserted from the end.
  std::vector<double> heights;
  for (double depth = FIRST_DEPTH; m.z0 + depth < m.history.z.back(); depth *= RATIO) heights.push_back(m.z0 + depth);
  std::reverse(heights.begin(), heights.end());
  heights.push_back(m.z0);
  heights.push_back(std::nextafter(m.z0, 0.0));

  const std::vector<std::vector<double>*> lists = lists_of(m);
  std::vector<std::vector<double>> above(lists.size());  // rows taken off the history, the last one first
  const auto take_last = [&] {
    for (std::size_t k = 0; k < lists.size(); ++k) {
      above[k].push_back(lists[k]->back());
      lists[k]->pop_back();
    }
  };
  for (double z : heights) {
    while (m.history.z.size() > 1 && m.history.z[m.history.z.size() - 2] >= z) take_last();
    const std::size_t last = m.history.z.size() - 1;
    if (last == 0 || !(m.history.z[last] > z)) continue;
    const double share = (z - m.history.z[last - 1]) / (m.history.z[last] - m.history.z[last - 1]);
    double t = m.history.t[last - 1] + share * (m.history.t[last] - m.history.t[last - 1]);
    if (z == m.z0) t = next_above(t);  // the row under it is at t
    if (!(t > m.history.t[last - 1] && t < m.history.t[last])) continue;
    std::vector<double> row;
    row.reserve(lists.size());
    for (const std::vector<double>* list : lists) {
      row.push_back((*list)[last - 1] + share * ((*list)[last] - (*list)[last - 1]));
    }
    row[0] = t;
    row[1] = z;
    take_last();
    for (std::size_t k = 0; k < lists.size(); ++k) lists[k]->push_back(row[k]);
  }
  for (std::size_t k = 0; k < lists.size(); ++k) {
    lists[k]->insert(lists[k]->end(), above[k].rbegin(), above[k].rend());
  }
}

}  // namespace vorlen

// V-defects of the staged scheme. In order: growth in tension, the terms of J2, search for the lowest balance, opening,
// density.
#include "strain/v_defect_density.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "model/constants.h"
#include "strain/v_defect_energy.h"
#include "strain/z0_search.h"

namespace vorlen {

namespace {

constexpr int MAX_ITERATIONS = 100;
constexpr double RELATIVE_TOLERANCE = 1e-14;  // of the density; reached in a few iterations
constexpr double Z0_TOLERANCE = 1e-16;        // m
constexpr double SERIES_LIMIT = 0.1;          // k x below which the closed form cancels
constexpr int SERIES_TERMS = 15;              // which leave 1e-17 at the limit
constexpr double SAME_W = 1e-15;              // m

// Of the surface.
double w_above_z0(const SurfChemNonst& m) { return w_above_z0(m, m.z, m.h); }

// Adds dh [m] grown in tension at the effective thickness w to the list, and w dh to the integral. A negative dh
// removes growth from the end of the list.
void add_tension(std::vector<TensionSegment>& list, double w, double dh, double& integral) {
  while (dh < 0.0 && !list.empty()) {
    TensionSegment& last = list.back();
    const double taken = std::min(-dh, last.dh);
    integral -= last.w * taken;
    last.dh -= taken;
    dh += taken;
    if (!(last.dh > 0.0)) list.pop_back();
  }
  if (!(dh > 0.0)) return;
  integral += w * dh;
  // In tension w is constant but for rounding.
  if (!list.empty() && std::abs(list.back().w - w) < SAME_W) {
    list.back().dh += dh;
  } else {
    list.push_back({w, dh});
  }
}

// A value and its derivative by k.
struct Term {
  double value = 0.0;
  double slope = 0.0;
};

// The integral of x ln(1 + k x) from 0 to x. Just after V-defects have opened k x is 1e-5, where the closed form of
// F_segment is wrong by a tenth; so it is a series there.
Term relaxing_term(double k, double x) {
  const double kx = k * x;
  if (kx < SERIES_LIMIT) {
    double sum = 0.0, derivative = 0.0;
    for (int n = SERIES_TERMS; n > 0; --n) {
      const double a = 1.0 / (n * (n + 2));
      sum = kx * (a - sum);
      derivative = n * a - kx * derivative;
    }
    return {x * x * sum, x * x * x * derivative};
  }
  const double q = 1.0 / k;
  const double log = std::log1p(kx);
  return {0.5 * x * q - 0.25 * x * x - log * 0.5 * (q * q - x * x), (0.5 * kx * kx - kx + log) / (k * k * k)};
}

// J2 at the state in the model and its derivative by rho. dh: grown in tension since the last accepted state, at
// w_step.
Term J2_term(const StagedLayer& layer, double rho, double w_step, double dh) {
  const SurfChemNonst& m = layer.model;
  const double k = J2_k(m, rho);
  Term sum = relaxing_term(k, w_above_z0(m));
  const auto add = [&sum, k](double w, double thickness) {
    sum.value += std::log1p(k * w) * w * thickness;
    sum.slope += w * w / (k * w + 1.0) * thickness;
  };
  for (const TensionSegment& s : layer.tension) add(s.w, s.dh);
  add(w_step, dh);
  const double c = J2_factor(m);
  return {c * sum.value, c * sum.slope * (2.0 * L_TD * m.tan_V)};
}

CandidateLists lists_of(const Film& film) { return {film.z, film.h, film.I0, film.I1}; }

// The balance of V-defects that reach down to height z_at of the film.
double balance_at(const StagedLayer& layer, double z_at) {
  const SurfChemNonst& m = layer.model;
  const FilmPoint p = film_at(layer.film, z_at);
  return candidate_balance(m, z_at, p.h, p.I0, p.I1);
}

// The depth with the lowest balance between low and high, by golden-section search; one of the ends if that is lower.
double lowest_between(const StagedLayer& layer, double low, double high) {
  const double ends[] = {low, high};
  constexpr double SECTION = 0.6180339887498949;
  double c = high - SECTION * (high - low), d = low + SECTION * (high - low);
  double f_c = balance_at(layer, c), f_d = balance_at(layer, d);
  while (c < d && high - low > Z0_TOLERANCE) {
    if (f_c < f_d) {
      high = d;
      d = c;
      f_d = f_c;
      c = high - SECTION * (high - low);
      f_c = balance_at(layer, c);
    } else {
      low = c;
      c = d;
      f_c = f_d;
      d = low + SECTION * (high - low);
      f_d = balance_at(layer, d);
    }
  }
  double best = 0.5 * (low + high);
  for (double end : ends) {
    if (balance_at(layer, end) < balance_at(layer, best)) best = end;
  }
  return best;
}

// The depth of the film with the lowest balance and that balance, which is above 0 only if no depth has one below 0.
struct LowestBalance {
  double z0 = 0.0;
  double balance = std::numeric_limits<double>::infinity();
};

// Searches between left and right as well. Between knots the balance dips less than it rises to the neighbours.
void look_between(const StagedLayer& layer, double left, double right, LowestBalance& lowest) {
  const double rise = std::max(balance_at(layer, left), balance_at(layer, right)) - lowest.balance;
  if (lowest.balance > rise) return;
  const double refined = lowest_between(layer, left, right);
  const double balance = balance_at(layer, refined);
  if (balance < lowest.balance) lowest = {refined, balance};
}

LowestBalance lowest_balance(StagedLayer& layer) {
  const SurfChemNonst& m = layer.model;
  const std::vector<double>& z = layer.film.z;
  const double highest = m.z - CANDIDATE_DEPTH;
  if (!(highest > z.front())) return {};
  // The lowest knot, even if the highest candidate is lower: the balance may be lower still beside the knot. It is
  // nearly always that of the last search, which leaves little to search.
  std::size_t i = layer.lowest_knot < z.size() && z[layer.lowest_knot] <= highest ? layer.lowest_knot : 0;
  LowestBalance at_knot{z[i], balance_at(layer, z[i])};
  const Z0Search search = search_z0(m, lists_of(layer.film), z.size(), layer.film.candidate_blocks, at_knot.balance);
  if (search.found) {
    i = search.index;
    at_knot = {z[i], search.balance};
  }
  layer.lowest_knot = i;
  look_between(layer, z[i > 0 ? i - 1 : 0], i + 1 < z.size() ? std::min(highest, z[i + 1]) : highest, at_knot);
  // The lowest depth may also be between the last knot that is deep enough and the highest candidate.
  LowestBalance at_highest{highest, balance_at(layer, highest)};
  if (search.passed > i + 1) look_between(layer, z[search.passed - 1], highest, at_highest);
  return at_highest.balance < at_knot.balance ? at_highest : at_knot;
}

}  // namespace

bool v_defects_open(StagedLayer& layer) {
  // Only growth under compression lowers a balance.
  return layer.film.compressed_from < layer.film.z.size() && lowest_balance(layer).balance < 0.0;
}

void open_v_defects(StagedLayer& layer) {
  SurfChemNonst& m = layer.model;
  // The uppermost candidate may be below the start of the film by a rounding error.
  m.z0 = std::max(lowest_balance(layer).z0, layer.film.z.front());
  const FilmPoint at_z0 = film_at(layer.film, m.z0);
  set_state_at_z0(m, at_z0.h, at_z0.J0_0, at_z0.J0_1);
  layer.open = true;
  layer.rho_accepted = 0.0;
  layer.J1_tension = 0.0;
  layer.tension.clear();
  FilmPoint from = at_z0;
  double before_opening = 0.0;
  const auto first = std::upper_bound(layer.film.z.begin(), layer.film.z.end(), m.z0) - layer.film.z.begin();
  for (auto i = static_cast<std::size_t>(first); i < layer.film.z.size(); ++i) {
    const FilmPoint to = film_at(layer.film, layer.film.z[i]);
    const auto w = [&m](const FilmPoint& p) { return w_above_z0(m, p.z, p.h); };
    add_tension(layer.tension, 0.5 * (w(from) + w(to)), to.h - from.h, before_opening);
    from = to;
  }
  layer.h_accepted = from.h;
  layer.w_accepted = w_above_z0(m, from.z, from.h);
  layer.w_open = w_above_z0(m);
}

// The balance is concave in the density, so that the iterates of Newton's method rise towards its root.
double v_defect_density(StagedLayer& layer) {
  SurfChemNonst& m = layer.model;
  const double w = w_above_z0(m);
  if (w < layer.w_open) return layer.rho_accepted;  // evaporated below the surface on which they opened
  const double w_step = 0.5 * (w + layer.w_accepted), dh = m.h - layer.h_accepted;
  m.J0 = J0_of(m);
  m.J1 = stiff_relieved(m) * (0.5 * (w * w - layer.w_open * layer.w_open) + (layer.J1_tension + w_step * dh));
  const double E = loop_energy(m, m.z, m.z0);
  double rho = layer.rho_accepted;
  for (int i = 0; i < MAX_ITERATIONS && rho < RHO_VD_MAX; ++i) {
    const Term J2 = J2_term(layer, rho, w_step, dh);
    const double balance = E + m.J0 + m.J1 + J2.value;
    if (!(balance < -BALANCE_ZERO)) return rho;
    const double step = -balance / J2.slope;
    rho += step;
    if (!(step > RELATIVE_TOLERANCE * rho)) return rho;
  }
  return rho > RHO_VD_MAX ? RHO_VD_MAX : rho;
}

double v_defect_J2(const StagedLayer& layer) {
  const SurfChemNonst& m = layer.model;
  const double w_step = 0.5 * (w_above_z0(m) + layer.w_accepted);
  return J2_term(layer, m.rho_VD, w_step, m.h - layer.h_accepted).value;
}

void accept_v_defects(StagedLayer& layer) {
  if (!layer.open) return;
  const SurfChemNonst& m = layer.model;
  const double w = w_above_z0(m);
  add_tension(layer.tension, 0.5 * (w + layer.w_accepted), m.h - layer.h_accepted, layer.J1_tension);
  layer.w_accepted = w;
  layer.h_accepted = m.h;
  layer.rho_accepted = m.rho_VD;
}

}  // namespace vorlen

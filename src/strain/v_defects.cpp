// V-defects: an energy balance decides where they open and how dense they get. Opening a defect at depth z0 costs the
// energy of a dislocation loop that grows with z - z0, and changes the elastic energy of the layer above z0. The depth
// with the most negative balance becomes z0; from then on the density rises just so far that the balance is zero again.
//
// docs/physics.md, section 8. In order: energy terms, search for z0, start, update, root search for the density.
#include <algorithm>
#include <cmath>

#include "model/dislocation_constants.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

namespace {

constexpr double BURGERS = A_GaN * 1e-10;  // m, in the loop energy
constexpr double SEGMENT_CUT = 1e-6;       // least k x of F_segment; below it the closed form cancels
constexpr double K_MIN = 1e-10;            // least k of J2_of

// The first segment that reaches above depth: its number, or the length of the list.
std::size_t first_above(const std::vector<DepthSegment>& list, double depth) {
  const auto reaches = [depth](const DepthSegment& s) { return depth < s.z_to; };
  return static_cast<std::size_t>(std::find_if(list.begin(), list.end(), reaches) - list.begin());
}

}  // namespace

double F_segment(double k, double x) {
  if (x * k < SEGMENT_CUT) return 0.0;
  const double q = 1.0 / k;
  return 0.5 * x * q - 0.25 * x * x - std::log(k * x + 1.0) * 0.5 * (q * q - x * x);
}

double SurfChemNonst::loop_energy(double z_at, double z_base) const {
  const double d = z_at - z_base;
  return d * E_line * std::log((d / BURGERS - 1.0) * sin_V + 1.0);
}

double SurfChemNonst::J2_factor() const { return tan_V * modulus_M() * b_burgers * b_burgers * INV_L_TD; }

double SurfChemNonst::J2_k(double rho) const { return L_TD * tan_V * (2.0 * rho + rho_TD_z0); }

double SurfChemNonst::J2_of(double rho) const {
  const double k = J2_k(rho);
  if (k < K_MIN) return 0.0;
  double S = 0.0;
  for (std::size_t i = segments.relaxing_first; i < segments.relaxing.size(); ++i) {
    const DepthSegment& s = segments.relaxing[i];
    const double d = z0 + s.h_from - h_z0;
    S += F_segment(k, s.z_to - d) - F_segment(k, s.z_from - d);
  }
  // Under tension the effective thickness w does not grow.
  for (std::size_t i = segments.tensile_first; i < segments.tensile.size(); ++i) {
    const DepthSegment& s = segments.tensile[i];
    const double w = s.z_from - z0 - s.h_from + h_z0;
    S += std::log(k * w + 1.0) * w * (s.z_to - s.z_from);
  }
  return S * J2_factor();
}

double SurfChemNonst::energy_balance(double E, double rho) const { return E + J0 + J1 + J2_of(rho); }

// The balances of all candidates are compared as if computed one by one, but blocks of candidates are passed over when
// no balance in them can be below the best one. The lower bound of a block takes the extremes of its members through
// the same operations; as each of them rounds monotonically, it stays below every balance as computed, and the factor
// LOG_SLACK covers the last bit of the logarithm, which need not be monotonic.
Z0Search SurfChemNonst::search_z0(const CandidateLists& lists, std::size_t n, CandidateBlocks& blocks,
                                  double below) const {
  constexpr double LOG_SLACK = 1.0 - 1e-14;
  Z0Search search;
  search.balance = below;
  const double z_limit = z - CANDIDATE_DEPTH;
  const auto cannot_win = [&](const CandidateBounds& b) {
    if (!(b.z_max <= z_limit)) return false;  // the depth test may stop the loop in this block
    const double I0_from = I0 - b.I0_max;
    const double I0_to = I0 - b.I0_min;
    const double product = std::max({I0_from * b.w_min, I0_from * b.w_max, I0_to * b.w_min, I0_to * b.w_max});
    return loop_energy(z, b.z_max) * LOG_SLACK + ((I1 - b.I1_max) - product) >= search.balance;
  };
  const bool bounded = E_line > 0.0 && sin_V > 0.0;  // then the loop energy rises with the distance to the surface
  if (bounded) blocks.extend(lists, n, z_start);

  std::size_t i = 0;
  while (i < n) {
    const std::size_t skipped = bounded ? blocks.skipped_at(i, cannot_win) : 0;
    if (skipped > 0) {
      i += skipped;
      continue;
    }
    const double z_i = lists.z[i];
    if (z_i > z_limit) break;
    const double s = loop_energy(z, z_i) + K1_of(z_i, lists.h[i], lists.I0[i], lists.I1[i]);
    if (s < search.balance) {
      search.balance = s;
      search.index = i;
      search.found = true;
    }
    ++i;
  }
  search.passed = i;
  return search;
}

double SurfChemNonst::K1_of(double z_at, double h_at, double I0_at, double I1_at) const {
  return (I1 - I1_at) - (I0 - I0_at) * (z_at - z_start - h_at);
}

void SurfChemNonst::find_z0() {
  // The lists of h and the integrals do not hold the current point yet. With a z that is not a number the depth test
  // never stops the search; the length does.
  const std::size_t n = std::min(history.t.size(), history.I1.size());
  const CandidateLists lists{history.z, history.h, history.I0, history.I1};
  const Z0Search search = search_z0(lists, n, history.candidate_blocks);
  if (search.found) {
    z0 = history.z[search.index];
    z0_index = static_cast<std::uint32_t>(search.index);
  }
  if (search.passed > 0) {
    const std::size_t last = search.passed - 1;
    K1 = K1_of(history.z[last], history.h[last], history.I0[last], history.I1[last]);
  }
}

void SurfChemNonst::set_state_at_z0(double h_at, double I0_at, double I1_at, double J0_0_at, double J0_1_at) {
  h_z0 = h_at;
  I0_z0 = I0_at;
  I1_z0 = I1_at;
  J0_0_z0 = J0_0_at;
  J0_1_z0 = J0_1_at;
  rho_TD_z0 = RHO_MIN <= rho_TD0 ? 1.0 / (1.0 / rho_TD0 + (z0 - z_start - h_z0) * L_TD * tan_V) : 0.0;
  rho_VD = 0.0;
  eps_r_z0 = eps_relaxed(rho_VD, z0, h_z0);
}

double SurfChemNonst::J0_of() const { return (J0_1 - J0_1_z0) * (h_z0 - (z0 - z_start)) + (J0_0 - J0_0_z0); }

double SurfChemNonst::stiff_relieved() const { return 2.0 * tan_V * modulus_M() * b_burgers * eps_r_z0; }

void SurfChemNonst::start_V_defects() {
  set_state_at_z0(history.h[z0_index], history.I0[z0_index], history.I1[z0_index], history.J0_0[z0_index],
                  history.J0_1[z0_index]);

  // What grew below z0 no longer counts. A compressive segment is cut at z0; a tensile one begins at z0 in any case.
  const std::size_t relax = first_above(segments.relaxing, z0);
  segments.relaxing_first = static_cast<std::uint32_t>(relax);
  if (relax < segments.relaxing.size() && segments.relaxing[relax].z_from < z0) segments.relaxing[relax].z_from = z0;
  const std::size_t tensile = first_above(segments.tensile, z0);
  segments.tensile_first = static_cast<std::uint32_t>(tensile);
  if (tensile < segments.tensile.size()) {
    DepthSegment& s = segments.tensile[tensile];
    if (s.z_from < z0) s.h_from += z0 - s.z_from;
    s.z_from = z0;
  }
}

void SurfChemNonst::update_V_defects() {
  K1 = (I0 - I0_z0) * (z0 - z_start - h_z0) + (I1 - I1_z0);
  J0 = J0_of();
  const double stiff = stiff_relieved();
  if (0.0 < eps_xx) {
    J1 += stiff * (z - z_prev) * (z_prev - z0 - h_prev + h_z0);
  } else {
    const double grown = z - z_start;
    const double grown_prev = z_prev - z_start;
    J1 += stiff * ((grown * grown - grown_prev * grown_prev) * 0.5 + (z - z_prev) * (h_z0 - h_prev - (z0 - z_start)));
  }
  J2 = J2_of(rho_VD);
  double rho_VD_candidate = 0.0;
  solve_rho_VD(rho_VD_candidate);
  rho_VD = rho_VD_candidate;
}

bool SurfChemNonst::solve_rho_VD(double& rho_VD_candidate) {
  constexpr double RHO_VD_B_MIN = 1e8;         // smallest starting point of the upper bracket, m^-2
  constexpr double F_PRECISION = 1e6;          // least tolerance of the density, m^-2
  constexpr double RELATIVE_TOLERANCE = 1e-4;  // of the larger bracket end
  constexpr double BRACKET_GROWTH = 10.0;
  constexpr int MAX_HALVINGS = 20;

  error_text.clear();
  if (rho_VD >= RHO_VD_MAX) {
    rho_VD = RHO_VD_MAX;
    rho_VD_candidate = RHO_VD_MAX;
    return true;
  }
  const double E = loop_energy(z, z0);
  const auto F = [this, E](double rho) { return energy_balance(E, rho); };

  // A balance that is not negative leaves the density as it is.
  if (-BALANCE_ZERO < F(rho_VD)) {
    rho_VD_candidate = rho_VD;
    return true;
  }

  double rho_VD_A = rho_VD;
  double rho_VD_B = std::max(rho_VD_A, RHO_VD_B_MIN);
  bool bracketed = false;
  do {
    rho_VD_B = std::min(BRACKET_GROWTH * rho_VD_B, RHO_VD_MAX);
    const double F_B = F(rho_VD_B);
    if (std::abs(F_B) < BALANCE_ZERO) {
      rho_VD_candidate = rho_VD_B;
      return true;
    }
    if (0.0 < F_B) {
      bracketed = true;
      break;
    }
    rho_VD_A = rho_VD_B;
  } while (rho_VD_B < RHO_VD_MAX);
  if (rho_VD_B > RHO_VD_MAX - RHO_VD_B_MIN && !bracketed) {
    rho_VD_candidate = RHO_VD_MAX;
    return true;
  }

  double rho_VD_C = (rho_VD_A + rho_VD_B) * 0.5;
  double F_C = F(rho_VD_C);
  const double tol = std::max(RELATIVE_TOLERANCE * std::max(std::abs(rho_VD_A), std::abs(rho_VD_B)), F_PRECISION);
  for (int k = 0; k < MAX_HALVINGS && !(std::abs(rho_VD_A - rho_VD_B) <= tol); ++k) {
    (0.0 < F_C ? rho_VD_B : rho_VD_A) = rho_VD_C;
    rho_VD_C = (rho_VD_A + rho_VD_B) * 0.5;
    F_C = F(rho_VD_C);
  }
  rho_VD_candidate = rho_VD_C;
  return true;
}

}  // namespace vorlen

// V-defects of the staged scheme. A film is grown on paper along a path of heights and of thickness grown in tension;
// the balance is then summed over segments of a thousandth of the path, independently of the closed forms of the code:
//   J0 = int S (w - w_z0) dz,  J1 = 2 M b tan(V) eps_r_z0 int w dz,  J2 = M b^2 tan(V) / L_TD int w ln(1 + k w) dz
// with w = z - z0 - (h - h_z0) above z0.
#include "strain/v_defect_density.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <tuple>
#include <vector>

#include "api/staged_equations.h"
#include "model/constants.h"
#include "strain/small_model.h"
#include "strain/v_defect_energy.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

constexpr double NM = 1e-9;
constexpr double INDIUM = 0.2;  // of most films

// A film of InGaN. The path says how much grows in tension.
class GrownFilm {
 public:
  struct Place {
    double z = 0.0, h = 0.0;  // above the start of growth, m
  };

  explicit GrownFilm(double indium = INDIUM)
      : model(small_model(STRESS_V_dislocation)), e(staged_equations(*model, y_)) {
    start_stage(e, 0, y_);
    const double x[3] = {indium, 1.0 - indium, 0.0};
    model->a_bulk = model->lattice_a(x);
    path_.push_back({});
    film_truncate(e.layer.film, 0);
    film_add(e.layer.film, surface_point(e));
  }

  // Grows by dz, of which a share is in tension, in steps; each puts a knot on the film and is accepted.
  void grow(double dz, double tension_share, int steps) {
    for (int i = 0; i < steps; ++i) {
      move(dz / steps, tension_share);
      film_add(e.layer.film, surface_point(e));
      if (e.layer.open) model->rho_VD = v_defect_density(e.layer);
      accept_v_defects(e.layer);
    }
  }

  // Evaporates down to height z above the start of growth, in steps.
  void evaporate(double z, int steps) {
    const double from = model->z - model->z_start;
    for (int i = 1; i <= steps; ++i) {
      const double height = model->z_start + (i == steps ? z : from + (z - from) * i / steps);
      const FilmPoint p = film_at(e.layer.film, height);
      model->z = e.z = height;
      model->h = p.h;
      model->I0 = p.I0;
      model->I1 = p.I1;
      model->J0_0 = p.J0_0;
      model->J0_1 = p.J0_1;
      model->rho_VD = v_defect_density(e.layer);
      film_cut(e.layer.film, height);
      accept_v_defects(e.layer);
    }
    while (path_.back().z > z) path_.pop_back();
    path_.push_back({z, model->h});
  }

  // Moves the surface without taking a step.
  void move(double dz, double tension_share) {
    SurfChemNonst& m = *model;
    constexpr int PARTS = 8;
    const double d = dz / PARTS;
    for (int k = 0; k < PARTS; ++k) {
      // Simpson's rule over the part.
      double dI0 = 0.0, dI1 = 0.0, dJ0_0 = 0.0, dJ0_1 = 0.0;
      const double z = m.z, h = m.h;
      for (int i = 0; i < 3; ++i) {
        m.z = z + 0.5 * i * d;
        m.h = h + 0.5 * i * d * tension_share;
        const RelaxationRates r = m.relaxation_rates(1.0);
        const double weight = (i == 1 ? 4.0 : 1.0) * d / 6.0;
        dI0 += weight * r.R_disl;
        dI1 += weight * r.z_rel * r.R_disl;
        dJ0_0 += weight * r.z_rel * r.S_disl;
        dJ0_1 += weight * r.S_disl;
      }
      m.I0 += dI0;
      m.I1 += dI1;
      m.J0_0 += dJ0_0;
      m.J0_1 += dJ0_1;
      path_.push_back({m.z - m.z_start, m.h});
    }
    e.z = m.z;
  }

  // The balance for a density, summed over the path above z0. J1 counts from where the defects opened.
  struct Terms {
    double loop = 0.0, J0 = 0.0, J1 = 0.0, J2 = 0.0;
    double sum() const { return loop + J0 + J1 + J2; }
  };
  Terms terms(double rho) const {
    const SurfChemNonst& m = *model;
    const double z0 = m.z0 - m.z_start;
    const double rho_TD0 = 5e12;  // m^-2, of the small recipe
    const double tan_V = 1.0;
    const double rho_TD_z0 = 1.0 / (1.0 / rho_TD0 + REACTION_LENGTH * tan_V * (z0 - m.h_z0));
    const double eps_r_z0 =
        0.5 * B_BURGERS / REACTION_LENGTH * std::log1p(rho_TD0 * REACTION_LENGTH * tan_V * (z0 - m.h_z0));
    const double k = REACTION_LENGTH * tan_V * (2.0 * rho + rho_TD_z0);
    const double S = 2.0 * MODULUS * tan_V * B_BURGERS * (m.a_ref / m.a_bulk - 1.0);
    Terms t;
    t.loop = loop_energy(m, m.z, m.z0);
    for (std::size_t i = 1; i < path_.size(); ++i) {
      const Place a = path_[i - 1], b = path_[i];
      if (b.z <= z0) continue;
      constexpr int PIECES = 20;
      for (int p = 0; p < PIECES; ++p) {
        const double z = a.z + (b.z - a.z) * (p + 0.5) / PIECES;
        if (z < z0) continue;
        const double h = a.h + (b.h - a.h) * (p + 0.5) / PIECES;
        const double w = z - z0 - (h - m.h_z0), dz = (b.z - a.z) / PIECES;
        t.J0 += S * w * dz;
        t.J2 += MODULUS * B_BURGERS * B_BURGERS * tan_V / REACTION_LENGTH * w * std::log1p(k * w) * dz;
        if (z > z_open) t.J1 += 2.0 * MODULUS * B_BURGERS * tan_V * eps_r_z0 * w * dz;
      }
    }
    return t;
  }

  // The density at which the summed balance is zero, by halving.
  double root() const {
    double low = 0.0, high = 1e17;
    for (int i = 0; i < 200; ++i) {
      const double middle = 0.5 * (low + high);
      (terms(middle).sum() < 0.0 ? low : high) = middle;
    }
    return 0.5 * (low + high);
  }

  void open() {
    open_v_defects(e.layer);
    z_open = model->z - model->z_start;
    model->rho_VD = v_defect_density(e.layer);
    accept_v_defects(e.layer);
  }

  // Grows under compression until a depth has a negative balance.
  void grow_until_open(double step = 0.1 * NM) {
    for (int i = 0; i < 3000 && !v_defects_open(e.layer); ++i) grow(step, 0.0, 1);
    ASSERT_TRUE(v_defects_open(e.layer));
  }

  std::unique_ptr<SurfChemNonst> model;
  StagedEquations e;
  double z_open = 0.0;

 private:
  StagedVector y_{};
  std::vector<Place> path_;
};

// The density found where the balance with the summed J2 is zero at rho; the rest of the balance is the code's own.
double density_for(GrownFilm& g, double rho) {
  SurfChemNonst& m = *g.model;
  const double J0_0 = m.J0_0, accepted = g.e.layer.rho_accepted;
  g.e.layer.rho_accepted = 0.0;
  v_defect_density(g.e.layer);
  m.J0_0 -= loop_energy(m, m.z, m.z0) + m.J0 + m.J1 + g.terms(rho).J2;
  const double found = v_defect_density(g.e.layer);
  m.J0_0 = J0_0;
  g.e.layer.rho_accepted = accepted;
  v_defect_density(g.e.layer);
  return found;
}

TEST(VDefectDensity, IsTheRootOfTheBalanceSummedOverFineSegments) {
  GrownFilm g;
  g.grow_until_open();
  g.open();
  double before = 0.0;
  for (int i = 0; i < 12; ++i) {
    g.grow(0.5 * NM, 0.0, 5);
    const double rho = g.model->rho_VD;
    EXPECT_GE(rho, before);
    if (rho < 1e17) {
      EXPECT_TRUE(close_to(g.root(), rho, 1e-4)) << i;
    }
    before = rho;
  }
  EXPECT_LT(1e12, before);
}

// J1 and J2 along a path with growth in tension in its middle, with both parts at once, and back down by evaporation.
TEST(VDefectBalance, ItsIntegralsAreThoseOfThePath) {
  for (const int steps : {1, 4, 16}) {
    SCOPED_TRACE(steps);
    GrownFilm g;
    g.grow_until_open();
    g.open();
    const auto compare = [&g](const char* where) {
      SCOPED_TRACE(where);
      const GrownFilm::Terms expected = g.terms(0.0);
      EXPECT_TRUE(close_to(expected.J0, g.model->J0, 2e-4));
      EXPECT_TRUE(close_to(expected.J1, g.model->J1, 2e-4));
      for (double rho : {1e13, 1e15, 3e16}) EXPECT_TRUE(close_to(rho, density_for(g, rho), 1e-3));
    };
    g.grow(4.0 * NM, 0.0, steps);
    compare("after compression");
    g.grow(3.0 * NM, 1.0, steps);
    compare("after tension");
    g.grow(2.0 * NM, 0.0, steps);
    compare("after compression again");
    const double height = g.model->z - g.model->z_start;
    g.evaporate(height - 1.0 * NM, steps);
    compare("after evaporation");
    g.evaporate(height - 3.0 * NM, steps);
    compare("after evaporation into what grew in tension");
    g.grow(1.0 * NM, 0.0, steps);
    compare("after growth on it");
    g.evaporate(height - 5.5 * NM, steps);
    compare("after evaporation through what grew in tension");
  }
}

// Where a part of the growth is in tension, its share is summed at the middle of each step: of second order.
TEST(VDefectBalance, WithBothKindsOfGrowthAtOnceTheSumConvergesToTheIntegral) {
  const auto error_with = [](int steps) {
    GrownFilm g;
    g.grow_until_open();
    g.open();
    g.grow(8.0 * NM, 0.5, steps);
    return std::abs(density_for(g, 1e15) / 1e15 - 1.0);
  };
  const double coarse = error_with(1);
  EXPECT_GT(coarse, 1e-3);
  EXPECT_LT(error_with(64), 2e-4);
}

TEST(VDefectDensity, IsNeverBelowThatOfAnAcceptedState) {
  GrownFilm g;
  g.grow_until_open();
  g.open();
  g.grow(3.0 * NM, 0.0, 30);
  const double accepted = g.model->rho_VD;
  ASSERT_LT(0.0, accepted);
  ASSERT_LT(accepted, 1e17);
  g.evaporate(g.model->z - g.model->z_start - 2.0 * NM, 10);
  EXPECT_LT(g.root(), 0.9 * accepted);
  EXPECT_EQ(accepted, g.model->rho_VD);
  // A trial state leaves no trace.
  g.move(5.0 * NM, 0.0);
  EXPECT_LT(accepted, v_defect_density(g.e.layer));
  EXPECT_EQ(accepted, g.e.layer.rho_accepted);
}

TEST(VDefectDensity, OfAStateIsTheSameWhateverTrialStatesCameBefore) {
  GrownFilm g;
  g.grow_until_open();
  g.open();
  g.grow(2.0 * NM, 0.0, 20);
  const auto state = std::array{g.model->z, g.model->h, g.model->I0, g.model->I1, g.model->J0_0, g.model->J0_1};
  const double rho = v_defect_density(g.e.layer);
  for (double share : {0.0, 1.0}) {
    g.move(4.0 * NM, share);
    v_defect_density(g.e.layer);
    SurfChemNonst& m = *g.model;
    std::tie(m.z, m.h, m.I0, m.I1, m.J0_0, m.J0_1) = std::tuple_cat(state);
    EXPECT_EQ(rho, v_defect_density(g.e.layer));
  }
}

TEST(VDefectDensity, IsCapped) {
  GrownFilm g(0.6);
  g.grow_until_open();
  g.open();
  for (int i = 0; i < 2000 && g.model->rho_VD < 1e17; ++i) g.grow(0.25 * NM, 0.0, 1);
  EXPECT_EQ(1e17, g.model->rho_VD);
  EXPECT_GT(0.0, g.terms(1e17).sum()) << "the balance is still negative at the cap";
}

TEST(VDefectDensity, StaysAtItsCap) {
  GrownFilm g;
  g.grow_until_open();
  g.open();
  g.e.layer.rho_accepted = 1e17;
  EXPECT_EQ(1e17, v_defect_density(g.e.layer));
}

// The lowest balance over a fine grid of depths at least three Burgers vectors below the surface.
struct Lowest {
  double z = 0.0;
  double balance = std::numeric_limits<double>::infinity();
};

Lowest scan(const GrownFilm& g, int points) {
  const SurfChemNonst& m = *g.model;
  const double from = m.z_start, to = m.z - 3.0 * B_BURGERS;
  Lowest lowest;
  if (!(to > from)) return lowest;
  for (int i = 0; i <= points; ++i) {
    const double z = i == points ? to : from + (to - from) * i / points;
    const FilmPoint p = film_at(g.e.layer.film, z);
    const double balance = loop_energy(m, m.z, z) + (m.I1 - p.I1) - (m.I0 - p.I0) * (z - m.z_start - p.h);
    if (balance < lowest.balance) lowest = {z, balance};
  }
  return lowest;
}

TEST(VDefectOpening, IsWhereAScanOfAllDepthsFindsTheLowestBalance) {
  // Under compression alone, with growth in tension below, in the middle and on top.
  const std::vector<std::function<void(GrownFilm&)>> paths = {[](GrownFilm&) {},
                                                              [](GrownFilm& g) { g.grow(5.0 * NM, 1.0, 7); },
                                                              [](GrownFilm& g) {
                                                                g.grow(3.0 * NM, 0.0, 11);
                                                                g.grow(4.0 * NM, 1.0, 3);
                                                              },
                                                              [](GrownFilm& g) { g.grow(2.0 * NM, 0.5, 9); }};
  for (std::size_t k = 0; k < paths.size(); ++k) {
    for (const double step : {0.05 * NM, 0.7 * NM}) {
      SCOPED_TRACE(testing::Message() << "path " << k << ", step " << step);
      GrownFilm g;
      paths[k](g);
      bool opened = false;
      for (int i = 0; i < 3000 && !opened; ++i) {
        g.grow(step, 0.0, 1);
        const Lowest lowest = scan(g, 2000);
        opened = v_defects_open(g.e.layer);
        ASSERT_EQ(lowest.balance < 0.0, opened) << i;
      }
      ASSERT_TRUE(opened);
      // A little more growth, to a minimum well above rounding errors.
      g.grow(step, 0.0, 4);
      const Lowest lowest = scan(g, 20000);
      open_v_defects(g.e.layer);
      const double spacing = (g.model->z - g.model->z_start) / 20000.0;
      EXPECT_NEAR(lowest.z, g.model->z0, 2.0 * spacing);
      const FilmPoint p = film_at(g.e.layer.film, g.model->z0);
      EXPECT_EQ(p.h, g.model->h_z0);
      EXPECT_EQ(p.J0_0, g.model->J0_0_z0);
      EXPECT_EQ(p.J0_1, g.model->J0_1_z0);
      EXPECT_TRUE(g.e.layer.open);
    }
  }
}

TEST(VDefectOpening, AThinFilmHasNoCandidate) {
  GrownFilm g;
  g.grow(3.0 * B_BURGERS, 0.0, 3);
  g.model->I1 = -1.0;  // whatever the integrals are
  EXPECT_FALSE(v_defects_open(g.e.layer));
}

TEST(VDefectOpening, AFilmThatNeverGrewUnderCompressionHasNone) {
  GrownFilm g;
  const double x[3] = {0.0, 0.7, 0.3};
  g.model->a_bulk = g.model->lattice_a(x);
  film_truncate(g.e.layer.film, 0);
  film_add(g.e.layer.film, surface_point(g.e));
  g.grow(50.0 * NM, 1.0, 100);
  EXPECT_FALSE(v_defects_open(g.e.layer));
}

// A balance set directly: all depths above 0 but the knot at the uppermost candidate.
TEST(VDefectOpening, ACandidateThreeBurgersVectorsBelowTheSurfaceCounts) {
  GrownFilm g;
  SurfChemNonst& m = *g.model;
  const double z_knot = m.z_start + 10.0 * NM;
  const auto add = [&g](double z, double I1) {
    FilmPoint p{.z = z, .x_In = INDIUM};
    p.I1 = I1;
    p.R = -1e-30;  // counts as compressed, and adds nothing
    film_add(g.e.layer.film, p);
  };
  film_truncate(g.e.layer.film, 0);
  for (int i = 0; i < 10; ++i) add(m.z_start + i * NM, 0.0);
  add(z_knot, 1e-15);
  m.I0 = m.I1 = 0.0;
  m.h = 0.0;
  m.z = g.e.z = z_knot + 3e-10 * 3.189;
  ASSERT_EQ(z_knot, m.z - CANDIDATE_DEPTH);
  add(m.z, 0.0);
  EXPECT_TRUE(v_defects_open(g.e.layer));
  open_v_defects(g.e.layer);
  EXPECT_EQ(z_knot, m.z0);
}

TEST(VDefectOpening, AKnotCloserToTheSurfaceDoesNotCount) {
  GrownFilm g;
  SurfChemNonst& m = *g.model;
  const double z_knot = m.z_start + 10.0 * NM;
  const auto add = [&g](double z, double I1) {
    FilmPoint p{.z = z, .x_In = INDIUM};
    p.I1 = I1;
    p.R = -1e-30;
    film_add(g.e.layer.film, p);
  };
  film_truncate(g.e.layer.film, 0);
  for (int i = 0; i <= 9; ++i) add(m.z_start + i * NM, 0.0);
  add(z_knot - 0.01 * NM, 0.0);
  add(z_knot, 1e-15);
  m.I0 = m.I1 = 0.0;
  m.h = 0.0;
  m.z = g.e.z = z_knot - 0.02 * NM + 3e-10 * 3.189;
  add(m.z, 0.0);
  EXPECT_FALSE(v_defects_open(g.e.layer));
}

}  // namespace
}  // namespace vorlen_test

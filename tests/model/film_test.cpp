// The film under the surface: each depth has the composition that was grown there, and evaporation removes it.
//
// Compositions and cubics of the tests are chosen freely; expected values are those functions themselves.
#include "model/film.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "support/bits.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

constexpr double NM = 1e-9;

PrePostStageRecord layer(double thickness_nm, double In, double Ga, double Al) {
  PrePostStageRecord stage;
  stage.thickness = thickness_nm;
  stage.X_In_average = In;
  stage.X_Ga_average = Ga;
  stage.X_Al_average = Al;
  return stage;
}

void expect_composition(const Film& film, double z, double In, double Al) {
  const FilmPoint p = film_at(film, z);
  EXPECT_NEAR(In, p.x_In, 1e-12) << "at " << z / NM << " nm";
  EXPECT_NEAR(Al, p.x_Al, 1e-12) << "at " << z / NM << " nm";
}

// A film of knots [nm] on GaN of 100 nm. The composition rises by 0.01 for each nm, aluminium by half of that.
Film rising_film(const std::vector<double>& heights_nm) {
  Film film = film_on({layer(100.0, 0.0, 1.0, 0.0)}, 100.0 * NM, false);
  for (double z : heights_nm) film_add(film, {.z = z * NM, .x_In = 0.01 * (z - 100.0), .x_Al = 0.005 * (z - 100.0)});
  return film;
}

TEST(FilmOn, WithoutPreStagesItLiesOnGaN) {
  const Film film = film_on({}, 2e-6, false);
  EXPECT_EQ(2e-6, film_top(film));
  for (double z : {-1e-6, 0.0, 1e-6, 2e-6, 3e-6}) {
    const FilmPoint p = film_at(film, z);
    EXPECT_EQ(0.0, p.x_In);
    EXPECT_EQ(0.0, p.x_Al);
  }
}

TEST(FilmOn, OnePreStageReachesFromTheBottomToTheStartOfGrowthAndContinuesBelow) {
  const Film film = film_on({layer(100.0, 0.1, 0.7, 0.2)}, 100.0 * NM, true);
  EXPECT_EQ(100.0 * NM, film_top(film));
  EXPECT_TRUE(film.z.empty());
  for (double z : {-500.0 * NM, 0.0, 1.0 * NM, 100.0 * NM, 200.0 * NM}) expect_composition(film, z, 0.1, 0.2);
}

TEST(FilmOn, SeveralPreStagesAreAbruptLayers) {
  const Film film =
      film_on({layer(100.0, 0.0, 1.0, 0.0), layer(50.0, 0.2, 0.8, 0.0), layer(10.0, 0.0, 0.7, 0.3)}, 160.0 * NM, false);
  EXPECT_EQ(160.0 * NM, film_top(film));
  expect_composition(film, -1.0 * NM, 0.0, 0.0);
  expect_composition(film, 99.999 * NM, 0.0, 0.0);
  expect_composition(film, 100.001 * NM, 0.2, 0.0);
  expect_composition(film, 149.999 * NM, 0.2, 0.0);
  expect_composition(film, 150.001 * NM, 0.0, 0.3);
  expect_composition(film, 160.0 * NM, 0.0, 0.3);
  expect_composition(film, 1e-3, 0.0, 0.3);
}

// The reader allows sums from 0.9999 to 1.0001.
TEST(FilmOn, FractionsOfAPreStageAreBroughtToTheSumOfOne) {
  const Film film = film_on({layer(100.0, 0.2, 0.6, 0.20008)}, 100.0 * NM, false);
  expect_composition(film, 50.0 * NM, 0.2 / 1.00008, 0.20008 / 1.00008);
}

TEST(FilmOn, TheUppermostPreStageEndsAtTheStartOfGrowth) {
  // A rounding between the sum of the thicknesses and the start must not leave a gap.
  const double z_start = std::nextafter(0.1 * NM + 0.2 * NM, 1.0);
  const Film film = film_on({layer(0.1, 0.0, 1.0, 0.0), layer(0.2, 0.3, 0.7, 0.0)}, z_start, false);
  EXPECT_EQ(z_start, film_top(film));
  expect_composition(film, z_start, 0.3, 0.0);
}

TEST(FilmAt, BetweenKnotsTheCompositionIsLinear) {
  const Film film = rising_film({100.0, 101.0, 104.0, 110.0});
  for (double z : {100.0, 100.3, 101.0, 102.5, 104.0, 109.9, 110.0}) {
    expect_composition(film, z * NM, 0.01 * (z - 100.0), 0.005 * (z - 100.0));
  }
}

TEST(FilmAt, AboveTheTopItIsAsAtTheTop) { expect_composition(rising_film({100.0, 110.0}), 150.0 * NM, 0.1, 0.05); }

TEST(FilmAt, BelowTheFirstKnotThePreStagesLie) {
  Film film = film_on({layer(60.0, 0.0, 0.5, 0.5), layer(40.0, 0.25, 0.75, 0.0)}, 100.0 * NM, false);
  film_add(film, {.z = 100.0 * NM, .x_In = 0.9});
  film_add(film, {.z = 110.0 * NM, .x_In = 0.9});
  expect_composition(film, 100.0 * NM, 0.9, 0.0);
  expect_composition(film, 99.9 * NM, 0.25, 0.0);
  expect_composition(film, 59.9 * NM, 0.0, 0.5);
  expect_composition(film, -59.9 * NM, 0.0, 0.5);
}

TEST(FilmAt, TwoKnotsOfOneHeightAreAnAbruptInterfaceAndTheLowerOneCounts) {
  Film film = rising_film({100.0});
  film_add(film, {.z = 105.0 * NM, .x_In = 0.1});
  film_add(film, {.z = 105.0 * NM, .x_In = 0.6});
  film_add(film, {.z = 110.0 * NM, .x_In = 0.7});
  EXPECT_EQ(0.1, film_at(film, 105.0 * NM).x_In);
  EXPECT_NEAR(0.6, film_at(film, std::nextafter(105.0 * NM, 1.0)).x_In, 1e-6);
  EXPECT_NEAR(0.1, film_at(film, std::nextafter(105.0 * NM, 0.0)).x_In, 1e-6);
  EXPECT_NEAR(0.65, film_at(film, 107.5 * NM).x_In, 1e-12);
}

// Three knots of one height: an interface that was uncovered and grown over at once. The lowest counts.
TEST(FilmAt, OfThreeKnotsOfOneHeightTheLowestCounts) {
  Film film = rising_film({100.0});
  for (double x : {0.1, 0.2, 0.3}) film_add(film, {.z = 105.0 * NM, .x_In = x});
  EXPECT_EQ(0.1, film_at(film, 105.0 * NM).x_In);
}

// I0 and J0_1 are cubics of z with the slopes R and S, and h and w linear. The slopes of I1 and J0_0 are w R and w S:
// with w = z and R quadratic they are cubics, which are interpolated at order 4 only, so that R is linear for them.
struct Relaxed {
  // In units of 10 nm above 100 nm.
  static double s_of(double z) { return (z - 100.0 * NM) / (10.0 * NM); }
  static double I0(double s) { return 2.0 - s + 3.0 * s * s - s * s * s; }
  static double R(double s) { return (-1.0 + 6.0 * s - 3.0 * s * s) / (10.0 * NM); }
  static double J0_1(double s) { return -1.0 + 2.0 * s * s * s; }
  static double S(double s) { return 6.0 * s * s / (10.0 * NM); }

  static FilmPoint at(double z) {
    const double s = s_of(z);
    FilmPoint p{.z = z, .x_In = 0.1 * s, .x_Al = 0.0};
    p.h = 0.25 * (z - 100.0 * NM);
    p.w = 0.75 * (z - 100.0 * NM);
    p.I0 = I0(s);
    p.R = R(s);
    p.J0_1 = J0_1(s);
    p.S = S(s);
    return p;
  }
};

TEST(FilmAt, IntegralsThatAreCubicsAreFoundExactly) {
  Film film = film_on({}, 100.0 * NM, true);
  for (double z : {100.0, 103.0, 104.0, 110.0}) film_add(film, Relaxed::at(z * NM));
  for (double z : {100.0, 100.7, 103.0, 103.5, 107.0, 109.9, 110.0}) {
    const FilmPoint p = film_at(film, z * NM);
    const double s = Relaxed::s_of(z * NM);
    EXPECT_NEAR(Relaxed::I0(s), p.I0, 1e-12) << z;
    EXPECT_NEAR(Relaxed::J0_1(s), p.J0_1, 1e-12) << z;
    EXPECT_NEAR(0.25 * (z - 100.0) * NM, p.h, 1e-21) << z;
    EXPECT_NEAR(0.75 * (z - 100.0) * NM, p.w, 1e-21) << z;
  }
}

// With R linear and w = z - 100 nm, the slope w R of I1 is quadratic and I1 a cubic: exact again. The same for J0_0.
TEST(FilmAt, FirstMomentsWithALinearSlopeAreFoundExactly) {
  const auto at = [](double z_nm) {
    const double s = (z_nm - 100.0) / 10.0;
    FilmPoint p{.z = z_nm * NM};
    p.w = s * 10.0 * NM;
    p.R = (2.0 - s) / (10.0 * NM);
    p.S = (1.0 + 3.0 * s) / (10.0 * NM);
    p.I1 = 10.0 * NM * (s * s - s * s * s / 3.0);    // integral of w R dz
    p.J0_0 = 10.0 * NM * (0.5 * s * s + s * s * s);  // integral of w S dz
    return p;
  };
  Film film = film_on({}, 100.0 * NM, true);
  for (double z : {100.0, 102.0, 109.0}) film_add(film, at(z));
  for (double z : {100.5, 101.9, 105.0, 108.8}) {
    EXPECT_NEAR(at(z).I1, film_at(film, z * NM).I1, 1e-20) << z;
    EXPECT_NEAR(at(z).J0_0, film_at(film, z * NM).J0_0, 1e-20) << z;
  }
}

// The error of a cubic falls with the fourth power of the interval.
TEST(FilmAt, TheErrorOfAnIntegralFallsWithTheFourthPowerOfTheSpacing) {
  const auto error_with = [](int intervals) {
    Film film = film_on({}, 0.0, true);
    for (int i = 0; i <= intervals; ++i) {
      const double z = 10.0 * NM * i / intervals;
      FilmPoint p{.z = z};
      p.I0 = std::exp(z / (10.0 * NM));
      p.R = p.I0 / (10.0 * NM);
      film_add(film, p);
    }
    double worst = 0.0;
    for (int k = 0; k <= 1000; ++k) {
      const double z = 10.0 * NM * k / 1000;
      worst = std::max(worst, std::abs(film_at(film, z).I0 - std::exp(z / (10.0 * NM))));
    }
    return worst;
  };
  EXPECT_NEAR(16.0, error_with(4) / error_with(8), 2.0);
}

TEST(FilmAt, WithoutRelaxationNothingButTheCompositionIsKept) {
  Film film = film_on({}, 0.0, false);
  FilmPoint p{.z = 0.0, .x_In = 0.3};
  p.h = p.I0 = p.w = p.R = 1.0;
  film_add(film, p);
  EXPECT_TRUE(film.h.empty());
  EXPECT_EQ(0.3, film_at(film, 0.0).x_In);
  EXPECT_EQ(0.0, film_at(film, 0.0).I0);
}

TEST(FilmTension, ItIsTheSlopeOfHUnderTheHeight) {
  Film film = film_on({}, 100.0 * NM, true);
  const auto add = [&film](double z_nm, double h_nm) {
    FilmPoint p{.z = z_nm * NM};
    p.h = h_nm * NM;
    film_add(film, p);
  };
  add(100.0, 0.0);
  EXPECT_EQ(0.0, film_tension(film, 101.0 * NM)) << "one knot has no slope";
  add(102.0, 2.0);
  add(104.0, 2.0);
  add(104.0, 2.0);
  add(108.0, 3.0);
  EXPECT_EQ(1.0, film_tension(film, 99.0 * NM)) << "in the pre-stages the effective thickness stays 0";
  EXPECT_EQ(1.0, film_tension(film, 100.0 * NM));
  EXPECT_NEAR(1.0, film_tension(film, 100.5 * NM), 1e-12);
  EXPECT_NEAR(1.0, film_tension(film, 102.0 * NM), 1e-12);
  EXPECT_NEAR(0.0, film_tension(film, 103.0 * NM), 1e-12);
  EXPECT_NEAR(0.0, film_tension(film, 104.0 * NM), 1e-12) << "under the interface";
  EXPECT_NEAR(0.25, film_tension(film, 106.0 * NM), 1e-12);
  EXPECT_NEAR(0.25, film_tension(film, 108.0 * NM), 1e-12);
  EXPECT_NEAR(0.25, film_tension(film, 120.0 * NM), 1e-12) << "above the top as at the top";
  EXPECT_EQ(0.0, film_tension(rising_film({100.0, 110.0}), 105.0 * NM)) << "without relaxation";
}

TEST(FilmGrow, WhereTheSurfaceDiffersFromTheTopAnInterfaceComesBetween) {
  Film film = rising_film({100.0, 110.0});
  film_grow(film, {.z = 110.0 * NM, .x_In = 0.5}, {.z = 112.0 * NM, .x_In = 0.6});
  ASSERT_EQ(4u, film.z.size());
  EXPECT_EQ(film.z[1], film.z[2]);
  EXPECT_NEAR(0.1, film_at(film, 110.0 * NM).x_In, 1e-12);
  EXPECT_NEAR(0.55, film_at(film, 111.0 * NM).x_In, 1e-12);
}

TEST(FilmGrow, OfASurfaceLikeTheTopNoInterfaceIsMade) {
  Film film = rising_film({100.0, 110.0});
  film_grow(film, film_at(film, 110.0 * NM), {.z = 112.0 * NM, .x_In = 0.2, .x_Al = 0.1});
  ASSERT_EQ(3u, film.z.size());
  expect_composition(film, 111.0 * NM, 0.15, 0.075);
}

TEST(FilmCut, InsideAnIntervalTheCutIsTheTop) {
  Film film = rising_film({100.0, 104.0, 110.0});
  film_cut(film, 106.0 * NM);
  EXPECT_EQ(3u, film.z.size());
  EXPECT_EQ(106.0 * NM, film_top(film));
  expect_composition(film, 106.0 * NM, 0.06, 0.03);
  expect_composition(film, 120.0 * NM, 0.06, 0.03);
  expect_composition(film, 105.0 * NM, 0.05, 0.025);
}

TEST(FilmCut, AtAKnotTheKnotRemains) {
  Film film = rising_film({100.0, 104.0, 110.0});
  film_cut(film, 104.0 * NM);
  EXPECT_EQ(2u, film.z.size());
  EXPECT_EQ(104.0 * NM, film_top(film));
  expect_composition(film, 104.0 * NM, 0.04, 0.02);
}

TEST(FilmCut, AtAnInterfaceTheLowerSideRemains) {
  Film film = rising_film({100.0, 104.0});
  film_add(film, {.z = 104.0 * NM, .x_In = 0.9});
  film_add(film, {.z = 110.0 * NM, .x_In = 0.9});
  film_cut(film, 104.0 * NM);
  EXPECT_EQ(2u, film.z.size());
  EXPECT_EQ(0.04, film.x_In.back());
}

TEST(FilmCut, AtTheTopNothingChanges) {
  Film film = rising_film({100.0, 104.0, 110.0});
  const Film before = film;
  film_cut(film, film_top(film));
  EXPECT_EQ(before.z, film.z);
  EXPECT_EQ(before.x_In, film.x_In);
}

TEST(FilmCut, BelowAllKnotsOneOfThePreStagesRemains) {
  Film film = film_on({layer(60.0, 0.0, 0.5, 0.5), layer(40.0, 0.25, 0.75, 0.0)}, 100.0 * NM, true);
  for (double z : {100.0, 104.0}) film_add(film, {.z = z * NM, .x_In = 0.9});
  film_cut(film, 80.0 * NM);
  EXPECT_EQ(1u, film.z.size());
  EXPECT_EQ(80.0 * NM, film_top(film));
  expect_composition(film, 80.0 * NM, 0.25, 0.0);
  film_cut(film, 30.0 * NM);
  EXPECT_EQ(1u, film.z.size());
  expect_composition(film, 30.0 * NM, 0.0, 0.5);
  film_cut(film, -10.0 * NM);
  expect_composition(film, -10.0 * NM, 0.0, 0.5);
  expect_composition(film, -20.0 * NM, 0.0, 0.5);
}

TEST(FilmCut, WhatGrowsInAHoleOfThePreStagesIsFoundAgain) {
  Film film = film_on({layer(100.0, 0.0, 1.0, 0.0)}, 100.0 * NM, false);
  film_add(film, {.z = 100.0 * NM});
  film_cut(film, 80.0 * NM);
  film_grow(film, {.z = 80.0 * NM, .x_In = 0.2}, {.z = 90.0 * NM, .x_In = 0.2});
  expect_composition(film, 85.0 * NM, 0.2, 0.0);
  expect_composition(film, 90.0 * NM, 0.2, 0.0);
  expect_composition(film, 75.0 * NM, 0.0, 0.0);
}

TEST(FilmCut, OfARelaxingFilmTheCutHasValuesAndSlopesOfTheCubics) {
  Film film = film_on({}, 100.0 * NM, true);
  for (double z : {100.0, 110.0}) film_add(film, Relaxed::at(z * NM));
  const double w_R_of_chord = film_at(film, 106.0 * NM).R;
  film_cut(film, 106.0 * NM);
  EXPECT_NEAR(Relaxed::I0(0.6), film.I0.back(), 1e-12);
  EXPECT_NEAR(Relaxed::J0_1(0.6), film.J0_1.back(), 1e-12);
  EXPECT_EQ(w_R_of_chord, film.R.back());
  for (const auto* list : {&film.h, &film.I0, &film.I1, &film.J0_0, &film.J0_1, &film.w, &film.R, &film.S}) {
    EXPECT_EQ(film.z.size(), list->size());
  }
}

TEST(FilmTruncate, TheKnotsBelowRemain) {
  Film film = film_on({}, 100.0 * NM, true);
  for (double z : {100.0, 102.0, 104.0, 110.0}) film_add(film, Relaxed::at(z * NM));
  film_truncate(film, 2);
  EXPECT_EQ((std::vector<double>{100.0 * NM, 102.0 * NM}), film.z);
  for (const auto* list :
       {&film.x_In, &film.x_Al, &film.h, &film.I0, &film.I1, &film.J0_0, &film.J0_1, &film.w, &film.R, &film.S}) {
    EXPECT_EQ(2u, list->size());
  }
}

TEST(CompressedFrom, ItIsTheFirstKnotWithANegativeSlopeOfI0) {
  Film film = film_on({}, 0.0, true);
  const auto add = [&film](double z_nm, double R) {
    FilmPoint p{.z = z_nm * NM};
    p.R = R;
    film_add(film, p);
  };
  EXPECT_EQ(0u, film.compressed_from);
  add(0.0, 0.0);
  add(1.0, 2.0);
  EXPECT_EQ(2u, film.compressed_from) << "none";
  add(2.0, -1.0);
  add(3.0, 1.0);
  add(4.0, -1.0);
  EXPECT_EQ(2u, film.compressed_from);
  film_truncate(film, 4);
  EXPECT_EQ(2u, film.compressed_from);
  film_truncate(film, 2);
  EXPECT_EQ(2u, film.compressed_from) << "none again";
  add(2.0, 1.0);
  add(3.0, -1.0);
  EXPECT_EQ(3u, film.compressed_from);
  film_cut(film, 3.0 * NM);
  EXPECT_EQ(3u, film.compressed_from) << "the knot at the cut remains";
  // Between the slopes 1 and -1 that of the cut is linear: below 0 above the middle.
  film_cut(film, 2.75 * NM);
  EXPECT_EQ(3u, film.compressed_from);
  film_cut(film, 2.25 * NM);
  EXPECT_EQ(4u, film.compressed_from) << "what was compressed is gone";
}

// All bounds that the blocks offer, from each knot on.
std::vector<double> bounds_of(const CandidateBlocks& blocks, std::size_t count) {
  std::vector<double> bounds;
  for (std::size_t i = 0; i < count; ++i) {
    blocks.skipped_at(i, [&bounds](const CandidateBounds& b) {
      bounds.insert(bounds.end(), {b.z_max, b.I0_min, b.I0_max, b.I1_max, b.w_min, b.w_max});
      return false;
    });
  }
  return bounds;
}

// Growth and evaporation at random: the kept blocks are those of blocks that are made from the film as it is.
TEST(CandidateBlocksOfAFilm, StayThoseOfItsKnotsThroughCutsAndGrowth) {
  std::mt19937_64 random(4);
  std::uniform_real_distribution<double> part(0.0, 1.0);
  Film film = film_on({layer(100.0, 0.0, 1.0, 0.0)}, 100.0 * NM, true);
  film_add(film, {.z = 100.0 * NM});
  std::size_t most = 0;
  for (int k = 0; k < 400; ++k) {
    const int grown = static_cast<int>(part(random) * 30);
    for (int i = 0; i < grown; ++i) {
      FilmPoint p{.z = film_top(film) + part(random) * NM};
      p.I0 = part(random);
      p.I1 = part(random);
      p.h = part(random) * NM;
      film_add(film, p);
    }
    if (part(random) < 0.5) film_cut(film, film_top(film) - part(random) * 12.0 * NM);
    if (part(random) < 0.3) film_truncate(film, film.z.size() - film.z.size() / 10);
    const CandidateLists lists{film.z, film.h, film.I0, film.I1};
    film.candidate_blocks.extend(lists, film.z.size(), 100.0 * NM);
    CandidateBlocks fresh;
    fresh.extend(lists, film.z.size(), 100.0 * NM);
    ASSERT_EQ(bounds_of(fresh, film.z.size()), bounds_of(film.candidate_blocks, film.z.size())) << "change " << k;
    most = std::max(most, film.z.size());
  }
  EXPECT_LT(512u, most) << "the third level of blocks is not reached";
}

}  // namespace
}  // namespace vorlen_test

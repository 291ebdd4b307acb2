// The search for z0 skips blocks of candidates that cannot win. It must find what a plain search over every candidate
// finds, to the last bit, including ties, NaN and infinity; the plain search is part of this file.
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "strain/small_model.h"
#include "strain/v_defect_energy.h"
#include "strain/z0_search.h"
#include "support/bits.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

struct Found {
  double z0 = -1e-9;
  std::uint32_t index = std::numeric_limits<std::uint32_t>::max();
};

// Every candidate, one after another.
Found plain_search(const SurfChemNonst& m) {
  Found found;
  double best = 0.0;
  for (std::size_t i = 0; i < m.history.I1.size(); ++i) {
    const double z_i = m.history.z[i];
    if (z_i > m.z - 3e-10 * 3.189) break;
    const double K1 = (m.I1 - m.history.I1[i]) - (m.I0 - m.history.I0[i]) * (z_i - m.z_start - m.history.h[i]);
    const double s = loop_energy(m, m.z, z_i) + K1;
    if (s < best) {
      best = s;
      found.z0 = z_i;
      found.index = static_cast<std::uint32_t>(i);
    }
  }
  return found;
}

// One point of a growth history.
struct Candidate {
  double z, h, I0, I1;
};

// Grows the history point by point as a run does, but keeps searching once a depth is found. Counts the points at which
// one is found.
int expect_plain_search(SurfChemNonst& m, const std::vector<Candidate>& points) {
  int times_found = 0;
  for (std::size_t n = 0; n < points.size(); ++n) {
    const Candidate& p = points[n];
    m.z = p.z;
    m.h = p.h;
    m.I0 = p.I0;
    m.I1 = p.I1;
    m.history.t.push_back(static_cast<double>(n));
    m.history.z.push_back(p.z);
    m.z0 = -1e-9;
    m.z0_index = std::numeric_limits<std::uint32_t>::max();
    const Found expected = plain_search(m);
    find_z0(m);
    const bool same = same_bits(expected.z0, m.z0) && expected.index == m.z0_index;
    if (!same) {
      ADD_FAILURE() << "at point " << n << " expected index " << expected.index << ", got " << m.z0_index;
      return times_found;
    }
    if (m.z0 >= 0.0) ++times_found;
    m.history.h.push_back(p.h);
    m.history.I0.push_back(p.I0);
    m.history.I1.push_back(p.I1);
  }
  return times_found;
}

// A layer under compression eps that grows by up to dz at each point: I0 and I1 are the integrals of the stress and of
// its moment over the thickness outside tension, as the relaxation rows give them. noise disturbs the integrals.
std::vector<Candidate> grown_layer(unsigned seed, std::size_t n, double dz, double eps, double noise, bool plateaus) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> part(0.0, 1.0);
  std::vector<Candidate> points = {{1e-7, 0.0, 0.0, 0.0}};
  while (points.size() < n) {
    Candidate p = points.back();
    const bool pause = plateaus && part(random) < 0.4;
    if (!pause) {
      const double grown = dz * part(random);
      const bool tensile = part(random) < 0.1;
      const double w = p.z - 1e-7 - p.h;
      const double stress = -MODULUS * 2.0 * B_BURGERS * eps * (1.0 + noise * (part(random) - 0.5));
      p.I0 += stress * grown;
      p.I1 += stress * grown * w;
      p.z += grown;
      if (tensile) p.h += grown;
    }
    points.push_back(p);
  }
  return points;
}

TEST(FindZ0Blocks, AGrowingLayerGivesWhatThePlainSearchGives) {
  int found = 0;
  int searched = 0;
  for (unsigned seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    const auto m = small_model(STRESS_V_dislocation);
    const double eps = 1e-3 * seed;
    const auto points = grown_layer(seed, 700, 4e-10, eps, seed % 3 == 0 ? 20.0 : 0.0, seed % 2 == 0);
    found += expect_plain_search(*m, points);
    searched += static_cast<int>(points.size());
  }
  EXPECT_GT(found, 500) << "the balances never become negative: nothing is tested";
  EXPECT_LT(found, searched - 500) << "the balances are always negative";
}

// Depths that go up and down, and integrals without any order.
std::vector<Candidate> disordered_layer(unsigned seed) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  std::vector<Candidate> points(300);
  for (std::size_t i = 0; i < points.size(); ++i) {
    points[i].z = 1e-7 + 1e-8 * static_cast<double>(i) + 5e-8 * value(random);
    points[i].h = 1e-8 * (1.0 + value(random));
    points[i].I0 = 1e-7 * value(random);
    points[i].I1 = 1e-14 * value(random);
  }
  return points;
}

TEST(FindZ0Blocks, BalancesWithoutAnyOrderGiveWhatThePlainSearchGives) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    EXPECT_GT(expect_plain_search(*small_model(STRESS_V_dislocation), disordered_layer(seed)), 100);
  }
}

TEST(FindZ0Blocks, AmongEqualMinimaTheFirstStays) {
  // The same point 200 times, then a surface high above: all balances are equal and negative.
  std::vector<Candidate> points(200, Candidate{1e-7, 0.0, 0.0, 0.0});
  points.push_back({5e-7, 0.0, 0.0, -1.0});
  const auto m = small_model(STRESS_V_dislocation);
  EXPECT_EQ(expect_plain_search(*m, points), 1);
  EXPECT_EQ(m->z0_index, 0u);
}

TEST(FindZ0Blocks, ASingleDeepMinimumIsFoundWhereverItIs) {
  for (std::size_t place : {0u, 7u, 8u, 63u, 64u, 100u, 511u, 512u, 513u, 998u, 999u}) {
    std::vector<Candidate> points;
    for (int i = 0; i < 1000; ++i) points.push_back({1e-7 + 1e-9 * i, 0.0, 0.0, 0.0});
    points[place].I1 = 1e-13;
    points.push_back({2e-6, 0.0, 0.0, 1e-14});
    const auto m = small_model(STRESS_V_dislocation);
    expect_plain_search(*m, points);
    EXPECT_EQ(m->z0_index, place);
  }
}

TEST(FindZ0Blocks, NaNAndInfinityGiveWhatThePlainSearchGives) {
  std::mt19937_64 random(6);
  std::uniform_int_distribution<int> pick(0, 40);
  for (int run = 0; run < 60; ++run) {
    SCOPED_TRACE(run);
    auto points = grown_layer(100 + static_cast<unsigned>(run), 260, 4e-10, 8e-3, 5.0, false);
    for (Candidate& p : points) {
      for (double* v : {&p.z, &p.h, &p.I0, &p.I1}) {
        const int which = pick(random) + 3 * (run % 3) * pick(random);
        if (which == 0) *v = NOT_A_NUMBER;
        if (which == 1) *v = INF;
        if (which == 2) *v = -INF;
      }
    }
    const auto m = small_model(STRESS_V_dislocation);
    expect_plain_search(*m, points);
  }
}

TEST(FindZ0Blocks, ALineEnergyThatIsNotPositiveGivesWhatThePlainSearchGives) {
  // The loop energy then falls with the distance, so the uppermost candidate of a block gives no bound.
  for (double factor : {0.0, -1.0, -10.0, -100.0}) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
      SCOPED_TRACE(testing::Message() << factor << ", seed " << seed);
      const auto m = small_model(STRESS_V_dislocation);
      m->E_line *= factor;
      EXPECT_GT(expect_plain_search(*m, disordered_layer(seed)), 100);
    }
  }
}

TEST(CandidateBlocks, TheLargestCompleteBlockIsOfferedFirst) {
  const std::vector<double> zeros(1000, 0.0);
  CandidateBlocks blocks;
  blocks.extend({zeros, zeros, zeros, zeros}, 100, 0.0);
  const auto all = [](const CandidateBounds&) { return true; };
  EXPECT_EQ(blocks.skipped_at(0, all), 64u);
  EXPECT_EQ(blocks.skipped_at(8, all), 8u);
  EXPECT_EQ(blocks.skipped_at(64, all), 8u) << "the second block of 64 is not complete";
  EXPECT_EQ(blocks.skipped_at(88, all), 8u);
  EXPECT_EQ(blocks.skipped_at(96, all), 0u) << "nor is the last one of 8";
  EXPECT_EQ(blocks.skipped_at(3, all), 0u);
  int offered = 0;
  EXPECT_EQ(blocks.skipped_at(0, [&](const CandidateBounds&) { return ++offered == 2; }), 8u);
  blocks.extend({zeros, zeros, zeros, zeros}, 520, 0.0);
  EXPECT_EQ(blocks.skipped_at(0, all), 512u);
  EXPECT_EQ(blocks.skipped_at(512, all), 8u);
  blocks.extend({zeros, zeros, zeros, zeros}, 9, 0.0);
  EXPECT_EQ(blocks.skipped_at(0, all), 8u) << "a shorter history starts over";
  EXPECT_EQ(blocks.skipped_at(8, all), 0u);
}

TEST(CandidateBlocks, TheBoundsAreTheExtremesOfTheMembers) {
  const std::vector<double> z = {1, 2, 3, 4, 5, 6, 9, 8};
  const std::vector<double> h = {0, 0, 0, 3, 0, 0, 0, 0};
  const std::vector<double> I0 = {5, -2, 7, 1, 0, 0, 0, 0};
  const std::vector<double> I1 = {-4, -5, -6, -3, -9, -9, -9, -9};
  CandidateBlocks blocks;
  blocks.extend({z, h, I0, I1}, 8, 0.5);
  EXPECT_EQ(blocks.skipped_at(0,
                              [](const CandidateBounds& b) {
                                EXPECT_EQ(b.z_max, 9.0);
                                EXPECT_EQ(b.I0_min, -2.0);
                                EXPECT_EQ(b.I0_max, 7.0);
                                EXPECT_EQ(b.I1_max, -3.0);
                                EXPECT_EQ(b.w_min, 0.5);
                                EXPECT_EQ(b.w_max, 8.5);
                                return true;
                              }),
            8u);
}

TEST(CandidateBlocks, AfterATruncationTheyAreThoseOfTheRemainingCandidates) {
  std::mt19937_64 random(2);
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  std::vector<double> lists[4];
  for (std::vector<double>& list : lists) {
    for (int i = 0; i < 700; ++i) list.push_back(value(random));
  }
  const auto bounds_of = [](const CandidateBlocks& blocks) {
    std::vector<double> bounds;
    for (std::size_t i = 0; i < 700; ++i) {
      blocks.skipped_at(i, [&bounds](const CandidateBounds& b) {
        bounds.insert(bounds.end(), {b.z_max, b.I0_min, b.I0_max, b.I1_max, b.w_min, b.w_max});
        return false;
      });
    }
    return bounds;
  };
  for (std::size_t kept : {0u, 1u, 7u, 8u, 9u, 63u, 64u, 65u, 511u, 512u, 513u, 599u, 600u, 700u}) {
    SCOPED_TRACE(kept);
    CandidateBlocks blocks;
    blocks.extend({lists[0], lists[1], lists[2], lists[3]}, 600, 0.25);
    blocks.truncate(kept);
    CandidateBlocks fresh;
    fresh.extend({lists[0], lists[1], lists[2], lists[3]}, std::min<std::size_t>(kept, 600), 0.25);
    EXPECT_EQ(bounds_of(fresh), bounds_of(blocks));
    // Other candidates replace them.
    std::vector<double> others[4];
    for (std::size_t k = 0; k < 4; ++k) {
      others[k] = lists[k];
      for (std::size_t i = std::min<std::size_t>(kept, 600); i < 700; ++i) others[k][i] = value(random);
    }
    blocks.extend({others[0], others[1], others[2], others[3]}, 700, 0.25);
    CandidateBlocks fresh_of_all;
    fresh_of_all.extend({others[0], others[1], others[2], others[3]}, 700, 0.25);
    EXPECT_EQ(bounds_of(fresh_of_all), bounds_of(blocks));
  }
}

}  // namespace
}  // namespace vorlen_test

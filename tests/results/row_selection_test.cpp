// Rows of the staged scheme: few of them, and linear interpolation between them gives each column.
#include "results/row_selection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "strain/small_model.h"
#include "strain/v_defect_energy.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

constexpr double PROMISED = 1e-3;  // of the range of each column

// The columns of a row that follow from its lists alone; those of the strain follow from them.
struct Columns {
  std::vector<double> values;
};

Columns columns_of(const SurfChemNonst& m, const HistoryPoint& s) {
  const double a = m.lattice_a(s.x_b.data());
  const double eps = m.eps_in_plane(a, s.rho_VD, s.z, s.h);
  Columns c{{s.z, s.GR, s.x_b[0], s.x_b[1], s.x_b[2], s.rho_VD, (eps + 1.0) * a, eps,
             -2.0 * eps * m.strain_ratio(s.x_b.data())}};
  if (m.stress_model == STRESS_V_dislocation) c.values.push_back(m.rho_TD_at(s.rho_VD, s.z, s.h));
  return c;
}

HistoryPoint row_of(const SurfChemNonst& m, std::size_t i, double begin) {
  HistoryPoint s;
  s.t = m.history.t[i] - begin;
  s.z = m.history.z[i];
  s.GR = m.history.Vg[i];
  s.x_b = {m.history.x_In[i], m.history.x_Ga[i], m.history.x_Al[i]};
  if (m.stress_model == STRESS_V_dislocation) {
    s.h = m.history.h[i];
    s.rho_VD = m.history.rho_VD[i];
  }
  return s;
}

// The largest distance of a column between two rows from the samples, as a part of the range of the column.
double worst_error(const SurfChemNonst& m, const std::vector<HistoryPoint>& samples, double begin = 0.0) {
  std::vector<Columns> rows, all;
  for (std::size_t i = 0; i < m.history.t.size(); ++i) rows.push_back(columns_of(m, row_of(m, i, begin)));
  for (const HistoryPoint& s : samples) all.push_back(columns_of(m, s));
  double worst = 0.0;
  for (std::size_t c = 0; c < all.front().values.size(); ++c) {
    double low = all.front().values[c], high = low, error = 0.0;
    std::size_t k = 1;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const double t = begin + samples[i].t;
      while (k + 1 < rows.size() && m.history.t[k] < t) ++k;
      const double share = (t - m.history.t[k - 1]) / (m.history.t[k] - m.history.t[k - 1]);
      const double value = rows[k - 1].values[c] + share * (rows[k].values[c] - rows[k - 1].values[c]);
      low = std::min(low, all[i].values[c]);
      high = std::max(high, all[i].values[c]);
      error = std::max(error, std::abs(value - all[i].values[c]));
    }
    // A column that does not move has only roundings to show.
    if (high - low > 1e-9 * std::max(std::abs(low), std::abs(high))) worst = std::max(worst, error / (high - low));
  }
  return worst;
}

std::vector<HistoryPoint> samples_of(const SurfChemNonst& m, std::size_t n, double duration,
                                     const std::function<void(double, HistoryPoint&)>& set) {
  std::vector<HistoryPoint> samples;
  for (std::size_t i = 0; i < n; ++i) {
    const double share = static_cast<double>(i) / static_cast<double>(n - 1);
    HistoryPoint s{.t = duration * share, .z = m.z_start + 5e-8 * share, .GR = 5e-8 / duration, .x_b = {0.2, 0.8, 0.0}};
    set(share, s);
    samples.push_back(s);
  }
  return samples;
}

void select(SurfChemNonst& m, const std::vector<HistoryPoint>& samples, double begin = 0.0) {
  RowSelection selection;
  selection.begin = begin;
  for (const HistoryPoint& s : samples) add_sample(m, selection, s);
  finish_rows(m, selection);
  EXPECT_TRUE(selection.samples.empty());
}

void expect_rising(const SurfChemNonst& m) {
  for (std::size_t i = 1; i < m.history.t.size(); ++i) EXPECT_LT(m.history.t[i - 1], m.history.t[i]) << i;
}

void expect_ends(const SurfChemNonst& m, const std::vector<HistoryPoint>& samples) {
  EXPECT_EQ(samples.front().t, m.history.t.front());
  EXPECT_EQ(samples.front().z, m.history.z.front());
  EXPECT_EQ(samples.front().x_b[0], m.history.x_In.front());
  EXPECT_EQ(samples.back().t, m.history.t.back());
  EXPECT_EQ(samples.back().z, m.history.z.back());
  EXPECT_EQ(samples.back().GR, m.history.Vg.back());
}

TEST(RowSelection, AnEmptyOneAddsNothing) {
  const auto m = small_model(STRESS_OFF);
  select(*m, {});
  EXPECT_TRUE(m->history.t.empty());
}

TEST(RowSelection, OneSampleIsOneRow) {
  for (std::int32_t stress_model : {STRESS_OFF, STRESS_V_dislocation}) {
    const auto m = small_model(stress_model);
    const HistoryPoint s{.t = 1.0, .z = 2e-7, .h = 1e-8, .GR = 3e-10, .rho_VD = 5.0, .x_b = {0.1, 0.7, 0.2}};
    select(*m, {s}, 10.0);
    EXPECT_EQ(std::vector<double>{11.0}, m->history.t);
    EXPECT_EQ(std::vector<double>{2e-7}, m->history.z);
    EXPECT_EQ(std::vector<double>{3e-10}, m->history.Vg);
    EXPECT_EQ(std::vector<double>{0.1}, m->history.x_In);
    EXPECT_EQ(std::vector<double>{0.7}, m->history.x_Ga);
    EXPECT_EQ(std::vector<double>{0.2}, m->history.x_Al);
    const std::size_t relaxing = stress_model == STRESS_V_dislocation ? 1 : 0;
    EXPECT_EQ(relaxing, m->history.h.size());
    EXPECT_EQ(relaxing, m->history.rho_VD.size());
  }
}

TEST(RowSelection, TwoSamplesAreTwoRows) {
  const auto m = small_model(STRESS_OFF);
  const auto samples = samples_of(*m, 2, 10.0, [](double, HistoryPoint&) {});
  select(*m, samples);
  EXPECT_EQ(2u, m->history.t.size());
  expect_ends(*m, samples);
}

TEST(RowSelection, LinearColumnsNeedTwoRows) {
  const auto m = small_model(STRESS_OFF);
  const auto samples = samples_of(*m, 1000, 10.0, [](double share, HistoryPoint& s) {
    // Strain is not linear in the composition; so little of it that it does not count.
    s.x_b = {0.2 + 1e-5 * share, 0.8 - 1e-5 * share, 0.0};
  });
  select(*m, samples);
  EXPECT_EQ(2u, m->history.t.size());
  expect_ends(*m, samples);
  EXPECT_LT(worst_error(*m, samples), PROMISED);
}

struct Shape {
  const char* name;
  std::size_t most_rows;
  std::function<double(double)> value;  // from 0 to 1 over the stage
};

// A chord over dt is off by f'' dt^2 / 8, so within 5e-4 a curve takes the integral of sqrt(f'' / 4e-3) rows: 32 for
// the exponentials, 45 for the parabola, 570 for the waves. The selection looks no further than it must, so take some
// more.
const Shape SHAPES[] = {{"exponential", 130, [](double s) { return 1.0 - std::exp(-10.0 * s); }},
                        {"fast exponential", 130, [](double s) { return 1.0 - std::exp(-2000.0 * s); }},
                        {"kink", 6, [](double s) { return s < 0.37 ? 0.0 : (s - 0.37) / 0.63; }},
                        {"jump", 6, [](double s) { return s < 0.5 ? 0.0 : 1.0; }},
                        {"spike", 8, [](double s) { return std::abs(s - 0.6) < 0.002 ? 1.0 : 0.0; }},
                        {"parabola", 130, [](double s) { return 4.0 * s * (1.0 - s); }},
                        {"waves", 640, [](double s) { return 0.5 + 0.5 * std::sin(60.0 * s); }}};

class EachColumn : public testing::TestWithParam<Shape> {};

TEST_P(EachColumn, IsWithinAThousandthOfItsRange) {
  const Shape& shape = GetParam();
  struct Column {
    const char* name;
    std::function<void(double, HistoryPoint&)> set;
  };
  const Column columns[] = {{"z", [](double v, HistoryPoint& s) { s.z += 1e-8 * v; }},
                            {"GR", [](double v, HistoryPoint& s) { s.GR = 1e-10 * v; }},
                            {"xIn",
                             [](double v, HistoryPoint& s) {
                               s.x_b = {0.1 + 0.3 * v, 0.9 - 0.3 * v, 0.0};
                             }},
                            {"xAl",
                             [](double v, HistoryPoint& s) {
                               s.x_b = {0.0, 1.0 - v, v};
                             }},
                            {"xIn alone",
                             [](double v, HistoryPoint& s) {
                               s.x_b = {0.1 + 0.3 * v, 0.6, 0.3 - 0.3 * v};
                             }},
                            {"h", [](double v, HistoryPoint& s) { s.h = 1e-8 * v; }},
                            {"rho_VD", [](double v, HistoryPoint& s) { s.rho_VD = 1e15 * v; }}};
  for (const Column& column : columns) {
    for (std::int32_t stress_model : {STRESS_OFF, STRESS_V_dislocation}) {
      SCOPED_TRACE(column.name);
      // h and the density belong to the relaxation.
      const bool relaxing = column.name == std::string("h") || column.name == std::string("rho_VD");
      if (stress_model == STRESS_OFF && relaxing) continue;
      const auto m = small_model(stress_model);
      m->z0 = stress_model == STRESS_OFF ? -1e-9 : m->z_start;
      if (stress_model == STRESS_V_dislocation) set_state_at_z0(*m, 0.0, 0.0, 0.0);
      const auto samples =
          samples_of(*m, 4000, 100.0, [&](double share, HistoryPoint& s) { column.set(shape.value(share), s); });
      select(*m, samples);
      EXPECT_LT(worst_error(*m, samples), PROMISED);
      EXPECT_LE(m->history.t.size(), MAX_ROWS_PER_STAGE);
      expect_ends(*m, samples);
      expect_rising(*m);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, EachColumn, testing::ValuesIn(SHAPES), [](const auto& instance) {
  std::string name = instance.param.name;
  for (char& c : name) c = c == ' ' ? '_' : c;
  return name;
});

// A kink and a jump need few rows, a curve those of its chords: that of a parabola 4 s (1 - s) over a length L is off
// by L^2, so for a ten-thousandth of the range it takes 100.
TEST(RowSelection, TakesFewRows) {
  for (const Shape& shape : SHAPES) {
    const auto m = small_model(STRESS_OFF);
    const auto samples =
        samples_of(*m, 4000, 100.0, [&](double share, HistoryPoint& s) { s.GR = 1e-10 * shape.value(share); });
    select(*m, samples);
    EXPECT_LE(m->history.t.size(), shape.most_rows) << shape.name;
    EXPECT_GE(m->history.t.size(), 3u) << shape.name;
  }
}

TEST(RowSelection, AStageHasAtMost2000Rows) {
  const auto m = small_model(STRESS_OFF);
  std::uint64_t state = 1;
  const auto noise = [&state] {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return static_cast<double>(state >> 11) / 9007199254740992.0;
  };
  const auto samples = samples_of(*m, 12000, 100.0, [&](double, HistoryPoint& s) { s.GR = 1e-10 * noise(); });
  select(*m, samples);
  EXPECT_LE(m->history.t.size(), MAX_ROWS_PER_STAGE);
  expect_ends(*m, samples);
}

TEST(RowSelection, AMillionSamplesTakeLittleMemory) {
  const auto m = small_model(STRESS_OFF);
  RowSelection selection;
  std::size_t most = 0;
  constexpr int N = 1000000;
  for (int i = 0; i < N; ++i) {
    const double s = static_cast<double>(i) / (N - 1);
    HistoryPoint sample{.t = 100.0 * s, .z = m->z_start + 1e-7 * s, .GR = 1e-10 * (1.0 + std::sin(40.0 * s))};
    sample.x_b = {0.0, 1.0, 0.0};
    add_sample(*m, selection, sample);
    most = std::max(most, selection.samples.capacity());
  }
  EXPECT_LE(most, 40000u);
  finish_rows(*m, selection);
  EXPECT_LE(m->history.t.size(), MAX_ROWS_PER_STAGE);
  EXPECT_EQ(100.0, m->history.t.back());
  double worst = 0.0;
  std::size_t k = 1;
  for (int i = 0; i < N; i += 7) {
    const double s = static_cast<double>(i) / (N - 1), t = 100.0 * s;
    while (m->history.t[k] < t) ++k;
    const double share = (t - m->history.t[k - 1]) / (m->history.t[k] - m->history.t[k - 1]);
    const double GR = m->history.Vg[k - 1] + share * (m->history.Vg[k] - m->history.Vg[k - 1]);
    worst = std::max(worst, std::abs(GR - 1e-10 * (1.0 + std::sin(40.0 * s))) / 2e-10);
  }
  EXPECT_LT(worst, PROMISED);
}

// Samples a nanosecond apart at 1e12 s fall on one double: rows still rise.
TEST(RowSelection, TimesRiseWhereSamplesFallOnOneDouble) {
  for (double begin : {1e6, 1e9, 1e12}) {
    const auto m = small_model(STRESS_OFF);
    for (int stage = 0; stage < 3; ++stage) {
      const auto samples =
          samples_of(*m, 200, 1e-8, [](double share, HistoryPoint& s) { s.GR = 1e-10 * std::sin(30.0 * share); });
      select(*m, samples, begin);
    }
    expect_rising(*m);
    EXPECT_GT(m->history.t.size(), 30u);
    EXPECT_NEAR(begin, m->history.t.back(), 1e-3 * begin);
  }
}

TEST(RowSelection, TheFirstRowOfTheNextStageIsOneNumberLater) {
  const auto m = small_model(STRESS_OFF);
  const auto still = [](double, HistoryPoint&) {};
  select(*m, samples_of(*m, 5, 10.0, still), 100.0);
  select(*m, samples_of(*m, 5, 10.0, still), 110.0);
  ASSERT_EQ(4u, m->history.t.size());
  EXPECT_EQ(100.0, m->history.t[0]);
  EXPECT_EQ(110.0, m->history.t[1]);
  EXPECT_EQ(std::nextafter(110.0, 1e9), m->history.t[2]);
  EXPECT_EQ(120.0, m->history.t[3]);
}

TEST(RowSelection, ValuesThatAreNotFiniteEnd) {
  for (const double odd : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    const auto m = small_model(STRESS_V_dislocation);
    const auto samples = samples_of(*m, 5000, 100.0, [&](double share, HistoryPoint& s) {
      if (share > 0.5) s.GR = odd;
    });
    select(*m, samples);
    EXPECT_LE(m->history.t.size(), MAX_ROWS_PER_STAGE);
    expect_rising(*m);
  }
}

// Rows at z0: one directly under it, one at it, and more above it, closer than k w = 1.
TEST(RowsAtZ0, AreWhereTheColumnsOfTheFinishedStructureStep) {
  const auto m = small_model(STRESS_V_dislocation);
  for (int i = 0; i <= 10; ++i) {
    m->history.t.push_back(10.0 * i);
    m->history.z.push_back(m->z_start + 1e-9 * i);
    m->history.Vg.push_back(1e-10);
    m->history.x_In.push_back(0.1 + 0.01 * i);
    m->history.x_Ga.push_back(0.9 - 0.01 * i);
    m->history.x_Al.push_back(0.0);
    m->history.h.push_back(1e-10 * i);
    m->history.rho_VD.push_back(0.0);
  }
  const std::size_t before = m->history.t.size();
  m->z0 = m->z_start + 4.5e-9;
  set_state_at_z0(*m, 4.5e-10, 0.0, 0.0);
  add_rows_at_z0(*m);
  EXPECT_LT(before + 20, m->history.t.size());
  for (const auto* list : {&m->history.z, &m->history.Vg, &m->history.x_In, &m->history.x_Ga, &m->history.x_Al,
                           &m->history.h, &m->history.rho_VD}) {
    ASSERT_EQ(m->history.t.size(), list->size());
  }
  expect_rising(*m);
  bool under = false, at = false;
  for (std::size_t i = 0; i < m->history.t.size(); ++i) {
    // All lists are linear in time.
    const double s = m->history.t[i] / 100.0;
    EXPECT_NEAR(m->z_start + 1e-8 * s, m->history.z[i], 1e-20);
    EXPECT_NEAR(0.1 + 0.1 * s, m->history.x_In[i], 1e-12);
    EXPECT_NEAR(1e-9 * s, m->history.h[i], 1e-20);
    EXPECT_LE(i > 0 ? m->history.z[i - 1] : 0.0, m->history.z[i]);
    under = under || m->history.z[i] == std::nextafter(m->z0, 0.0);
    at = at || m->history.z[i] == m->z0;
  }
  EXPECT_TRUE(under);
  EXPECT_TRUE(at);
}

TEST(RowsAtZ0, OfAHistoryThatDoesNotReachItNothingChanges) {
  const auto m = small_model(STRESS_V_dislocation);
  select(*m, samples_of(*m, 5, 10.0, [](double, HistoryPoint&) {}));
  const std::vector<double> times = m->history.t;
  m->z0 = m->z_start + 1e-6;
  add_rows_at_z0(*m);
  EXPECT_EQ(times, m->history.t);
}

}  // namespace
}  // namespace vorlen_test

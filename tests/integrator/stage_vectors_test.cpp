// The loops over the components of the stage vectors, compared bit for bit with the same formulas for one component at
// a time: vectors of every length up to several pairs, of random numbers and of numbers that would reveal a shortcut.
#include "integrator/stage_vectors.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <string>

#include "integrator/plain_elimination.h"
#include "integrator/radau_constants.h"

namespace vorlen::test {

namespace {

using Reals = std::vector<double>;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t MAX_ORDER = 17;
constexpr double SPECIAL[] = {0.0, -0.0, INF, -INF, NOT_A_NUMBER, 1e308, -1e308, 5e-324, -2e-310};

// Keeps the compiler from taking several components of the plain formulas at a time.
double Opaque(double value) {
  volatile double copy = value;
  return copy;
}

struct Vectors {
  Reals Z1, Z2, Z3, F1, F2, F3, B1, B2, B3, y, other, SCAL;

  Vectors(std::size_t n, RandomNumbers& random, bool special) {
    for (Reals* values : {&Z1, &Z2, &Z3, &F1, &F2, &F3, &B1, &B2, &B3, &y, &other, &SCAL}) {
      for (std::size_t i = 0; i < n; ++i) {
        const double choice = 0.5 * (random.Next() + 1.0) * static_cast<double>(2 * std::size(SPECIAL));
        const auto kind = static_cast<std::size_t>(choice);
        values->push_back(special && kind < std::size(SPECIAL) ? SPECIAL[kind] : random.Next());
      }
    }
  }
};

// NaNs count as equal: which of two NaNs a sum returns depends on the processor.
void ExpectSameBits(double actual, double expected, const char* what) {
  if (std::isnan(expected) && std::isnan(actual)) return;
  EXPECT_EQ(std::bit_cast<std::uint64_t>(actual), std::bit_cast<std::uint64_t>(expected))
      << what << ": " << actual << ' ' << expected;
}

// Calls check(n, vectors of n components) for every length, without and with special numbers.
template <typename Check>
void ForVectors(Check check) {
  RandomNumbers random(41);
  for (std::size_t n = 0; n <= MAX_ORDER; ++n) {
    for (int trial = 0; trial < 60; ++trial) {
      SCOPED_TRACE(std::to_string(n) + " components, trial " + std::to_string(trial));
      const Vectors v(n, random, trial % 2 != 0);
      check(static_cast<std::int32_t>(n), v);
    }
  }
}

void ExpectTransformed(double z1, double z2, double z3, double a, double b, double c) {
  ExpectSameBits(a, Opaque(radau::TI11 * z1) + Opaque(radau::TI12 * z2) + radau::TI13 * z3, "row 1 of TI");
  ExpectSameBits(b, Opaque(radau::TI21 * z1) + Opaque(radau::TI22 * z2) + radau::TI23 * z3, "row 2 of TI");
  ExpectSameBits(c, Opaque(radau::TI31 * z1) + Opaque(radau::TI32 * z2) + radau::TI33 * z3, "row 3 of TI");
}

}  // namespace

TEST(StageVectors, GoToTheTransformedVariablesComponentByComponent) {
  ForVectors([](std::int32_t n, const Vectors& v) {
    Vectors w = v;
    ToTransformed(n, w.Z1.data(), w.Z2.data(), w.Z3.data());
    for (std::size_t i = 0; i < v.Z1.size(); ++i) {
      ExpectTransformed(v.Z1[i], v.Z2[i], v.Z3[i], w.Z1[i], w.Z2[i], w.Z3[i]);
    }
  });
}

TEST(StageVectors, AddTheUpdateAndComeBackToTheStages) {
  ForVectors([](std::int32_t n, const Vectors& v) {
    Vectors w = v;
    AddUpdate(n, w.Z1.data(), w.Z2.data(), w.Z3.data(), w.F1.data(), w.F2.data(), w.F3.data());
    for (std::size_t i = 0; i < v.Z1.size(); ++i) {
      const double w1 = Opaque(v.F1[i] + v.Z1[i]);
      const double w2 = Opaque(v.F2[i] + v.Z2[i]);
      const double w3 = Opaque(v.F3[i] + v.Z3[i]);
      ExpectSameBits(w.F1[i], w1, "F1");
      ExpectSameBits(w.F2[i], w2, "F2");
      ExpectSameBits(w.F3[i], w3, "F3");
      ExpectSameBits(w.Z1[i], Opaque(radau::T11 * w1) + Opaque(radau::T12 * w2) + radau::T13 * w3, "Z1");
      ExpectSameBits(w.Z2[i], Opaque(radau::T21 * w1) + Opaque(radau::T22 * w2) + radau::T23 * w3, "Z2");
      ExpectSameBits(w.Z3[i], Opaque(radau::T31 * w1) + w2, "Z3");
    }
  });
}

TEST(StageVectors, ExtrapolateThePolynomialOfTheLastStep) {
  ForVectors([](std::int32_t n, const Vectors& v) {
    Vectors w = v;
    const double q3 = 0.7;
    const double q[3] = {radau::c1 * q3, radau::c2 * q3, q3};
    ExtrapolateStages(n, q, v.B1.data(), v.B2.data(), v.B3.data(), w.Z1.data(), w.Z2.data(), w.Z3.data(), w.F1.data(),
                      w.F2.data(), w.F3.data());
    for (std::size_t i = 0; i < v.Z1.size(); ++i) {
      const double z[3] = {w.Z1[i], w.Z2[i], w.Z3[i]};
      for (int stage = 0; stage < 3; ++stage) {
        const double inner = Opaque(v.B2[i] + Opaque((q[stage] - radau::c1_minus_1) * v.B3[i]));
        const double outer = Opaque(v.B1[i] + Opaque((q[stage] - radau::c2_minus_1) * inner));
        ExpectSameBits(z[stage], q[stage] * outer, "stage increment");
      }
      ExpectTransformed(z[0], z[1], z[2], w.F1[i], w.F2[i], w.F3[i]);
    }
  });
}

TEST(StageVectors, AdvanceTheStateAndKeepThePolynomialOfTheStep) {
  ForVectors([](std::int32_t n, const Vectors& v) {
    Vectors w = v;
    AdvanceState(n, v.Z1.data(), v.Z2.data(), v.Z3.data(), w.y.data(), w.B1.data(), w.B2.data(), w.B3.data());
    for (std::size_t i = 0; i < v.Z1.size(); ++i) {
      const double first = Opaque(v.Z2[i] - v.Z3[i]) / radau::c2_minus_1;
      const double slope = Opaque(v.Z1[i] - v.Z2[i]) / radau::c1_minus_c2;
      const double second = Opaque(slope - first) / radau::c1_minus_1;
      const double third = Opaque(slope - Opaque(v.Z1[i] / radau::c1)) / radau::c2;
      ExpectSameBits(w.y[i], v.y[i] + v.Z3[i], "y");
      ExpectSameBits(w.B1[i], first, "first coefficient");
      ExpectSameBits(w.B2[i], second, "second coefficient");
      ExpectSameBits(w.B3[i], second - third, "third coefficient");
    }
  });
}

TEST(StageVectors, AddTheShiftedIncrements) {
  const StageShifts shifts = {36.0, 27.1, 30.3};
  ForVectors([&shifts](std::int32_t n, const Vectors& v) {
    for (const bool diagonal : {false, true}) {
      Vectors w = v;
      if (diagonal) {
        AddShiftedDiagonal(n, shifts, v.other.data(), v.F1.data(), v.F2.data(), v.F3.data(), w.Z1.data(), w.Z2.data(),
                           w.Z3.data());
      } else {
        AddShiftedIdentity(n, shifts, v.F1.data(), v.F2.data(), v.F3.data(), w.Z1.data(), w.Z2.data(), w.Z3.data());
      }
      for (std::size_t i = 0; i < v.Z1.size(); ++i) {
        const auto negative = [&](double value) {
          return Opaque(diagonal ? 0.0 - Opaque(v.other[i] * value) : -value);
        };
        const double r1 = negative(v.F1[i]);
        const double r2 = negative(v.F2[i]);
        const double r3 = negative(v.F3[i]);
        ExpectSameBits(w.Z1[i], v.Z1[i] + Opaque(r1 * shifts.real), "Z1");
        ExpectSameBits(w.Z2[i], Opaque(v.Z2[i] + Opaque(r2 * shifts.complex_re)) - Opaque(r3 * shifts.complex_im),
                       "Z2");
        ExpectSameBits(w.Z3[i], Opaque(v.Z3[i] + Opaque(r3 * shifts.complex_re)) + Opaque(r2 * shifts.complex_im),
                       "Z3");
      }
    }
  });
}

TEST(StageVectors, SumTheSquaresInTheOrderOfTheComponents) {
  ForVectors([](std::int32_t n, const Vectors& v) {
    double sum = 0.0;
    double sum_of_one = 0.0;
    for (std::size_t i = 0; i < v.Z1.size(); ++i) {
      for (const Reals* Z : {&v.Z1, &v.Z2, &v.Z3}) {
        const double scaled = Opaque((*Z)[i] / v.SCAL[i]);
        sum = Opaque(sum + Opaque(scaled * scaled));
        if (Z == &v.Z1) sum_of_one = Opaque(sum_of_one + Opaque(scaled * scaled));
      }
    }
    ExpectSameBits(SumOfScaledSquares(n, v.Z1.data(), v.Z2.data(), v.Z3.data(), v.SCAL.data()), sum, "three vectors");
    ExpectSameBits(SumOfScaledSquares(n, v.Z1.data(), v.SCAL.data()), sum_of_one, "one vector");
  });
}

TEST(StageVectors, CombineVectorsComponentByComponent) {
  const double d[3] = {-100.4, 13.8, -3.3};
  ForVectors([&d](std::int32_t n, const Vectors& v) {
    Reals sum(v.y), quotient(v.y), combined(v.y), mass(v.y);
    AddVectors(n, v.y.data(), v.Z1.data(), sum.data());
    DifferenceQuotients(n, v.Z1.data(), v.Z2.data(), 3e-7, quotient.data());
    CombineStages(n, d, v.Z1.data(), v.Z2.data(), v.Z3.data(), combined.data());
    MultiplyByDiagonal(n, v.other.data(), v.F1.data(), mass.data());
    for (std::size_t i = 0; i < v.Z1.size(); ++i) {
      ExpectSameBits(sum[i], Opaque(v.y[i]) + v.Z1[i], "sum");
      ExpectSameBits(quotient[i], Opaque(v.Z1[i] - v.Z2[i]) / 3e-7, "quotient");
      ExpectSameBits(combined[i], Opaque(d[0] * v.Z1[i]) + Opaque(d[1] * v.Z2[i]) + d[2] * v.Z3[i], "combination");
      ExpectSameBits(mass[i], 0.0 + Opaque(v.other[i] * v.F1[i]), "mass");
    }
  });
}

}  // namespace vorlen::test

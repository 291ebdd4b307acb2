// The kernels for a real and a complex matrix together, compared with those for one matrix bit for bit: factors,
// pivots and solutions, for random matrices and for numbers that would reveal a shortcut.
#include "integrator/pair_kernels.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <string>

#include "integrator/matrix_kernels.h"
#include "integrator/plain_elimination.h"

namespace vorlen::test {

namespace {

using Reals = std::vector<double>;
using Integers = std::vector<std::int32_t>;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

struct System {
  std::int32_t n = 0;
  std::int32_t ndim = 0;
  Reals A, AR, AI, B, BR, BI;
  Integers IP, IP_complex;
  std::int32_t zero_pivot = 0;

  System(std::int32_t order, std::int32_t rows)
      : n(order),
        ndim(rows),
        A(static_cast<std::size_t>(order * rows)),
        AR(A),
        AI(A),
        B(static_cast<std::size_t>(order)),
        BR(B),
        BI(B),
        IP(static_cast<std::size_t>(order)),
        IP_complex(IP) {}

  void FactoriseOneByOne() {
    LuDecompose(n, ndim, A.data(), IP.data(), zero_pivot);
    if (zero_pivot == 0) LuDecomposeComplex(n, ndim, AR.data(), AI.data(), IP_complex.data(), zero_pivot);
  }
  void SolveOneByOne() {
    LuSolve(n, ndim, A.data(), B.data(), IP.data());
    LuSolveComplex(n, ndim, AR.data(), AI.data(), BR.data(), BI.data(), IP_complex.data());
  }
  void Factorise() {
    LuDecomposePair(n, ndim, A.data(), IP.data(), AR.data(), AI.data(), IP_complex.data(), zero_pivot);
  }
  void Solve() {
    LuSolvePair(n, ndim, A.data(), B.data(), IP.data(), AR.data(), AI.data(), BR.data(), BI.data(), IP_complex.data());
  }
};

// NaNs count as equal: which of two NaNs a sum returns depends on the processor.
void ExpectSameBits(const Reals& actual, const Reals& expected, const char* what) {
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (std::isnan(expected[i]) && std::isnan(actual[i])) continue;
    EXPECT_EQ(std::bit_cast<std::uint64_t>(actual[i]), std::bit_cast<std::uint64_t>(expected[i]))
        << what << " at " << i << ": " << actual[i] << ' ' << expected[i];
  }
}

// True if the system has factors.
bool Compare(const System& source) {
  System expected = source;
  System actual = source;
  expected.FactoriseOneByOne();
  actual.Factorise();
  EXPECT_EQ(actual.zero_pivot != 0, expected.zero_pivot != 0);
  if (expected.zero_pivot != 0) return false;
  EXPECT_EQ(actual.IP, expected.IP);
  EXPECT_EQ(actual.IP_complex, expected.IP_complex);
  ExpectSameBits(actual.A, expected.A, "A");
  ExpectSameBits(actual.AR, expected.AR, "AR");
  ExpectSameBits(actual.AI, expected.AI, "AI");
  expected.SolveOneByOne();
  actual.Solve();
  ExpectSameBits(actual.B, expected.B, "B");
  ExpectSameBits(actual.BR, expected.BR, "BR");
  ExpectSameBits(actual.BI, expected.BI, "BI");
  return true;
}

// Draws every number of the system by draw().
template <typename Draw>
System Drawn(std::int32_t n, std::int32_t ndim, Draw draw) {
  System system(n, ndim);
  for (Reals* values : {&system.A, &system.AR, &system.AI, &system.B, &system.BR, &system.BI}) {
    for (double& value : *values) value = draw();
  }
  return system;
}

// Most entries are zero, of either sign, as in the Jacobian of the growth model.
double Sparse(RandomNumbers& random) {
  const double kind = random.Next();
  const double value = random.Next();
  if (kind < -0.3) return 0.0;
  if (kind < 0.3) return -0.0;
  return value * std::exp(10.0 * random.Next());
}

constexpr std::int32_t ORDERS[] = {10, 15};

}  // namespace

TEST(PairKernels, GiveTheBitsOfTheSingleKernelsForFullRandomMatrices) {
  RandomNumbers random(31);
  for (const std::int32_t n : ORDERS) {
    for (int trial = 0; trial < 300; ++trial) {
      SCOPED_TRACE(std::to_string(n) + " trial " + std::to_string(trial));
      EXPECT_TRUE(Compare(Drawn(n, n, [&random] { return random.Next(); })));
    }
  }
}

TEST(PairKernels, GiveTheBitsOfTheSingleKernelsForSparseMatricesWithZerosOfEitherSign) {
  RandomNumbers random(32);
  for (const std::int32_t n : ORDERS) {
    int regular = 0;
    int singular = 0;
    for (int trial = 0; trial < 3000; ++trial) {
      SCOPED_TRACE(std::to_string(n) + " trial " + std::to_string(trial));
      System system = Drawn(n, n, [&random] { return Sparse(random); });
      if (trial % 2 == 0) {
        for (std::size_t i = 0; i < system.A.size(); i += static_cast<std::size_t>(n) + 1) {
          system.A[i] += 1.0;
          system.AR[i] += 1.0;
          system.AI[i] += 0.5;
        }
      }
      ++(Compare(system) ? regular : singular);
    }
    EXPECT_GT(regular, 1000);
    EXPECT_GT(singular, 20);
  }
}

TEST(PairKernels, TakeTheTopmostRowOfEqualOnes) {
  RandomNumbers random(33);
  for (const std::int32_t n : ORDERS) {
    for (int trial = 0; trial < 1000; ++trial) {
      SCOPED_TRACE(std::to_string(n) + " trial " + std::to_string(trial));
      Compare(Drawn(n, n, [&random] { return std::round(2.0 * random.Next()); }));
    }
  }
}

TEST(PairKernels, PassInfinitiesNotANumbersAndTheEndsOfTheRange) {
  RandomNumbers random(34);
  const double special[] = {INF, -INF, NOT_A_NUMBER, 1e308, -1e308, 5e-324, -2e-310, 0.0, -0.0};
  for (const std::int32_t n : ORDERS) {
    for (std::size_t trial = 0; trial < 3000; ++trial) {
      SCOPED_TRACE(std::to_string(n) + " trial " + std::to_string(trial));
      System system = Drawn(n, n, [&random] { return Sparse(random); });
      for (Reals* values : {&system.A, &system.AR, &system.AI, &system.B, &system.BR, &system.BI}) {
        const double place = 0.5 * (random.Next() + 1.0) * static_cast<double>(values->size());
        (*values)[static_cast<std::size_t>(place)] = special[trial % std::size(special)];
      }
      Compare(system);
    }
  }
}

TEST(PairKernels, FindAZeroPivotInEveryStepOfEitherMatrix) {
  RandomNumbers random(35);
  for (const std::int32_t n : ORDERS) {
    for (std::int32_t k = 0; k < n; ++k) {
      SCOPED_TRACE(std::to_string(n) + " step " + std::to_string(k));
      const System regular = Drawn(n, n, [&random] { return random.Next(); });
      const auto begin = static_cast<std::ptrdiff_t>(k) * n;
      System real = regular;
      std::fill(real.A.begin() + begin, real.A.begin() + begin + n, k % 2 == 0 ? 0.0 : -0.0);
      EXPECT_FALSE(Compare(real));
      real.Factorise();
      EXPECT_EQ(real.zero_pivot, k + 1);
      EXPECT_EQ(real.IP.back(), 0);
      System complex = regular;
      std::fill(complex.AR.begin() + begin, complex.AR.begin() + begin + n, 0.0);
      std::fill(complex.AI.begin() + begin, complex.AI.begin() + begin + n, -0.0);
      EXPECT_FALSE(Compare(complex));
      complex.Factorise();
      EXPECT_EQ(complex.zero_pivot, k + 1);
      EXPECT_EQ(complex.IP_complex.back(), 0);
    }
  }
}

TEST(PairKernels, TakeAnyOrderAndLeadingDimension) {
  RandomNumbers random(36);
  for (std::int32_t n = 1; n <= 17; ++n) {
    for (const std::int32_t ndim : {n, n + 1, n + 5}) {
      SCOPED_TRACE(std::to_string(n) + " in " + std::to_string(ndim));
      EXPECT_TRUE(Compare(Drawn(n, ndim, [&random] { return random.Next(); })));
    }
  }
}

}  // namespace vorlen::test

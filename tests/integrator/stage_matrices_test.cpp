// The two matrices of the stage equations set up together, compared bit for bit with each one set up alone.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "integrator/plain_elimination.h"
#include "integrator/stage_system.h"

namespace vorlen::test {

namespace {

using Reals = std::vector<double>;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

// Storage of a system with a full Jacobian; mass_case 1: identity mass, 3: a diagonal.
struct Storage {
  StageSystem system;
  Reals FJAC, FMAS, E1, E2R, E2I;
  std::vector<std::int32_t> IP_real, IP_complex, IPHES;

  Storage(std::int32_t mass_case, std::int32_t n, std::int32_t jac_rows, std::int32_t factor_rows)
      : FJAC(static_cast<std::size_t>(n * jac_rows)),
        FMAS(static_cast<std::size_t>(n)),
        E1(static_cast<std::size_t>(n * factor_rows), NOT_A_NUMBER),
        E2R(E1),
        E2I(E1),
        IP_real(static_cast<std::size_t>(n)),
        IP_complex(IP_real),
        IPHES(IP_real) {
    system.n = system.n_reduced = system.block_stride = system.mljac = system.mujac = n;
    system.matrix_case = mass_case;
    system.jac_rows = jac_rows;
    system.factor_rows = factor_rows;
    system.mass_rows = 1;
    system.real_shift = 36.4;
    system.complex_shift_re = 26.8;
    system.complex_shift_im = 30.5;
    band_dims = BandDims{n, n, 2 * n + 1, 1, 2 * n + 1, 2 * n, 1};
  }

  void Point() {
    system.FJAC = FJAC.data();
    system.FMAS = FMAS.data();
    system.E1 = E1.data();
    system.E2R = E2R.data();
    system.E2I = E2I.data();
    system.IP_real = IP_real.data();
    system.IP_complex = IP_complex.data();
    system.IPHES = IPHES.data();
  }
};

// NaNs count as equal: which of two NaNs a sum returns depends on the processor.
void ExpectSameBits(const Reals& actual, const Reals& expected, const char* what) {
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (std::isnan(expected[i]) && std::isnan(actual[i])) continue;
    EXPECT_EQ(std::bit_cast<std::uint64_t>(actual[i]), std::bit_cast<std::uint64_t>(expected[i]))
        << what << " at " << i;
  }
}

// True if the system has factors.
bool Compare(const Storage& source) {
  Storage expected = source;
  Storage actual = source;
  std::int32_t zero_pivot = 0;
  std::int32_t zero_pivot_of_pair = 0;
  expected.Point();
  FormRealMatrix(expected.system, zero_pivot);
  if (zero_pivot == 0) FormComplexMatrix(expected.system, zero_pivot);
  actual.Point();
  FormMatrices(actual.system, zero_pivot_of_pair);
  EXPECT_EQ(zero_pivot_of_pair != 0, zero_pivot != 0);
  if (zero_pivot != 0) return false;
  ExpectSameBits(actual.E1, expected.E1, "E1");
  ExpectSameBits(actual.E2R, expected.E2R, "E2R");
  ExpectSameBits(actual.E2I, expected.E2I, "E2I");
  EXPECT_EQ(actual.IP_real, expected.IP_real);
  EXPECT_EQ(actual.IP_complex, expected.IP_complex);
  return true;
}

}  // namespace

TEST(StageMatrices, SetUpTogetherHaveTheBitsOfEachByItself) {
  RandomNumbers random(51);
  const double special[] = {0.0, -0.0, INF, -INF, NOT_A_NUMBER, 1e308, 5e-324, -2e-310};
  for (const std::int32_t mass_case : {1, 3}) {
    for (const std::int32_t n : {1, 2, 7, 10, 15}) {
      for (const auto& [jac_gap, factor_gap] : {std::pair(0, 0), std::pair(3, 3), std::pair(3, 0), std::pair(0, 3)}) {
        int regular = 0;
        for (int trial = 0; trial < 100; ++trial) {
          SCOPED_TRACE("case " + std::to_string(mass_case) + ", n " + std::to_string(n) + ", gaps " +
                       std::to_string(jac_gap) + " and " + std::to_string(factor_gap) + ", trial " +
                       std::to_string(trial));
          Storage source(mass_case, n, n + jac_gap, n + factor_gap);
          for (double& value : source.FJAC) {
            const double kind = random.Next();
            value = kind < -0.3 ? 0.0 : kind < 0.0 ? -0.0 : random.Next();
          }
          for (double& value : source.FMAS) {
            const double kind = random.Next();
            value = kind < -0.5 ? 0.0 : kind < 0.0 ? 1.0 : random.Next();
          }
          if (trial % 3 == 0) {
            const double place = 0.5 * (random.Next() + 1.0) * static_cast<double>(source.FJAC.size());
            source.FJAC[static_cast<std::size_t>(place)] =
                special[static_cast<std::size_t>(trial) % std::size(special)];
          }
          regular += Compare(source) ? 1 : 0;
        }
        EXPECT_GT(regular, 20);
      }
    }
  }
}

}  // namespace vorlen::test

// One system described to the integrator in different ways. Where the operations are the same by construction, the
// results are the same bits; where another elimination is used, they agree far below the tolerance.
#include <gtest/gtest.h>

#include <cmath>

#include "integrator/integrator_call.h"
#include "integrator/probe.h"
#include "integrator/reference_problems.h"

namespace vorlen::test {

namespace {

IntegratorCall Band(std::int32_t lower, std::int32_t upper) {
  IntegratorCall call(BandRhs, {0.12, 0.22, 0.3, 0.36, 0.4, 0.42, 0.42, 0.4, 0.36, 0.3, 0.22, 0.12}, 0.5);
  call.SetTolerance(1e-7, 1e-7);
  call.mljac = lower;
  call.mujac = upper;
  return call;
}

IntegratorCall Hires() {
  IntegratorCall call(HiresRhs, {1, 0, 0, 0, 0, 0, 0, 0.0057}, 321.8122);
  call.SetTolerance(1e-8, 1e-10);
  return call;
}

IntegratorCall Chain(std::int32_t block_count, std::int32_t block_stride, std::int32_t bandwidth) {
  IntegratorCall call(Chain3Rhs, {1.0, -0.5, 0.25, 2.0, 0.0, 0.5, -1.0, 0.0, 0.0, 0.0, 0.0, 0.0}, 3.0);
  call.SetTolerance(1e-8, 1e-8);
  call.h = 1e-3;
  call.Iwork(9) = block_count;
  call.Iwork(10) = block_stride;
  call.mljac = call.mujac = bandwidth;
  return call;
}

IntegratorCall Solve(IntegratorCall call) {
  call.SizeAndRun();
  EXPECT_EQ(call.idid, 1);
  return call;
}

void SetMass(IntegratorCall& call, RadauMassCallback mass, std::int32_t bandwidth) {
  call.imas = 1;
  call.mass_callback = mass;
  call.mlmas = call.mumas = bandwidth;
}

void ExpectSameBits(const IntegratorCall& a, const IntegratorCall& b) {
  EXPECT_EQ(a.y, b.y);
  EXPECT_EQ(a.h, b.h);
  EXPECT_EQ(a.ReadCounters(), b.ReadCounters());
}

void ExpectClose(const IntegratorCall& a, const IntegratorCall& b, double relative, double absolute) {
  for (std::size_t i = 0; i < a.y.size(); ++i) {
    EXPECT_NEAR(a.y[i], b.y[i], absolute + relative * std::abs(b.y[i])) << "component " << i + 1;
  }
}

// d f(i) / d y(j) of the band problem, indices from 0.
double BandDerivative(std::int32_t n, std::int32_t i, std::int32_t j, const double* y) {
  const double d = (n + 1.0) * (n + 1.0);
  if (j == i - 1 || j == i + 1) return d;
  if (j == i - 2) return 0.5 / (1.0 + y[i] * y[i]);
  const double c = i > 1 ? y[i - 2] : 0.0;
  const double denominator = 1.0 + y[i] * y[i];
  return -2.0 * d - 9.0 * y[i] * y[i] - 0.5 * c * 2.0 * y[i] / (denominator * denominator);
}

// d f(i + 8) / d y(col) of the chain, i and c = position in the block from 0.
double ChainDerivative(std::int32_t i, std::int32_t c, std::int32_t block, const double* y) {
  if (c == i - 1) return block == 0 ? 1.0 : block == 1 ? 0.5 : 0.0;
  if (c == i + 1) return block == 0 ? 2.0 : 0.0;
  if (c != i) return 0.0;
  return block == 0 ? -6.0 - 0.3 * y[i] * y[i] : block == 1 ? -11.0 : -6.0;
}

void BandJacobianFull(std::int32_t n, double, const double* y, double* FJAC, std::int32_t rows, void*, void*) {
  for (std::int32_t j = 0; j < n; ++j) {
    for (std::int32_t i = 0; i < n; ++i) {
      FJAC[i + j * rows] = i - j > 2 || j - i > 1 ? 0.0 : BandDerivative(n, i, j, y);
    }
  }
}

void BandJacobianBanded(std::int32_t n, double, const double* y, double* FJAC, std::int32_t rows, void*, void*) {
  for (std::int32_t j = 0; j < n; ++j) {
    for (std::int32_t i = std::max(0, j - 1); i <= std::min(n - 1, j + 2); ++i) {
      FJAC[i - j + 1 + j * rows] = BandDerivative(n, i, j, y);
    }
  }
}

void ChainJacobianFull(std::int32_t, double, const double* y, double* FJAC, std::int32_t rows, void*, void*) {
  for (std::int32_t col = 0; col < 12; ++col) {
    for (std::int32_t i = 0; i < 4; ++i) {
      FJAC[i + col * rows] = ChainDerivative(i, col % 4, col / 4, y);
    }
  }
}

void ChainJacobianBanded(std::int32_t, double, const double* y, double* FJAC, std::int32_t rows, void*, void*) {
  for (std::int32_t col = 0; col < 12; ++col) {
    const std::int32_t c = col % 4;
    for (std::int32_t i = std::max(0, c - 1); i <= std::min(3, c + 1); ++i) {
      FJAC[i - c + 1 + col * rows] = ChainDerivative(i, c, col / 4, y);
    }
  }
}

}  // namespace

TEST(EquivalentForms, ABandJacobianGivesTheBitsOfTheFullOne) {
  // Each row sees one perturbed component of a group, and the elimination skips zeros only.
  ExpectSameBits(Solve(Band(2, 1)), Solve(Band(12, 12)));
}

TEST(EquivalentForms, AWiderBandGivesTheSameBits) {
  ExpectSameBits(Solve(Band(4, 3)), Solve(Band(2, 1)));
  ExpectSameBits(Solve(Band(2, 11)), Solve(Band(2, 1)));
}

TEST(EquivalentForms, AGroupOfBandColumnsCostsOneEvaluation) {
  IntegratorCall call = Band(2, 1);
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  const Counters counters = call.ReadCounters();
  EXPECT_EQ(static_cast<std::int32_t>(probe.rhs_x.size()), counters.rhs_calls + 4 * counters.jacobian_count);
}

TEST(EquivalentForms, BlocksAreGroupedBlockByBlock) {
  // Three blocks of four columns in groups of three.
  IntegratorCall call = Chain(8, 4, 1);
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  const Counters counters = call.ReadCounters();
  EXPECT_EQ(static_cast<std::int32_t>(probe.rhs_x.size()), counters.rhs_calls + 9 * counters.jacobian_count);
}

TEST(EquivalentForms, AnIdentityMassGivesTheBitsOfNoMass) {
  const IntegratorCall plain = Solve(Hires());
  IntegratorCall diagonal = Hires();
  SetMass(diagonal, DiagonalIdentityMass, 0);
  ExpectSameBits(Solve(diagonal), plain);
  IntegratorCall full = Hires();
  SetMass(full, FullIdentityMass, 8);
  ExpectSameBits(Solve(full), plain);
  IntegratorCall tridiagonal = Hires();
  SetMass(
      tridiagonal,
      [](std::int32_t n, double* FMAS, std::int32_t rows, void*, void*) {
        for (std::int32_t j = 0; j < n; ++j) {
          FMAS[j * rows] = FMAS[2 + j * rows] = 0.0;
          FMAS[1 + j * rows] = 1.0;
        }
      },
      1);
  ExpectSameBits(Solve(tridiagonal), plain);
}

TEST(EquivalentForms, AnIdentityMassGivesTheBitsOfNoMassWithABandJacobian) {
  IntegratorCall diagonal = Band(2, 1);
  SetMass(diagonal, DiagonalIdentityMass, 0);
  ExpectSameBits(Solve(diagonal), Solve(Band(2, 1)));
}

TEST(EquivalentForms, BlockStructureGivesTheSolutionOfThePlainSystem) {
  const IntegratorCall plain = Solve(Chain(0, 0, 12));
  const IntegratorCall blocks = Solve(Chain(8, 4, 12));
  ExpectClose(blocks, plain, 0.0, 1e-7);
  ExpectSameBits(Solve(Chain(8, 4, 1)), blocks);
  // The last block alone as leading components: four y'(i) = y(i + 4), and eight equations.
  ExpectClose(Solve(Chain(4, 4, 12)), plain, 0.0, 1e-7);
}

TEST(EquivalentForms, BlockStructureWithAMassGivesTheSolutionOfThePlainSystem) {
  // The mass of the four last equations, banded and full, and the whole system with a full mass of order 12.
  IntegratorCall band = Chain(8, 4, 1);
  SetMass(band, ReferenceMass("chain3_mass_band"), 1);
  IntegratorCall semi = Chain(8, 4, 12);
  SetMass(semi, ReferenceMass("chain3_mass_band"), 1);
  IntegratorCall full = Chain(8, 4, 12);
  SetMass(full, ReferenceMass("chain3_mass_full"), 4);
  IntegratorCall plain = Chain(0, 0, 12);
  SetMass(
      plain,
      [](std::int32_t, double* FMAS, std::int32_t rows, void* a, void* b) {
        double small[16];
        ReferenceMass("chain3_mass_full")(4, small, 4, a, b);
        FullIdentityMass(12, FMAS, rows, a, b);
        for (std::int32_t j = 0; j < 4; ++j) {
          for (std::int32_t i = 0; i < 4; ++i) {
            FMAS[i + 8 + (j + 8) * rows] = small[i + j * 4];
          }
        }
      },
      12);
  const IntegratorCall expected = Solve(plain);
  const IntegratorCall semi_done = Solve(semi);
  ExpectClose(semi_done, expected, 0.0, 1e-7);
  ExpectSameBits(Solve(full), semi_done);
  ExpectSameBits(Solve(band), semi_done);
}

TEST(EquivalentForms, HessenbergFormGivesTheSolutionOfThePlainSystem) {
  IntegratorCall hessenberg = Hires();
  hessenberg.Iwork(1) = 1;
  ExpectClose(Solve(hessenberg), Solve(Hires()), 1e-9, 0.0);
  IntegratorCall chain = Chain(0, 0, 12);
  chain.Iwork(1) = 1;
  ExpectClose(Solve(chain), Solve(Chain(0, 0, 12)), 0.0, 1e-9);
}

TEST(EquivalentForms, AnAnalyticJacobianGivesTheSolutionOfTheNumericalOne) {
  const IntegratorCall plain = Solve(Band(12, 12));
  IntegratorCall full = Band(12, 12);
  full.ijac = 1;
  full.jacobian_callback = BandJacobianFull;
  Probe probe;
  Attach(probe, full);
  full.SizeAndRun();
  ExpectClose(full, plain, 0.0, 1e-8);
  EXPECT_EQ(probe.jacobian_calls, full.ReadCounters().jacobian_count);
  EXPECT_EQ(static_cast<std::int32_t>(probe.rhs_x.size()), full.ReadCounters().rhs_calls);

  IntegratorCall banded = Band(2, 1);
  banded.ijac = 1;
  banded.jacobian_callback = BandJacobianBanded;
  ExpectSameBits(Solve(banded), full);
}

TEST(EquivalentForms, AnAnalyticJacobianOfBlocksGivesTheSolutionOfTheNumericalOne) {
  const IntegratorCall numerical = Solve(Chain(8, 4, 12));
  IntegratorCall full = Chain(8, 4, 12);
  full.ijac = 1;
  full.jacobian_callback = ChainJacobianFull;
  const IntegratorCall full_done = Solve(full);
  ExpectClose(full_done, numerical, 0.0, 1e-8);
  IntegratorCall banded = Chain(8, 4, 1);
  banded.ijac = 1;
  banded.jacobian_callback = ChainJacobianBanded;
  ExpectSameBits(Solve(banded), full_done);
}

TEST(EquivalentForms, AnAnalyticJacobianIsIgnoredWithoutItsSwitch) {
  IntegratorCall call = Band(2, 1);
  call.jacobian_callback = BandJacobianFull;
  Probe probe;
  Attach(probe, call);
  call.SizeAndRun();
  EXPECT_EQ(probe.jacobian_calls, 0);
}

TEST(EquivalentForms, BothControllersReachTheSolution) {
  IntegratorCall classical = Hires();
  classical.Iwork(8) = 2;
  ExpectClose(Solve(classical), Solve(Hires()), 1e-6, 0.0);
}

TEST(EquivalentForms, ASecondCallRepeatsTheFirst) {
  const IntegratorCall first = Solve(Hires());
  Solve(Band(2, 1));
  ExpectSameBits(Solve(Hires()), first);
}

}  // namespace vorlen::test

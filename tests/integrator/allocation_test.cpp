// The integrator allocates nothing: operator new of the test program is counted around the call.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "integrator/integrator_call.h"
#include "integrator/probe.h"
#include "integrator/reference_problems.h"
#include "integrator/vorlen_radau.h"

namespace {

thread_local bool counting = false;
thread_local long allocations = 0;

void* CountedAllocationOrNull(std::size_t size) noexcept {
  if (counting) ++allocations;
  return std::malloc(size);
}

void* CountedAllocation(std::size_t size) {
  if (void* memory = CountedAllocationOrNull(size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return CountedAllocation(size); }
void* operator new[](std::size_t size) { return CountedAllocation(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return CountedAllocationOrNull(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return CountedAllocationOrNull(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace vorlen::test {

namespace {

void ReadDense(std::int32_t accepted_index, double x_old, double, const double*, const double* CONT,
               std::int32_t cont_size, std::int32_t, void*, void* model_context, std::int32_t&) {
  if (accepted_index > 1) *static_cast<double*>(model_context) += RadauDenseValue(1, x_old, CONT, cont_size);
}

long AllocationsOf(IntegratorCall call) {
  double sum = 0.0;
  call.iout = 1;
  call.step_callback = ReadDense;
  call.model_context = &sum;
  call.SizeArrays();
  allocations = 0;
  counting = true;
  call.Run();
  counting = false;
  EXPECT_EQ(call.idid, 1);
  return allocations;
}

IntegratorCall Hires() { return {HiresRhs, {1, 0, 0, 0, 0, 0, 0, 0.0057}, 321.8122}; }

}  // namespace

TEST(Allocation, TheCounterCounts) {
  allocations = 0;
  counting = true;
  delete new double(1.0);
  std::vector<double>(100).clear();
  counting = false;
  EXPECT_GE(allocations, 1);
}

TEST(Allocation, NoMatrixCaseAllocates) {
  EXPECT_EQ(AllocationsOf(Hires()), 0);
  IntegratorCall hessenberg = Hires();
  hessenberg.Iwork(1) = 1;
  EXPECT_EQ(AllocationsOf(hessenberg), 0);
  for (const bool full : {false, true}) {
    IntegratorCall mass = Hires();
    mass.imas = 1;
    mass.mass_callback = full ? FullIdentityMass : DiagonalIdentityMass;
    mass.mlmas = full ? 8 : 0;
    EXPECT_EQ(AllocationsOf(mass), 0);
  }
  for (const bool with_mass : {false, true}) {
    IntegratorCall band(BandRhs, std::vector<double>(12, 0.1), 0.5);
    band.mljac = 2;
    band.mujac = 1;
    band.imas = with_mass ? 1 : 0;
    band.mass_callback = DiagonalIdentityMass;
    EXPECT_EQ(AllocationsOf(band), 0);
  }
  for (const std::int32_t bandwidth : {1, 12}) {
    for (const char* mass : {"", "chain3_mass_band", "chain3_mass_full"}) {
      const bool full_mass = std::string(mass) == "chain3_mass_full";
      if (full_mass && bandwidth == 1) continue;
      IntegratorCall chain(Chain3Rhs, std::vector<double>(12, 0.5), 3.0);
      chain.Iwork(9) = 8;
      chain.Iwork(10) = 4;
      chain.mljac = chain.mujac = bandwidth;
      chain.imas = *mass == '\0' ? 0 : 1;
      chain.mass_callback = ReferenceMass(mass);
      chain.mlmas = chain.mumas = full_mass ? 4 : 1;
      EXPECT_EQ(AllocationsOf(chain), 0);
    }
  }
}

TEST(Allocation, ARejectedCallDoesNotAllocateEither) {
  IntegratorCall call = Hires();
  call.Iwork(2) = -1;
  call.SizeArrays();
  allocations = 0;
  counting = true;
  call.Run();
  counting = false;
  EXPECT_EQ(call.idid, -1);
  EXPECT_EQ(allocations, 0);
}

TEST(Allocation, TheHeaderAllocatesOnlyWithoutAWorkspace) {
  radau::Problem problem;
  problem.n = 1;
  problem.rhs = [](std::int32_t, double, const double* y, double* f, void*) { f[0] = -y[0]; };
  double reals[100];
  std::int32_t integers[100];
  for (const bool with_workspace : {true, false}) {
    double y[1] = {1.0};
    radau::State state{0.0, y, 1e-3, {}};
    allocations = 0;
    counting = true;
    const radau::Result result = with_workspace ? radau::Integrate(problem, {}, 1.0, state, {reals, 100, integers, 100})
                                                : radau::Integrate(problem, {}, 1.0, state);
    counting = false;
    EXPECT_EQ(result, radau::Result::REACHED_END);
    EXPECT_EQ(allocations, with_workspace ? 0 : 2);
  }
}

}  // namespace vorlen::test

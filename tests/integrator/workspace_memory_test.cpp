// A workspace of vorlen_radau that does not fit into the memory of the process, which only POSIX can limit.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdint>
#include <vector>

#include "integrator/vorlen_radau.h"

namespace vorlen::test {

TEST(WorkspaceMemory, AWorkspaceThatCannotBeAllocatedIsReported) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizers' own memory exceeds any limit";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  GTEST_SKIP() << "the sanitizers' own memory exceeds any limit";
#endif
#endif
  // 4 * 20000^2 reals are 12.8 GB.
  radau::Problem problem;
  problem.rhs = [](std::int32_t, double, const double*, double*, void*) {};
  problem.n = 20000;
  std::vector<double> y(20000, 0.0);
  radau::State state{0.0, y.data(), 1e-3, {}};
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_AS, &limit), 0);
  const rlimit small{rlim_t{4} << 30, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_AS, &small), 0);
  const radau::Result result = radau::Integrate(problem, {}, 1.0, state);
  ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
  EXPECT_EQ(result, radau::Result::OUT_OF_MEMORY);
}

}  // namespace vorlen::test

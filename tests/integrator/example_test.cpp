// The example of the documentation: it runs, and the page shows exactly the file that is built.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "integrator/integrator_call.h"
#include "integrator/reference_problems.h"

namespace vorlen::test {

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

// Output and exit status of the example.
std::pair<std::string, int> RunExample() {
  std::FILE* pipe = popen(VORLEN_ROBERTSON_EXAMPLE, "r");
  if (pipe == nullptr) return {"", -1};
  std::string output;
  std::array<char, 256> buffer{};
  while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), pipe) != nullptr) {
    output += buffer.data();
  }
  return {output, pclose(pipe)};
}

}  // namespace

TEST(Example, RobertsonReachesTheEndAndPrintsTheCountersOfTheRun) {
  const auto [output, status] = RunExample();
  EXPECT_EQ(status, 0);
  EXPECT_NE(output.find("reached the end at x = 1e+11\n"), std::string::npos) << output;
  // The published end values to the digits that the tolerance gives.
  EXPECT_NE(output.find("y = 2.08334"), std::string::npos) << output;
  EXPECT_NE(output.find(" 8.33336"), std::string::npos) << output;
  EXPECT_NE(output.find(" 9.999999792e-01\n"), std::string::npos) << output;

  IntegratorCall call(RobertsonRhs, {1.0, 0.0, 0.0}, 1e11);
  call.h = 1e-6;
  call.SetTolerance(1e-8, 1e-16);
  call.SizeAndRun();
  const Counters c = call.ReadCounters();
  const std::map<std::string, std::int32_t> expected = {{"rhs_calls", c.rhs_calls},
                                                        {"jacobian_count", c.jacobian_count},
                                                        {"jacobian_rhs_calls", 3 * c.jacobian_count},
                                                        {"step_count", c.step_count},
                                                        {"accepted_count", c.accepted_count},
                                                        {"rejected_count", c.rejected_count},
                                                        {"factorisation_count", c.factorisation_count},
                                                        {"solve_count", c.solve_count}};
  std::istringstream lines(output.substr(output.find("rhs_calls")));
  std::map<std::string, std::int32_t> printed;
  std::string name;
  std::int32_t count = 0;
  while (lines >> name >> count) {
    printed[name] = count;
  }
  EXPECT_EQ(printed, expected);
}

TEST(Example, ThePageShowsExactlyTheFileThatIsBuilt) {
  const std::string page = ReadFile(VORLEN_INTEGRATOR_PAGE);
  const std::string fence = "```cpp\n";
  const std::size_t begin = page.find(fence);
  ASSERT_NE(begin, std::string::npos);
  const std::size_t code = begin + fence.size();
  const std::size_t end = page.find("```", code);
  ASSERT_NE(end, std::string::npos);
  EXPECT_EQ(page.substr(code, end - code), ReadFile(VORLEN_EXAMPLES "/integrator_robertson.cpp"));
}

}  // namespace vorlen::test

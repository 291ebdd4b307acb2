// Whole runs against reference values computed independently: every matrix case, both controllers, the rejection of a
// first step and the step limit. The tests require equality bit for bit, since all arithmetic is + - * / sqrt and pow
// in a fixed order; the values are those of one processor and C library. With another pow they agree by tolerance.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "integrator/integrator_call.h"
#include "integrator/reference_problems.h"
#include "support/bits.h"

namespace vorlen::test {

namespace {

const nlohmann::json& ReferenceRuns() {
  static const nlohmann::json runs =
      nlohmann::json::parse(std::ifstream(VORLEN_TEST_DATA "/integrator/reference_runs.json")).at("runs");
  return runs;
}

double FromHex(const nlohmann::json& value) { return std::strtod(value.get<std::string>().c_str(), nullptr); }

// "WORK(7)" -> 7
std::int32_t SlotOf(const std::string& name) { return std::stoi(name.substr(name.find('(') + 1)); }

struct CallbackLog {
  std::int32_t calls = 0;
};

void CountStep(std::int32_t accepted_index, double, double, const double*, const double*, std::int32_t, std::int32_t,
               void*, void* model_context, std::int32_t&) {
  auto* log = static_cast<CallbackLog*>(model_context);
  log->calls += 1;
  EXPECT_EQ(accepted_index, log->calls);
}

// Bit for bit with the C library of the reference values, whose pow is in the choice of each step.
void ExpectReference(double actual, double expected, const std::string& what, double relative_tolerance = 1e-12) {
  EXPECT_TRUE(vorlen_test::same_as_reference(expected, actual, relative_tolerance)) << what;
}

class ReferenceRun : public testing::TestWithParam<std::size_t> {};

}  // namespace

TEST_P(ReferenceRun, GivesTheReferenceValues) {
  const nlohmann::json& run = ReferenceRuns().at(GetParam());
  const nlohmann::json& given = run.at("call");
  const nlohmann::json& expected = run.at("expected");
  SCOPED_TRACE(run.at("name").get<std::string>());

  std::vector<double> y;
  for (const auto& value : given.at("y_hex")) {
    y.push_back(FromHex(value));
  }
  IntegratorCall call(ReferenceRhs(run.at("problem")), y, given.at("x_end"));
  ASSERT_NE(call.rhs_callback, nullptr);
  ASSERT_EQ(call.n, given.at("n").get<std::int32_t>());
  call.x = given.at("x");
  call.h = given.at("h");
  call.SetTolerance(given.at("rtol"), given.at("atol"));
  call.itol = given.at("itol");
  call.ijac = given.at("ijac");
  call.mljac = given.at("mljac");
  call.mujac = given.at("mujac");
  call.imas = given.at("imas");
  call.mlmas = given.at("mlmas");
  call.mumas = given.at("mumas");
  call.iout = given.at("iout");
  CallbackLog log;
  call.model_context = &log;
  call.step_callback = CountStep;
  if (call.imas != 0) {
    call.mass_callback = ReferenceMass(run.at("mass"));
    ASSERT_NE(call.mass_callback, nullptr);
  }
  for (const auto& [slot, value] : given.at("WORK").items()) {
    call.Work(SlotOf(slot)) = value;
  }
  for (const auto& [slot, value] : given.at("IWORK").items()) {
    call.Iwork(SlotOf(slot)) = value;
  }
  call.SizeArrays();
  ASSERT_LE(call.lwork, given.at("lwork").get<std::int32_t>());
  ASSERT_LE(call.liwork, given.at("liwork").get<std::int32_t>());
  call.Run();

  EXPECT_EQ(call.idid, expected.at("idid").get<std::int32_t>());
  ExpectReference(call.x, FromHex(expected.at("x_hex")), "x");
  // The next step follows from the estimate of the error, a small difference of large numbers.
  ExpectReference(call.h, FromHex(expected.at("h_hex")), "h", 1e-6);
  for (std::size_t i = 0; i < call.y.size(); ++i) {
    ExpectReference(call.y[i], FromHex(expected.at("y_hex").at(i)), "y(" + std::to_string(i + 1) + ")");
  }
  const nlohmann::json& count = expected.at("counters");
  const Counters counters = call.ReadCounters();
  EXPECT_EQ(counters.rhs_calls, count.at("rhs_calls"));
  EXPECT_EQ(counters.jacobian_count, count.at("jacobian_count"));
  EXPECT_EQ(counters.step_count, count.at("step_count"));
  EXPECT_EQ(counters.accepted_count, count.at("accepted_count"));
  EXPECT_EQ(counters.rejected_count, count.at("rejected_count"));
  EXPECT_EQ(counters.factorisation_count, count.at("factorisation_count"));
  EXPECT_EQ(counters.solve_count, count.at("solve_count"));
  EXPECT_EQ(log.calls, expected.at("step_callback_calls"));
  EXPECT_EQ(call.mljac, expected.at("mljac"));
  EXPECT_EQ(call.mujac, expected.at("mujac"));
  EXPECT_EQ(call.mumas, expected.at("mumas"));
  ExpectReference(call.rtol[0], expected.at("rtol"), "rtol");
  ExpectReference(call.atol[0], expected.at("atol"), "atol");
}

INSTANTIATE_TEST_SUITE_P(All, ReferenceRun, testing::Range(std::size_t{0}, std::size_t{18}),
                         [](const testing::TestParamInfo<std::size_t>& run) {
                           std::string name = ReferenceRuns().at(run.param).at("name");
                           for (char& c : name) {
                             if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
                           }
                           return name;
                         });

TEST(ReferenceRuns, AllEighteenAreCovered) { EXPECT_EQ(ReferenceRuns().size(), 18U); }

}  // namespace vorlen::test

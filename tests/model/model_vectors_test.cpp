// The growth model against reference values computed independently, field by field and bit for bit: free functions,
// construction, first state vector, residual, conditions.
#include <algorithm>

#include "model/reference_values.h"
#include "strain/v_defect_energy.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

const ThermoSpeciesRecord& thermo_record(const std::string& name) {
  static const std::vector<SpeciesRecord> gas = builtin_gas_species();
  static const std::vector<BulkSpeciesRecord> bulk = builtin_bulk_species();
  for (const SpeciesRecord& s : gas) {
    if (s.name == name) return s;
  }
  const auto found = std::find_if(bulk.begin(), bulk.end(), [&](const auto& s) { return s.name == name; });
  EXPECT_NE(found, bulk.end()) << name;
  return *found;
}

// The values of a function at a list of arguments.
template <typename Function>
void expect_function(const json& arguments, const json& values, Function function, const std::string& what) {
  std::vector<double> actual;
  for (double argument : numbers_of(arguments)) actual.push_back(function(argument));
  expect_reference(values, actual, what);
}

class ModelVectors : public testing::TestWithParam<const char*> {
 protected:
  const json& values_ = reference_values(GetParam());
  BuiltModel model_{reference_recipe(GetParam())};
};

INSTANTIATE_TEST_SUITE_P(Recipes, ModelVectors, testing::ValuesIn(REFERENCE_RECIPES),
                         [](const auto& param_info) { return std::string(param_info.param); });

// The desorbing and arriving parts of a flux, whose difference it is; the last bits of pow and exp grow by them.
std::vector<double> flux_scale(const SurfChemNonst& m) {
  std::vector<double> scale(N_GAS);
  for (std::size_t i = 0; i < N_GAS; ++i) {
    const double site = i <= TMInNH3_g ? m.surface.free_sites : 1.0;
    scale[i] = !m.gas_present[i] ? 0.0 : std::fabs(m.surface.J[i]) + 2.0 * m.p[i] * site / m.surface.R_gas[i];
  }
  return scale;
}

// Likewise for each component of the residual.
std::vector<double> residual_scale(const SurfChemNonst& m) {
  const std::vector<double> J = flux_scale(m);
  double all_J = 0.0;
  for (double j : J) all_J += j;
  const double all_R = std::fabs(m.surface.R_b[0]) + std::fabs(m.surface.R_b[1]) + std::fabs(m.surface.R_b[2]);
  std::vector<double> scale(static_cast<std::size_t>(m.n_state()), all_R + std::fabs(m.GR) + 1e-300);
  for (std::size_t i = 0; i < N_ADSORBED; ++i) scale[i] = all_J + all_R;
  return scale;
}

}  // namespace

TEST(FunctionVectors, TheFreeEnergyOfEachSpeciesMeetsTheReference) {
  const json& cases = reference_values().at("functions").at("gibbs_energy");
  ASSERT_EQ(cases.size(), 17u);
  for (const json& c : cases) {
    const std::string name = c.at("species").get<std::string>();
    const ThermoSpeciesRecord& record = thermo_record(name);
    expect_function(
        c.at("T"), c.at("value"), [&](double T) { return gibbs_energy(record, T); }, name);
  }
}

TEST(FunctionVectors, TheCollisionFunctionMeetsTheReference) {
  const json& c = reference_values().at("functions").at("omega_inverse");
  expect_function(c.at("T_star"), c.at("value"), omega_inverse, "omega_inverse");
}

TEST(FunctionVectors, TheSegmentIntegralMeetsTheReference) {
  for (const json& c : reference_values().at("functions").at("F_segment")) {
    const double k = number_of(c.at("k"));
    expect_function(
        c.at("x"), c.at("value"), [k](double x) { return F_segment(k, x); }, "F_segment");
  }
}

TEST(FunctionVectors, ClampingAFractionMeetsTheReference) {
  const json& c = reference_values().at("functions").at("clamp_fraction");
  expect_function(c.at("v"), c.at("value"), clamp_fraction, "clamp_fraction");
}

TEST(FunctionVectors, InterpolationMeetsTheReference) {
  for (const json& c : reference_values().at("functions").at("interpolate")) {
    const ValueRange range{number_of(c.at("val")), number_of(c.at("end"))};
    expect_function(
        c.at("fraction"), c.at("value"), [&](double fraction) { return interpolate(range, fraction); }, "interpolate");
  }
}

TEST(FunctionVectors, TheBiaxialModulusMeetsTheReference) {
  expect_reference(reference_values().at("functions").at("modulus_M"), modulus_M(), "modulus_M");
}

TEST_P(ModelVectors, ConstructionMeetsTheReference) {
  const json& expected = values_.at("construction");
  SurfChemNonst& m = model_.m;
  EXPECT_EQ(model_.err, expected.at("err").get<int>());
  EXPECT_EQ(m.n_state(), expected.at("n").get<int>());
  EXPECT_EQ(m.conditions_vary, expected.at("conditions_vary").get<bool>());
  const auto gas_index = expected.at("gas_index").get<std::array<std::int32_t, N_GAS>>();
  for (std::size_t i = 0; i < N_GAS; ++i) EXPECT_EQ(m.gas_present[i], gas_index[i] >= 0) << i;

  int compared = 0;
  for (const auto& [key, node] : expected.items()) {
    if (const double* value = scalar_field(m, key)) {
      expect_reference(node, *value, key);
      ++compared;
    }
  }
  EXPECT_EQ(compared, m.stress_model == STRESS_V_dislocation ? 11 : 6);

  std::vector<double> M, molar_volume;
  for (const BulkSpeciesRecord& species : m.bulk_species) {
    M.push_back(species.M);
    molar_volume.push_back(species.molar_volume);
  }
  expect_reference(expected.at("M_of_bulk"), M, "M");
  expect_reference(expected.at("molar_volume_of_bulk"), molar_volume, "molar_volume");
  const json& rows = expected.at("D_binary_rows");
  ASSERT_EQ(rows.size(), m.D_binary.size());
  for (std::size_t i = 0; i < rows.size(); ++i)
    expect_reference(rows[i], m.D_binary[i], "D_binary[" + std::to_string(i) + ']');
}

TEST_P(ModelVectors, TheStagesAfterConstructionMeetTheReference) {
  const json& expected = values_.at("construction");
  ASSERT_EQ(expected.at("pre_stages").size(), model_->pre_stages.size());
  for (std::size_t i = 0; i < model_->pre_stages.size(); ++i) {
    const json& s = expected.at("pre_stages")[i];
    const PrePostStageRecord& actual = model_->pre_stages[i];
    const double time[] = {actual.time.val, actual.time.end};
    expect_reference(s.at("time"), time, "time");
    expect_reference(s.at("a_lattice"), actual.a_lattice, "a_lattice");
    expect_reference(s.at("c_lattice"), actual.c_lattice, "c_lattice");
    expect_reference(s.at("eps_xx"), actual.eps_xx, "eps_xx");
    expect_reference(s.at("rho_D"), actual.rho_D, "rho_D");
  }
  ASSERT_EQ(expected.at("active_stages").size(), model_->active_stages.size());
  for (std::size_t i = 0; i < model_->active_stages.size(); ++i) {
    const json& s = expected.at("active_stages")[i];
    const StageRecord& actual = model_->active_stages[i];
    EXPECT_EQ(s.at("label").get<std::string>(), actual.label);
    EXPECT_EQ(s.at("period").get<std::int32_t>(), actual.period);
    EXPECT_EQ(s.at("flows_vary").get<bool>(), actual.flows_vary) << actual.label;
    const double time[] = {actual.time.val, actual.time.end};
    const double rho_D[] = {actual.rho_D.val, actual.rho_D.end};
    expect_reference(s.at("time"), time, actual.label + " time");
    expect_reference(s.at("rho_D"), rho_D, actual.label + " rho_D");
    expect_reference(s.at("delta"), actual.delta, actual.label + " delta");
    if (s.contains("delta_ref")) expect_reference(s.at("delta_ref"), actual.delta_ref, actual.label + " delta_ref");
  }
}

TEST_P(ModelVectors, TheFirstStateAndItsScratchFieldsMeetTheReference) {
  const json& expected = values_.at("init_state");
  std::array<double, N_STATE_MAX> y{};
  model_->init_state(y.data());
  expect_reference(expected.at("y"), std::span(y.data(), static_cast<std::size_t>(model_->n_state())), "y");
  expect_fields(expected.at("fields_after"), model_.m, "init_state", flux_scale(model_.m));
}

TEST_P(ModelVectors, TwelveResidualsAndTheirScratchFieldsMeetTheReference) {
  std::array<double, N_STATE_MAX> y{};
  model_->init_state(y.data());
  const json& calls = values_.at("eval_rhs");
  ASSERT_EQ(calls.size(), 12u);
  for (std::size_t k = 0; k < calls.size(); ++k) {
    const json& call = calls[k];
    const std::vector<double> state = numbers_of(call.at("y"));
    std::vector<double> f(state.size(), -77.0);
    ASSERT_EQ(static_cast<int>(f.size()), model_->n_state());
    EXPECT_EQ(model_->eval_rhs(number_of(call.at("t")), state.data(), f.data()), call.at("returns").get<int>());
    const std::string what = "call " + std::to_string(k);
    expect_fields(call.at("fields_after"), model_.m, what, flux_scale(model_.m));
    expect_reference(call.at("f"), f, what + " f", residual_scale(model_.m));
  }
}

TEST_P(ModelVectors, TheConditionsForwardAndBackwardMeetTheReference) {
  model_->update_conditions(model_->t_begin, true);
  const json& calls = values_.at("update_conditions");
  ASSERT_EQ(calls.size(), model_->n_state() == N_STATE_MAX ? 25u : 29u);
  for (const json& call : calls) {
    const double t = number_of(call.at("t"));
    model_->error_text.clear();
    EXPECT_EQ(model_->update_conditions(t, call.at("stage_changed").get<bool>()), call.at("returns").get<int>());
    EXPECT_EQ(model_->error_text, call.at("error_text").get<std::string>());
    json fields = call;
    for (const char* key : {"t", "stage_changed", "returns", "error_text"}) fields.erase(key);
    expect_fields(fields, model_.m, "t " + std::to_string(t));
  }
}

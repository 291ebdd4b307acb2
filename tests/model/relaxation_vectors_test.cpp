// Relaxation, V-defects and accepted steps against reference values computed independently, bit for bit.
#include "model/reference_values.h"
#include "strain/record_step.h"
#include "strain/v_defect_energy.h"
#include "strain/v_defects.h"
#include "strain/z0_search.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

class RecordVectors : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Recipes, RecordVectors, testing::ValuesIn(REFERENCE_RECIPES),
                         [](const auto& param_info) { return std::string(param_info.param); });

}  // namespace

TEST_P(RecordVectors, ASequenceOfAcceptedStepsMeetsTheReference) {
  const json& expected = reference_values(GetParam()).at("record_step");
  BuiltModel model(reference_recipe(GetParam()));
  std::array<double, N_STATE_MAX> y{};
  std::array<double, N_STATE_MAX> f{};
  model->init_state(y.data());
  std::size_t number = 0;
  for (const json& step : expected.at("steps")) {
    const std::string what = "step " + std::to_string(number++);
    const double t = number_of(step.at("t"));
    const std::vector<double> state = numbers_of(step.at("y"));
    ASSERT_EQ(static_cast<int>(state.size()), model->n_state());
    model->eval_rhs(t, state.data(), f.data());
    record_step(model.m, t, state.data());
    EXPECT_EQ(step.at("recorded_points").get<std::size_t>(), model->history.t.size()) << what;
    json fields = step;
    if (fields.contains("segments")) {
      EXPECT_EQ(fields["segments"][0].get<std::size_t>(), model->segments.relaxing.size()) << what;
      EXPECT_EQ(fields["segments"][1].get<std::size_t>(), model->segments.tensile.size()) << what;
    }
    for (const char* key : {"t", "y", "recorded_points", "segments"}) fields.erase(key);
    expect_fields(fields, model.m, what);
  }
  EXPECT_GE(number, 50u);

  if (expected.contains("seg_relax")) {
    expect_segments(expected.at("seg_relax"), model->segments.relaxing, "seg_relax");
    expect_segments(expected.at("seg_tensile"), model->segments.tensile, "seg_tensile");
    EXPECT_EQ(expected.at("seg_first")[0].get<std::uint32_t>(), model->segments.relaxing_first);
    EXPECT_EQ(expected.at("seg_first")[1].get<std::uint32_t>(), model->segments.tensile_first);
    for (const auto& [name, length] : expected.at("list_lengths").items()) {
      const std::vector<double>* list = list_field(model.m, name);
      ASSERT_NE(list, nullptr) << name;
      EXPECT_EQ(list->size(), length.get<std::size_t>()) << name;
    }
  }

  model->set_post_stage_lattice();
  const json& post_stages = expected.at("post_stages");
  ASSERT_EQ(post_stages.size(), model->post_stages.size());
  for (std::size_t i = 0; i < post_stages.size(); ++i) {
    const PrePostStageRecord& s = model->post_stages[i];
    expect_reference(post_stages[i].at("a_lattice"), s.a_lattice, "a_lattice");
    expect_reference(post_stages[i].at("c_lattice"), s.c_lattice, "c_lattice");
    expect_reference(post_stages[i].at("eps_xx"), s.eps_xx, "eps_xx");
    expect_reference(post_stages[i].at("rho_D"), s.rho_D, "rho_D");
  }
}

TEST(RelaxationVectors, TheFunctionsOfRelaxationMeetTheReference) {
  const ProcessRecipe recipe = reference_recipe("ingan_v_defects");
  const json& cases = starting_with(reference_values("ingan_v_defects"), "relaxation_");
  ASSERT_EQ(cases.size(), 12u);
  for (std::size_t k = 0; k < cases.size(); ++k) {
    const json& c = cases[k];
    const std::string what = "case " + std::to_string(k) + ' ';
    BuiltModel model(recipe);
    SurfChemNonst& m = model.m;
    set_fields(c.at("fields"), m);
    expect_reference(c.at("rho_TD_at(rho_VD, z, h)"), m.rho_TD_at(m.rho_VD, m.z, m.h), what + "rho_TD_at");
    expect_reference(c.at("eps_relaxed(rho_VD, z, h)"), m.eps_relaxed(m.rho_VD, m.z, m.h), what + "eps_relaxed");
    expect_reference(c.at("eps_in_plane(3.25, rho_VD, z, h)"), m.eps_in_plane(3.25, m.rho_VD, m.z, m.h),
                     what + "eps_in_plane");
    expect_reference(c.at("a_eff_at_surface(3.25, rho_VD)"), m.a_eff_at_surface(3.25, m.rho_VD), what + "a_eff");
    expect_reference(starting_with(c, "r of "), m.relative_mismatch(), what + "relative_mismatch");
    expect_reference(c.at("loop_energy(z, z0)"), loop_energy(m, m.z, m.z0), what + "loop_energy");

    const json& rows = c.at("rows");
    m.a_bulk = number_of(rows.at("a_bulk"));
    std::array<double, 5> f{};
    m.relaxation_rows(number_of(rows.at("GR_calc")), f.data());
    expect_reference(rows.at("eps_xx"), m.eps_xx_last_trial, what + "eps_xx");
    expect_reference(rows.at("f[6..10]"), f, what + "rows");
  }
}

TEST(RelaxationVectors, TheUpdateOfTheVDefectsMeetsTheReference) {
  const ProcessRecipe recipe = reference_recipe("ingan_v_defects");
  int updates = 0;
  for (const json& c : starting_with(reference_values("ingan_v_defects"), "relaxation_")) {
    if (!c.contains("update_V_defects()")) continue;
    const std::string what = "update " + std::to_string(updates++) + ' ';
    BuiltModel model(recipe);
    SurfChemNonst& m = model.m;
    set_fields(c.at("fields"), m);
    expect_reference(c.at("J2_of(rho_VD)"), J2_of(m, m.rho_VD), what + "J2_of");
    expect_reference(c.at("J2_of(1e14)"), J2_of(m, 1e14), what + "J2_of at 1e14");

    const json& update = c.at("update_V_defects()");
    set_fields(update.at("fields"), m);
    const double rho_VD_before = m.rho_VD;
    update_V_defects(m, m.eps_xx_last_trial);
    for (const char* name : {"J0", "J1", "J2", "rho_VD"})
      expect_reference(update.at(name), *scalar_field(m, name), what + name);
    expect_reference(update.at("energy_balance(loop_energy(z, z0), rho_VD before)"),
                     energy_balance(m, loop_energy(m, m.z, m.z0), rho_VD_before), what + "energy_balance");
  }
  EXPECT_GE(updates, 5);
}

TEST(RelaxationVectors, TheSearchForTheDensityMeetsTheReference) {
  const json& c = reference_values("ingan_v_defects").at("solve_rho_VD");
  BuiltModel model(reference_recipe("ingan_v_defects"));
  set_fields(c.at("fields"), model.m);
  ASSERT_EQ(c.at("searches").size(), 13u);
  for (const json& search : c.at("searches")) {
    set_fields({{"rho_VD", search.at("rho_VD")}, {"J0", search.at("J0")}}, model.m);
    const std::string what = "rho_VD " + std::to_string(model->rho_VD) + ' ';
    expect_reference(search.at("rho_VD_candidate"), solve_rho_VD(model.m), what);
  }
}

TEST(RelaxationVectors, TheSearchForTheDepthMeetsTheReference) {
  const ProcessRecipe recipe = reference_recipe("ingan_v_defects");
  const json& cases = reference_values("ingan_v_defects").at("find_z0");
  ASSERT_EQ(cases.size(), 4u);
  for (std::size_t k = 0; k < cases.size(); ++k) {
    const std::string what = "case " + std::to_string(k) + ' ';
    BuiltModel model(recipe);
    SurfChemNonst& m = model.m;
    set_fields(cases[k].at("fields"), m);
    find_z0(m);
    const json& found = cases[k].at("find_z0()");
    expect_reference(found.at("z0"), m.z0, what + "z0");
    if (found.at("z0_index").is_null()) {
      EXPECT_LT(m.z0, 0.0);
      EXPECT_EQ(m.z0_index, std::numeric_limits<std::uint32_t>::max());
      continue;
    }
    EXPECT_EQ(found.at("z0_index").get<std::uint32_t>(), m.z0_index) << what;

    start_V_defects(m);
    const json& start = starting_with(cases[k], "start of the V-defects");
    expect_segments(start.at("seg_relax"), m.segments.relaxing, what + "seg_relax");
    expect_segments(start.at("seg_tensile"), m.segments.tensile, what + "seg_tensile");
    EXPECT_EQ(start.at("seg_relax_first").get<std::uint32_t>(), m.segments.relaxing_first) << what;
    EXPECT_EQ(start.at("seg_tensile_first").get<std::uint32_t>(), m.segments.tensile_first) << what;
    json fields = start;
    // The reference keeps two integrals more, which nothing uses.
    for (const char* key : {"seg_relax", "seg_tensile", "seg_relax_first", "seg_tensile_first", "I0_z0", "I1_z0"})
      fields.erase(key);
    expect_fields(fields, m, what);
  }
}

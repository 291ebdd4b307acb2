// What ends the construction of a model, with which status and text, in which order, and what becomes of the result
// file.
//
// Two failures cannot happen with any recipe, since stricter checks of the recipe come first: an empty list of active
// stages, and a dislocation angle of 90 degrees.
#include <cmath>
#include <functional>

#include "model/model_fixture.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

using Change = std::function<void(ProcessRecipe&)>;

void expect_rejected(const RecipeOptions& options, const Change& change, int err, const std::string& text) {
  ProcessRecipe recipe = recipe_of(options);
  EXPECT_EQ(BuiltModel(recipe).err, 0) << "the recipe is good before the change";
  change(recipe);
  BuiltModel model(recipe);
  EXPECT_EQ(model.err, err);
  EXPECT_EQ(model->error_text, text);
}

const RecipeOptions THICK_GAN{.stress_model = "off", .transport_model = "thick_GaN"};
const RecipeOptions GR_X{.stress_model = "off", .transport_model = "InGaN_GR_X", .n_stages = 2};
const RecipeOptions NO_PRE_STAGES{.stress_model = "off", .n_pre_stages = 0};

void without_nitrogen(ProcessRecipe& recipe) {
  for (StageRecord& stage : recipe.active_stages) stage.Q[N2_g] = stage.Q[NH3_g] = ValueRange{};
}

void inherit_at_first_stage(ProcessRecipe& recipe) { recipe.active_stages[0].disl_model = DISL_inherited; }

}  // namespace

TEST(ConstructionErrors, AGoodRecipeLeavesStatusZeroAndNoText) {
  BuiltModel model(recipe_of(RecipeOptions{}));
  EXPECT_EQ(model.err, 0);
  EXPECT_EQ(model->error_text, "");
  EXPECT_FALSE(model->out.is_open()) << "an empty output path opens nothing";
}

TEST(ConstructionErrors, AnOutputPathThatCannotBeOpened) {
  TempFolder folder;
  const std::string path = folder.path("no_such_folder/result.txt");
  BuiltModel model(recipe_of(RecipeOptions{}), path);
  EXPECT_EQ(model.err, 1);
  EXPECT_EQ(model->error_text, "Unable to open file " + path + " for writing");
}

TEST(ConstructionErrors, ADirectoryAsOutputPathCannotBeOpened) {
  TempFolder folder;
  BuiltModel model(recipe_of(RecipeOptions{}), folder.path());
  EXPECT_EQ(model.err, 1);
  EXPECT_EQ(model->error_text, "Unable to open file " + folder.path() + " for writing");
}

TEST(ConstructionErrors, TheOutputIsOpenedBeforeTheRecipeIsValidated) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{});
  recipe.Kd_A.fill(0.0);
  BuiltModel model(recipe, "/no_such_folder/result.txt");
  EXPECT_EQ(model.err, 1);
  EXPECT_EQ(model->error_text, "Unable to open file /no_such_folder/result.txt for writing");
}

TEST(ConstructionErrors, TheOutputFileIsEmptiedAtConstruction) {
  TempFolder folder;
  const std::string path = write_file(folder.path("result.txt"), "an older result\n");
  {
    BuiltModel model(recipe_of(RecipeOptions{}), path);
    EXPECT_EQ(model.err, 0);
    EXPECT_EQ(read_file(path), "");
    model->out.write("rows", 4);
  }
  EXPECT_EQ(read_file(path), "rows") << "the file is open for the writer, and closed with the model";
}

TEST(ConstructionErrors, ATextInMemoryTakesThePlaceOfTheFile) {
  std::string text = "an older result";
  std::int32_t err = 0;
  SurfChemNonst model(recipe_of(RecipeOptions{}), "", err, &text);
  EXPECT_EQ(text, "");
  ASSERT_TRUE(model.out.is_open());
  model.out.write("rows ", 5);
  model.out.write("of two blocks, the last one cut", 13);
  EXPECT_EQ(text, "rows of two blocks");
  model.out.close();
  EXPECT_FALSE(model.out.is_open());
}

TEST(ConstructionErrors, TheOutputFileIsEmptiedAlsoForARecipeThatIsRejected) {
  TempFolder folder;
  const std::string path = write_file(folder.path("result.txt"), "an older result\n");
  ProcessRecipe recipe = recipe_of(RecipeOptions{});
  recipe.Kd_A.fill(0.0);
  BuiltModel model(recipe, path);
  EXPECT_EQ(model.err, -1);
  EXPECT_EQ(read_file(path), "");
}

TEST(ConstructionErrors, ARecipeThatFailsItsValidation) {
  expect_rejected(
      {}, [](ProcessRecipe& r) { r.Kd_A.fill(0.0); }, -1,
      "Predexponents of all desorption constants are zeros or not specified");
  expect_rejected(
      {}, [](ProcessRecipe& r) { r.active_stages.clear(); }, -1, "Number of stages is zero");
  expect_rejected(
      {}, [](ProcessRecipe& r) { r.V_angle_05 = 90.0; }, -1,
      "Dislocation angle is beyond [0;90] degrees or not specified");
}

TEST(ConstructionErrors, APreStageChainWithoutALatticeConstantToStartFrom) {
  const char* text = "Lattice constant 'a' of first pre-stage is not defined";
  expect_rejected(
      {}, [](ProcessRecipe& r) { r.pre_stages[0].stress_state = 1.0; }, -1, text);
  expect_rejected(
      {}, [](ProcessRecipe& r) { r.pre_stages[0].stress_state = 0.0; }, -1, text);
}

TEST(ConstructionErrors, APreStageChainThatInheritsItsFirstDensity) {
  expect_rejected(
      {}, [](ProcessRecipe& r) { r.pre_stages[0].disl_model = DISL_inherited; }, -1,
      "Cannot inherit dislocation density for first pre-stage");
}

TEST(ConstructionErrors, AFirstStageThatInheritsFromNothing) {
  expect_rejected(NO_PRE_STAGES, inherit_at_first_stage, 1,
                  "Cannot inherit dislocation density for first active stage: no pre-stages");
}

TEST(ConstructionErrors, TheReferenceFlowsOfThickGaNAreTooSmall) {
  const char* text = "Total refence flow rate is less than 1e-10 sccm";
  const Change tiny = [](ProcessRecipe& r) {
    r.Q_ref.fill(0.0);
    r.Q_ref[TMGa_g] = 0.99e-10;
  };
  expect_rejected(THICK_GAN, tiny, 1, text);
}

TEST(ConstructionErrors, TheReferenceFlowsOfThickGaNHaveNoGallium) {
  const char* text = "Refence flow rates of TMGa and TEGa are less than 1e-10 sccm";
  const Change tiny = [](ProcessRecipe& r) { r.Q_ref[TMGa_g] = r.Q_ref[TEGa_g] = 0.99e-10; };
  expect_rejected(THICK_GAN, tiny, 1, text);
}

TEST(ConstructionErrors, AReferenceFlowOnTheLimitIsAccepted) {
  ProcessRecipe recipe = recipe_of(THICK_GAN);
  recipe.Q_ref[TMGa_g] = 1e-10;
  EXPECT_EQ(BuiltModel(recipe).err, 0);
  recipe.Q_ref.fill(0.0);  // and as the total: a species alone has no coefficient, which is not guarded
  recipe.Q_ref[TMGa_g] = 1e-10;
  BuiltModel model(recipe);
  EXPECT_EQ(model.err, 0);
  EXPECT_TRUE(std::isnan(model->active_stages[0].delta));
}

TEST(ConstructionErrors, TheReferenceDiffusionOfThickGaNIsTooSlow) {
  // D falls as 1/P; at 1e25 Pa it is about 1e-24 m^2/s.
  expect_rejected(
      THICK_GAN, [](ProcessRecipe& r) { r.P_ref = 1e25; }, 1,
      "Refence diffusion coefficients of TMGa and TEGa are less than 1e-20");
}

TEST(ConstructionErrors, OneReferenceDiffusionThatIsFastEnoughSuffices) {
  ProcessRecipe recipe = recipe_of(THICK_GAN);
  recipe.Q_ref[TEGa_g] = 1.0;
  BuiltModel model(recipe);
  std::array<double, N_GAS> x{}, D{};
  for (std::size_t i = 0; i < N_FLOWS; ++i) x[i] = recipe.Q_ref[i] / model->Q_ref_total;
  model->mix_diffusion(recipe.T_ref, recipe.P_ref, x.data(), D.data());
  ASSERT_GT(D[TMGa_g], 1.1 * D[TEGa_g]);
  // As D goes as 1/P, this pressure puts the limit between the two.
  recipe.P_ref *= 0.5 * (D[TMGa_g] + D[TEGa_g]) / 1e-20;
  EXPECT_EQ(BuiltModel(recipe).err, 0);
}

TEST(ConstructionErrors, TheReferenceGrowthRateOfThickGaNIsTooSmall) {
  expect_rejected(
      THICK_GAN, [](ProcessRecipe& r) { r.GR_ref = 0.99e-10; }, 1, "Refence growth rate is less than 1e-10");
  ProcessRecipe recipe = recipe_of(THICK_GAN);
  recipe.GR_ref = 1e-10;
  EXPECT_EQ(BuiltModel(recipe).err, 0) << "the limit itself is accepted";
}

TEST(ConstructionErrors, TheChecksOfTheReferenceLayerHaveAnOrder) {
  const Change everything = [](ProcessRecipe& r) {
    r.P_ref = 1e25;
    r.GR_ref = 1e-11;
    r.Q_ref.fill(0.0);
    r.Q_ref[N2_g] = 1e-11;
  };
  ProcessRecipe recipe = recipe_of(THICK_GAN);
  everything(recipe);
  EXPECT_EQ(BuiltModel(recipe)->error_text, "Total refence flow rate is less than 1e-10 sccm");
  recipe.Q_ref[N2_g] = 1.0;
  EXPECT_EQ(BuiltModel(recipe)->error_text, "Refence flow rates of TMGa and TEGa are less than 1e-10 sccm");
  recipe.Q_ref[TMGa_g] = 1.0;
  EXPECT_EQ(BuiltModel(recipe)->error_text, "Refence diffusion coefficients of TMGa and TEGa are less than 1e-20");
  recipe.P_ref = 20000.0;
  EXPECT_EQ(BuiltModel(recipe)->error_text, "Refence growth rate is less than 1e-10");
}

TEST(ConstructionErrors, AFirstStageWithoutGalliumUnderPrescribedGrowth) {
  const char* text =
      "Flow rates of TMGa and TEGa are less than 1e-10 sccm on first stage. It is not compatible with transport model "
      "InGaN_GR_X.";
  const Change no_gallium = [](ProcessRecipe& r) {
    r.active_stages[0].Q[TMGa_g].set_both(0.99e-10);
    r.active_stages[0].Q[TEGa_g].set_both(0.99e-10);
  };
  expect_rejected(GR_X, no_gallium, 1, text);
}

TEST(ConstructionErrors, TheTransportModelThatDefinesNoLayer) {
  BuiltModel model(recipe_of(RecipeOptions{.stress_model = "off", .transport_model = "InGaN_GR"}));
  EXPECT_EQ(model.err, 1);
  EXPECT_EQ(model->error_text, "Transport model InGaN_GR is not supported: it defines no transport layer");
}

TEST(ConstructionErrors, TheChecksHaveAnOrder) {
  // All faults at once, removed one by one in the order in which they are reported.
  ProcessRecipe recipe = recipe_of(RecipeOptions{.stress_model = "off", .transport_model = "InGaN_GR"});
  const PrePostStageRecord good_pre_stage = recipe.pre_stages[0];
  const StageRecord good_stage = recipe.active_stages[0];
  const auto Kd_A = recipe.Kd_A;
  recipe.Kd_A.fill(0.0);
  recipe.pre_stages[0].stress_state = 0.5;
  without_nitrogen(recipe);
  inherit_at_first_stage(recipe);

  EXPECT_EQ(BuiltModel(recipe)->error_text, "Predexponents of all desorption constants are zeros or not specified");
  recipe.Kd_A = Kd_A;
  EXPECT_EQ(BuiltModel(recipe)->error_text, "Lattice constant 'a' of first pre-stage is not defined");
  recipe.pre_stages.clear();
  EXPECT_EQ(BuiltModel(recipe)->error_text, "Cannot inherit dislocation density for first active stage: no pre-stages");
  recipe.pre_stages.push_back(good_pre_stage);
  EXPECT_EQ(BuiltModel(recipe).err, 100);
  recipe.active_stages[0].Q = good_stage.Q;
  BuiltModel last(recipe);
  EXPECT_EQ(last.err, 1);
  EXPECT_EQ(last->error_text, "Transport model InGaN_GR is not supported: it defines no transport layer");
}

#include "bench_support.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "recipe/read_recipe.h"
#include "recipes/bench_recipes.h"
#if __has_include("strain/record_step.h")
#include "strain/record_step.h"
#endif

namespace vorlen::bench {

namespace {

struct ScratchFolder {
  std::filesystem::path path = std::filesystem::temp_directory_path() / ("vorlen_bench_" + std::to_string(getpid()));
  ScratchFolder() { std::filesystem::create_directories(path); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
};

[[noreturn]] void give_up(const std::string& text) {
  std::fprintf(stderr, "%s\n", text.c_str());
  std::exit(2);
}

}  // namespace

std::string scratch_file(const std::string& name) {
  static const ScratchFolder folder;
  return (folder.path / name).string();
}

std::string scratch_recipe(const std::string& name, const std::string& text) {
  const std::string path = scratch_file(name);
  if (!write_file(path, text)) give_up(path + " can't be written");
  return path;
}

FileSize measure_file(const std::string& path) {
  FileSize size;
  std::ifstream in(path, std::ios::binary);
  std::vector<char> block(1 << 20);
  while (in.read(block.data(), static_cast<std::streamsize>(block.size())) || in.gcount() > 0) {
    const std::streamsize got = in.gcount();
    size.bytes += got;
    for (std::streamsize i = 0; i < got; ++i) size.lines += block[static_cast<std::size_t>(i)] == '\n' ? 1 : 0;
  }
  return size;
}

Model build_model(const std::string& recipe_text, const char* output_path) {
  ProcessRecipe recipe;
  std::string error;
  const std::string path = scratch_recipe("model.xml", recipe_text);
  if (read_recipe(path.c_str(), recipe, error) != 0) give_up(error);
  std::int32_t err = 0;
  Model model;
  model.surfchem_nonst = std::make_unique<SurfChemNonst>(recipe, output_path, err);
  if (err != 0) give_up(model.surfchem_nonst->error_text);
  model.surfchem_nonst->init_state(model.y.data());
  return model;
}

std::vector<std::array<double, N_STATE_MAX>> varied_states(const Model& model, std::size_t count) {
  constexpr double X_IN = 0.19;
  constexpr double X_AL = 0.01;
  constexpr double STEP = 1e-6;
  const std::int32_t n = model.surfchem_nonst->n_state();
  std::array<double, N_STATE_MAX> y = model.y;
  double* x_b = y.data() + (n - N_ALGEBRAIC);
  x_b[0] = X_IN;
  x_b[1] = 1.0 - X_IN - X_AL;
  x_b[2] = X_AL;
  std::vector<std::array<double, N_STATE_MAX>> states(count, y);
  for (std::size_t k = 0; k < count; ++k) {
    for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
      states[k][i] *= 1.0 + STEP * static_cast<double>((k + 1) * (i + 3));
    }
  }
  return states;
}

// compare.sh compiles this folder against earlier sources as well, in which the operation is a member of the model.
template <class GrowthModel>
static void record(GrowthModel& m, double t, const double* y) {
  if constexpr (requires { m.record_step(t, y); }) {
    m.record_step(t, y);
  } else {
    record_step(m, t, y);
  }
}

void record_growth(Model& model, std::int64_t count, double x_In) {
  constexpr double SPACING = 0.25;  // s
  constexpr double RATE = 3e-11;    // m/s
  constexpr double WAVE = 0.01;     // relative variation of the rate, so that rows differ in their digits
  SurfChemNonst& m = *model.surfchem_nonst;
  std::array<double, N_STATE_MAX>& y = model.y;
  const bool relaxes = m.stress_model == STRESS_V_dislocation;
  double* x_b = y.data() + (m.n_state() - N_ALGEBRAIC);
  x_b[0] = x_In;
  x_b[1] = 1.0 - x_In;
  x_b[2] = 0.0;
  double& z = y[N_ADSORBED];
  for (std::int64_t k = 0; k < count; ++k) {
    const double GR = RATE * (1.0 + WAVE * std::sin(static_cast<double>(k)));
    x_b[3] = GR;
    record(m, m.t_begin + SPACING * static_cast<double>(k), y.data());
    z += SPACING * GR;
    if (relaxes) {
      double f[5];  // derivatives of h, I0, I1, J0_0, J0_1
      m.relaxation_rows(GR, f);
      for (std::size_t i = 1; i < 5; ++i) y[N_ADSORBED + 1 + i] += SPACING * f[i];
    }
  }
}

}  // namespace vorlen::bench

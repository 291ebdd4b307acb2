// The result file: header, layer block, column heading, and the rows of pre-stages, active stages and post-stages. The
// whole file is written at once after the integration.
#include "results/write_results.h"

#include <string>
#include <vector>

#include "model/constants.h"
#include "results/columns.h"
#include "results/number_format.h"
#include "results/profiles.h"
#include "results/single_point.h"

namespace vorlen {

namespace {

template <class Stage>
void append_layers(std::string& text, const std::vector<Stage>& stages, int& number) {
  for (const Stage& stage : stages) {
    ++number;
    text += '"';
    text += stage.name.empty() ? "Layer" + std::to_string(number) : stage.name;
    text += "\" ";
    append_general(text, stage.tau);
    text += ' ';
    append_general(text, stage.thickness);
    text += '\n';
  }
}

void write_header(SurfChemNonst& m) {
  std::string text = "\"VORLEN output file, version 2.0\"\n<LAYERS>\n";
  int number = 0;
  append_layers(text, m.pre_stages, number);
  append_layers(text, m.active_stages, number);
  append_layers(text, m.post_stages, number);
  text += "</LAYERS>\n";
  text += result_heading(m.detail_output, m.stress_model == STRESS_V_dislocation);
  text += '\n';
  m.out.write(text.data(), text.size());
}

}  // namespace

void write_results(SurfChemNonst& m, bool success) {
  if (!m.out.is_open()) return;
  if (m.single_point.selected) {
    write_single_point(m);
    return;
  }
  sum_stage_thicknesses(m);
  m.set_post_stage_lattice();
  write_header(m);
  write_stage_rows(m, m.pre_stages, 0.0, 0.0);
  write_profile(m);
  if (success) write_stage_rows(m, m.post_stages, m.z * M_TO_NM, m.rho_VD);
  m.out.close();
}

}  // namespace vorlen

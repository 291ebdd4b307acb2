// The result file: header, layer block, column heading, and the rows of pre-stages, active stages and post-stages. The
// whole file is written at once after the integration.
#include "model/surfchem_nonst.h"
#include "results/columns.h"
#include "results/number_format.h"
#include "results/single_point.h"

namespace vorlen {

namespace {

constexpr double M_TO_NM = 1e9;

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

void write_text(std::ofstream& out, const std::string& text) {
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace

void SurfChemNonst::write_results(bool success) {
  if (!out.is_open()) return;
  if (single_point.selected) {
    write_single_point(*this);
    return;
  }
  stage_thicknesses();
  stage_lattice(false);
  write_header();
  write_column_heads();
  write_stage_rows(true, 0.0);
  write_profile();
  if (success) write_stage_rows(false, z * M_TO_NM);
  out.close();
}

void SurfChemNonst::write_header() {
  std::string text = "\"VORLEN output file, version 2.0\"\n<LAYERS>\n";
  int number = 0;
  append_layers(text, pre_stages, number);
  append_layers(text, active_stages, number);
  append_layers(text, post_stages, number);
  text += "</LAYERS>\n";
  write_text(out, text);
}

void SurfChemNonst::write_column_heads() {
  std::string text = result_heading(detail_output, stress_model == STRESS_V_dislocation);
  text += '\n';
  write_text(out, text);
}

}  // namespace vorlen

// The result file: header, layer block, column heading, and the rows of pre-stages, active stages and post-stages; or
// the single-point layout for mode 1. The whole file is written in one go after the integration.
#include "model/surfchem_nonst.h"
#include "results/columns.h"
#include "results/number_format.h"

namespace vorlen {

namespace {

constexpr double M_TO_NM = 1e9;
constexpr double M_PER_S_TO_MKM_PER_HR = 3600000000.0;

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
  if (mode != 0) {
    write_point_state();
    write_point_history();
    write_point_fluxes();
    out.close();
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

void SurfChemNonst::write_point_state() {
  std::string text = "T P delta ";
  for (std::int32_t i : reported_species) text += gas_species[static_cast<std::size_t>(i)].name + ' ';
  text += '\n';
  for (double value : {T, P, delta[0]}) {
    append_general(text, value);
    text += ' ';
  }
  for (std::int32_t i : reported_species) {
    append_general(text, p[static_cast<std::size_t>(i)]);
    text += ' ';
  }
  text += "\n\n";
  write_text(out, text);
}

void SurfChemNonst::write_point_history() {
  std::string text = "t(s) In Ga Al N H GR(mkm/hr) X z(nm)\n";
  for (std::size_t i = 0; i < history.t.size(); ++i) {
    append_columns(text,
                   {history.t[i], history.c_In[i], history.c_Ga[i], history.c_Al[i], history.c_N[i], history.c_H[i],
                    history.Vg[i] * M_PER_S_TO_MKM_PER_HR, history.x_In[i], history.z[i] * M_TO_NM});
    text += '\n';
  }
  write_text(out, text);
}

void SurfChemNonst::write_point_fluxes() {
  if (reported_species.empty()) return;
  std::string text = "\nMolar fluxes: ";
  for (std::int32_t i : reported_species) text += gas_species[static_cast<std::size_t>(i)].name + ' ';
  text += '\n';
  for (std::int32_t i : reported_species) {
    append_row_format(text, J[static_cast<std::size_t>(i)]);
    text += ' ';
  }
  text += '\n';
  write_text(out, text);
}

}  // namespace vorlen

// The single-point layout of the result file, for growth under one set of conditions: the state, a row with the surface
// concentrations for each accepted step, and the fluxes at the end.
//
// No entry of the library selects it: recipes have no element for it, and SinglePoint::selected stays false. It is kept
// as a defined layout of the result file, for programs that link the model and set SinglePoint themselves. All that
// concerns it is here, except for two lines that look at SinglePoint::selected: write_results, which calls this file,
// and record_step, which then records every step.
#include "results/single_point.h"

#include "model/constants.h"
#include "results/number_format.h"

namespace vorlen {

namespace {

constexpr double M_PER_S_TO_MKM_PER_HR = 3600000000.0;

void append_names(std::string& text, const SurfChemNonst& m) {
  for (std::int32_t i : m.single_point.species) text += m.gas_species[static_cast<std::size_t>(i)].name + ' ';
  text += '\n';
}

void append_state(std::string& text, SurfChemNonst& m) {
  text += "T P delta ";
  append_names(text, m);
  for (double value : {m.T, m.P, m.condition_terms().delta[0]}) {
    append_general(text, value);
    text += ' ';
  }
  for (std::int32_t i : m.single_point.species) {
    append_general(text, m.p[static_cast<std::size_t>(i)]);
    text += ' ';
  }
  text += "\n\n";
}

void append_history(std::string& text, const History& history) {
  text += "t(s) In Ga Al N H GR(mkm/hr) X z(nm)\n";
  for (std::size_t i = 0; i < history.t.size(); ++i) {
    append_columns(text,
                   {history.t[i], history.c_In[i], history.c_Ga[i], history.c_Al[i], history.c_N[i], history.c_H[i],
                    history.Vg[i] * M_PER_S_TO_MKM_PER_HR, history.x_In[i], history.z[i] * M_TO_NM});
    text += '\n';
  }
}

void append_fluxes(std::string& text, const SurfChemNonst& m) {
  if (m.single_point.species.empty()) return;
  text += "\nMolar fluxes: ";
  append_names(text, m);
  for (std::int32_t i : m.single_point.species) {
    append_row_format(text, m.surface.J[static_cast<std::size_t>(i)]);
    text += ' ';
  }
  text += '\n';
}

}  // namespace

void write_single_point(SurfChemNonst& m) {
  std::string text;
  append_state(text, m);
  append_history(text, m.history);
  append_fluxes(text, m);
  m.out.write(text.data(), text.size());
  m.out.close();
}

}  // namespace vorlen

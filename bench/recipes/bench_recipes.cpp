// Contents: parts of a recipe; the recipes.
#include "recipes/bench_recipes.h"

#include <cstdio>

namespace vorlen::bench {

namespace {

// A stage at 40 kPa under nitrogen with TEGa.
struct Stage {
  const char* name;
  double tau;      // s
  double T_begin;  // K
  double T_end;    // K
  double TMIn;     // sccm
  double TEGa = 0.5;
};

enum class Stress { OFF, V_DISLOCATION };

std::string number(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.10g", value);
  return buffer;
}

std::string element(const char* name, double value) {
  return std::string("<") + name + " val=\"" + number(value) + "\"/>\n";
}

std::string range(const char* name, double value, double end) {
  return std::string("<") + name + " val=\"" + number(value) + "\" end=\"" + number(end) + "\"/>\n";
}

std::string head(Stress stress) {
  std::string text = R"(<?xml version="1.0" encoding="UTF-8"?>
<NonstSurfChem>
<material val="InGaN"/>
<chemistry>
<vacancy_model val="vacancy_In"/>
<Kd_In A="1e13" Ta="23200" Tn="0"/>
<K_InN_plus A="5e20" Ta="26700" Tn="0"/>
<Kd_Ga A="1e13" Ta="32500" Tn="0"/>
<K_GaN_plus A="1e18" Ta="22000" Tn="0"/>
<Kd_Al A="1e13" Ta="39500" Tn="0"/>
<K_AlN_plus A="1e18" Ta="22000" Tn="0"/>
<Kd_N2 A="5e20" Ta="19700" Tn="0"/>
<Kd_H2 A="5e20" Ta="13900" Tn="0"/>
</chemistry>
)";
  text += stress == Stress::OFF ? R"(<stress>
<model val="none"/>
</stress>
)"
                                : R"(<stress>
<model val="V_dislocation"/>
<cut_angle val="0.2"/>
<V_angle_05 val="17"/>
<X_ref val="0.1"/>
</stress>
)";
  text += R"(<transport>
<model val="fixed_thickness"/>
</transport>
<pre_stages>
<t0 val="0"/>
<n_pre_stages val="1"/>
<pre_stage_1>
<name val="GaN template"/>
<tau val="3600"/>
<GR_average val="2"/>
<thickness val="2000"/>
<X_In_average val="0"/>
<X_Ga_average val="1"/>
<X_Al_average val="0"/>
<dislocations>
<disl_model val="given"/>
<rho_D val="8e8"/>
</dislocations>
<stress_state val="3.189"/>
</pre_stage_1>
</pre_stages>
<process_stages>
)";
  return text;
}

std::string tail() {
  return R"(</process_stages>
<post_stages>
<n_post_stages val="0"/>
</post_stages>
</NonstSurfChem>
)";
}

std::string flows(double TMIn, double TMGa, double TEGa, double N2, double NH3, double H2) {
  return "<gas_species>\n<Q>\n" + range("TMIn", TMIn, TMIn) + range("TMGa", TMGa, TMGa) + range("TEGa", TEGa, TEGa) +
         range("TMAl", 0, 0) + range("N2", N2, N2) + range("NH3", NH3, NH3) + range("H2", H2, H2) +
         "</Q>\n</gas_species>\n";
}

// The children of a stage, in the order of the reader. Under V_dislocation the template gives the dislocation density.
std::string stage_body(const Stage& s, Stress stress) {
  std::string text = std::string("<name val=\"") + s.name + "\"/>\n" + element("tau", s.tau) +
                     range("T", s.T_begin, s.T_end) + range("P", 40000, 40000);
  if (stress == Stress::OFF) text += "<dislocations>\n<disl_model val=\"inherited\"/>\n</dislocations>\n";
  return text + element("delta", 0.008) + flows(s.TMIn, 0, s.TEGa, 8000, 8000, 0);
}

std::string single(int index, const std::string& body) {
  const std::string tag = "stage_" + std::to_string(index);
  return "<" + tag + ">\n" + body + "</" + tag + ">\n";
}

std::string periodic(int index, int periods, const std::vector<Stage>& stages, Stress stress) {
  const std::string tag = "stage_" + std::to_string(index);
  std::string text = "<" + tag + ">\n<type val=\"periodic\"/>\n" + element("n_periods", periods) +
                     element("n_stages", static_cast<double>(stages.size()));
  for (std::size_t i = 0; i < stages.size(); ++i) {
    const std::string sub = tag + "_" + std::to_string(i + 1);
    text += "<" + sub + ">\n" + stage_body(stages[i], stress) + "</" + sub + ">\n";
  }
  return text + "</" + tag + ">\n";
}

constexpr double T_WELL = 1030.0;
constexpr double T_BARRIER = 1080.0;
constexpr double TMIN_WELL = 0.2;

}  // namespace

std::string multi_quantum_well(int periods) {
  return head(Stress::OFF) + element("n_stages", 3) +
         single(1, stage_body({"spacer", 120, T_BARRIER, T_BARRIER, 0}, Stress::OFF)) +
         single(2, stage_body({"cooling", 20, T_BARRIER, T_WELL, 0}, Stress::OFF)) +
         periodic(3, periods,
                  {{"well", 60, T_WELL, T_WELL, TMIN_WELL},
                   {"heating", 15, T_WELL, T_BARRIER, 0},
                   {"barrier", 120, T_BARRIER, T_BARRIER, 0},
                   {"cooling", 20, T_BARRIER, T_WELL, 0}},
                  Stress::OFF) +
         tail();
}

std::string superlattice(int periods) {
  return head(Stress::OFF) + element("n_stages", 2) +
         single(1, stage_body({"spacer", 60, T_BARRIER, T_BARRIER, 0}, Stress::OFF)) +
         periodic(2, periods,
                  {{"cooling", 10, T_BARRIER, T_WELL, 0},
                   {"well", 30, T_WELL, T_WELL, TMIN_WELL},
                   {"heating", 10, T_WELL, T_BARRIER, 0},
                   {"barrier", 60, T_BARRIER, T_BARRIER, 0}},
                  Stress::OFF) +
         tail();
}

std::string v_defects(double tau_InGaN) {
  const Stress stress = Stress::V_DISLOCATION;
  return head(stress) + element("n_stages", 3) + single(1, stage_body({"spacer", 60, 1060, 1060, 0}, stress)) +
         single(2, stage_body({"cooling", 20, 1060, T_WELL, 0}, stress)) +
         single(3, stage_body({"InGaN", tau_InGaN, T_WELL, T_WELL, TMIN_WELL}, stress)) + tail();
}

std::string single_InGaN(bool relaxes, double T_end) {
  const Stress stress = relaxes ? Stress::V_DISLOCATION : Stress::OFF;
  return head(stress) + element("n_stages", 1) +
         single(1, stage_body({"InGaN", 100, T_WELL, T_end, TMIN_WELL}, stress)) + tail();
}

std::string constant_GaN(double tau) {
  const std::string body = "<name val=\"GaN\"/>\n" + element("tau", tau) + range("T", 1310, 1310) +
                           range("P", 20000, 20000) + "<dislocations>\n<disl_model val=\"inherited\"/>\n" +
                           "</dislocations>\n" + element("delta", 0.005) + flows(0, 2.5, 0, 1000, 5000, 8000);
  return head(Stress::OFF) + element("n_stages", 1) + single(1, body) + tail();
}

std::string strain_free_GaN(int periods) {
  const Stress stress = Stress::V_DISLOCATION;
  return head(stress) + element("n_stages", 2) +
         single(1, stage_body({"spacer", 60, T_BARRIER, T_BARRIER, 0}, stress)) +
         periodic(2, periods, {{"fast", 2, T_BARRIER, T_BARRIER, 0, 0.5}, {"slow", 2, T_BARRIER, T_BARRIER, 0, 0.4}},
                  stress) +
         tail();
}

std::string many_stages(int n_stages) {
  std::string text = head(Stress::OFF) + element("n_stages", n_stages);
  for (int i = 1; i <= n_stages; ++i) {
    text += single(i, i % 2 == 0 ? stage_body({"well", 30, T_WELL, T_WELL, TMIN_WELL}, Stress::OFF)
                                 : stage_body({"barrier", 60, T_BARRIER, T_BARRIER, 0}, Stress::OFF));
  }
  return text + tail();
}

std::vector<NamedRecipe> whole_runs() {
  return {{"multi_quantum_well", multi_quantum_well(5)},
          {"superlattice", superlattice(60)},
          {"v_defects", v_defects(600)},
          {"constant_GaN", constant_GaN(36000)},
          {"strain_free_GaN", strain_free_GaN(60)}};
}

bool write_file(const std::string& path, const std::string& text) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  return std::fclose(file) == 0 && written;
}

}  // namespace vorlen::bench

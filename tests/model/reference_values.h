// The reference values of the growth model, computed independently: tests/data/model/model_vectors.json. Its entry
// "help" says how each value came to be.
//
// A number, or a list of numbers, is an object of "dec" and "bits"; "bits" holds 16 hexadecimal digits for each, and
// "-" for an entry that nothing reads.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "model/model_fixture.h"
#include "support/bits.h"

namespace vorlen_test {

using nlohmann::json;

constexpr const char* REFERENCE_RECIPES[] = {"ingan_v_defects", "algan_gan_mirror_tdr"};

inline const json& reference_values() {
  static const json values = json::parse(std::ifstream(VORLEN_TEST_DATA "/model/model_vectors.json"));
  return values;
}

inline const json& reference_values(const std::string& recipe) { return reference_values().at("recipes").at(recipe); }

// The value of the first key that starts with prefix.
inline const json& starting_with(const json& object, const std::string& prefix) {
  for (const auto& [key, value] : object.items()) {
    if (key.starts_with(prefix)) return value;
  }
  ADD_FAILURE() << "no key " << prefix;
  return object;
}

// The numbers of a node. is_compared is false for an entry that nothing reads.
struct ReferenceNumbers {
  std::vector<double> value;
  std::vector<bool> is_compared;
};

inline ReferenceNumbers reference_numbers(const json& node) {
  ReferenceNumbers numbers;
  std::istringstream words(node.at("bits").get<std::string>());
  for (std::string word; words >> word;) {
    numbers.is_compared.push_back(word != "-");
    numbers.value.push_back(word == "-" ? 0.0 : from_bits(word));
  }
  return numbers;
}

inline std::vector<double> numbers_of(const json& node) { return reference_numbers(node).value; }

inline double number_of(const json& node) { return numbers_of(node).at(0); }

// Where the C library has other last bits than the reference one, this part of the value is granted.
constexpr double REFERENCE_TOLERANCE = 1e-9;

// Compares a list of the same length. scale, where given, holds the size of the terms whose difference each entry is.
inline void expect_reference(const json& node, std::span<const double> actual, const std::string& what,
                             std::span<const double> scale = {}) {
  const ReferenceNumbers expected = reference_numbers(node);
  ASSERT_EQ(expected.value.size(), actual.size()) << what;
  for (std::size_t i = 0; i < actual.size(); ++i) {
    if (!expected.is_compared[i]) continue;
    const bool granted = !scale.empty() && !announced_libm_matches_reference() &&
                         std::fabs(expected.value[i] - actual[i]) <= REFERENCE_TOLERANCE * scale[i];
    if (granted) continue;
    EXPECT_TRUE(same_as_reference(expected.value[i], actual[i], REFERENCE_TOLERANCE)) << what << '[' << i << ']';
  }
}

inline void expect_reference(const json& node, double actual, const std::string& what) {
  expect_reference(node, std::span<const double>(&actual, 1), what);
}

inline std::vector<vorlen::DepthSegment> segments_of(const json& list) {
  std::vector<vorlen::DepthSegment> segments;
  for (const json& node : list) {
    const std::vector<double> s = numbers_of(node);
    segments.push_back({s.at(0), s.at(1), s.at(2)});
  }
  return segments;
}

inline void expect_segments(const json& list, const std::vector<vorlen::DepthSegment>& actual,
                            const std::string& what) {
  ASSERT_EQ(list.size(), actual.size()) << what;
  for (std::size_t i = 0; i < actual.size(); ++i) {
    const double s[] = {actual[i].z_from, actual[i].z_to, actual[i].h_from};
    expect_reference(list[i], s, what + '[' + std::to_string(i) + ']');
  }
}

// Sets or reads a field of the model by its name. Null when the model has none of that name.
inline double* scalar_field(vorlen::SurfChemNonst& m, const std::string& name) {
  const std::pair<const char*, double*> fields[] = {
      {"T", &m.T},
      {"P", &m.P},
      {"rho_D", &m.rho_D},
      {"Q_total", &m.terms.mixtures.last().Q_total},
      {"omega_TDR", &m.omega_TDR},
      {"a_bulk", &m.a_bulk},
      {"eps_xx", &m.eps_xx_last_trial},
      {"t_begin", &m.t_begin},
      {"t_end", &m.t_end},
      {"z_start", &m.z_start},
      {"a_ref", &m.a_ref},
      {"c_ref", &m.c_ref},
      {"rho_TD0", &m.rho_TD0},
      {"V_angle_05", &m.V_angle_05},
      {"sin_V", &m.sin_V},
      {"tan_V", &m.tan_V},
      {"b_burgers", &m.b_burgers},
      {"E_line", &m.E_line},
      {"Q_ref_total", &m.Q_ref_total},
      {"z", &m.z},
      {"h", &m.h},
      {"z_prev", &m.z_prev},
      {"h_prev", &m.h_prev},
      {"z0", &m.z0},
      {"h_z0", &m.h_z0},
      {"rho_TD_z0", &m.rho_TD_z0},
      {"eps_r_z0", &m.eps_r_z0},
      {"rho_VD", &m.rho_VD},
      {"Vg", &m.Vg},
      {"J0", &m.J0},
      {"J1", &m.J1},
      {"J2", &m.J2},
      {"I0", &m.I0},
      {"I1", &m.I1},
      {"J0_0", &m.J0_0},
      {"J0_1", &m.J0_1},
      {"J0_0_z0", &m.J0_0_z0},
      {"J0_1_z0", &m.J0_1_z0},
  };
  for (const auto& [field, pointer] : fields) {
    if (name == field) return pointer;
  }
  return nullptr;
}

// What the model has computed under the present conditions, by its name. Empty when there is nothing of that name.
inline std::vector<double> computed_values(vorlen::SurfChemNonst& m, const std::string& name) {
  const vorlen::ConditionTerms& c = m.condition_terms();
  const vorlen::CompositionTerms& s = composition_of(m);
  auto v_kin = c.v_kin;
  v_kin[vorlen::N2_g] = s.v_kin_N2;
  auto Kd = c.Kd;
  Kd[vorlen::N_a] = s.Kd_N2;
  std::array<double, vorlen::N_GAS> site_gas;
  site_gas.fill(1.0);
  for (auto i : {vorlen::TMIn_g, vorlen::MMIn_g, vorlen::TMInNH3_g, vorlen::In_g}) site_gas[i] = m.surface.free_sites;
  const double site_bulk[] = {m.surface.free_sites, 1.0, 1.0};
  const std::pair<const char*, std::span<const double>> fields[] = {
      {"Q", m.Q},
      {"x", m.terms.mixtures.last().x},
      {"p", m.p},
      {"D", c.D},
      {"delta", c.delta},
      {"v_kin", v_kin},
      {"R_gas", m.surface.R_gas},
      {"J", m.surface.J},
      {"G_gas", c.G_gas},
      {"site_gas", site_gas},
      {"G_bulk", c.G_bulk},
      {"K_eq", c.K_eq},
      {"K_NH3", {&c.K_NH3, 1}},
      {"K_NH3_des", {&s.K_NH3_des, 1}},
      {"N2_mix", {&s.N2_mix, 1}},
      {"Kd", Kd},
      {"R_b", m.surface.R_b},
      {"activity", s.activity},
      {"r", {&m.surface.mismatch, 1}},
      {"site_bulk", site_bulk},
      {"x_b_clip", m.x_b_clip},
  };
  for (const auto& [field, values] : fields) {
    if (name == field) return {values.begin(), values.end()};
  }
  return {};
}

inline std::vector<double>* list_field(vorlen::SurfChemNonst& m, const std::string& name) {
  const std::pair<const char*, std::vector<double>*> fields[] = {
      {"hist_t", &m.history.t},           {"hist_z", &m.history.z},       {"hist_h", &m.history.h},
      {"hist_rho_VD", &m.history.rho_VD}, {"hist_I0", &m.history.I0},     {"hist_I1", &m.history.I1},
      {"hist_J0_0", &m.history.J0_0},     {"hist_J0_1", &m.history.J0_1},
  };
  for (const auto& [field, list] : fields) {
    if (name == field) return list;
  }
  return nullptr;
}

// Compares the fields named by the object's keys; a key that is not a field of the model fails.
inline void expect_fields(const json& object, vorlen::SurfChemNonst& m, const std::string& what,
                          std::span<const double> flux_scale = {}) {
  for (const auto& [key, node] : object.items()) {
    const std::string name = what + ' ' + key;
    if (key == "conditions") {
      expect_fields(node, m, name);
    } else if (key == "stage_index") {
      EXPECT_EQ(node.get<std::uint32_t>(), m.stage_index) << name;
    } else if (const std::vector<double> values = computed_values(m, key); !values.empty()) {
      expect_reference(node, values, name, key == "J" ? flux_scale : std::span<const double>{});
    } else if (const double* value = scalar_field(m, key)) {
      expect_reference(node, *value, name);
    } else {
      ADD_FAILURE() << name << " is not a field of the model";
    }
  }
}

// Sets the fields named by the object's keys.
inline void set_fields(const json& object, vorlen::SurfChemNonst& m) {
  for (const auto& [key, node] : object.items()) {
    if (key == "seg_relax") {
      m.segments.relaxing = segments_of(node);
    } else if (key == "seg_tensile") {
      m.segments.tensile = segments_of(node);
    } else if (std::vector<double>* list = list_field(m, key)) {
      *list = numbers_of(node);
    } else if (double* value = scalar_field(m, key)) {
      *value = number_of(node);
    } else {
      ADD_FAILURE() << key << " is not a field of the model";
    }
  }
}

}  // namespace vorlen_test

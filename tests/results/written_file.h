// A model with a result file and a history set by the test, and the written file parsed.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "results/write_results.h"
#include "strain/small_model.h"
#include "support/recipe_builder.h"

namespace vorlen_test {

inline const std::string COLUMNS =
    "#time(sec) z(nm) Vg xIn xGa xAl rho_TD(t) rho_VD0(t) a_eff(t) eps_xx(t) eps_yy(t) eps_zz(t) eps_yz(t) "
    "rho_TD(z) a_eff(z) eps_xx(z) eps_yy(z) eps_zz(z) eps_yz(z)";
inline const std::string DETAIL_COLUMNS = " sumX In Ga Al N H";
inline const std::string RELAXATION_COLUMNS = " z0(nm) rho_VD K1 h I0 I1 J0_0 J0_1 J0 J1 J2 deltaE E_V_loop r";

// The text in lines, without their ends; a text that does not end with a line's end fails the test.
inline std::vector<std::string> lines_of(const std::string& text) {
  EXPECT_TRUE(text.empty() || text.back() == '\n');
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// The numbers of a row. Every column must have the row format.
inline std::vector<double> numbers_of(const std::string& row) {
  std::vector<double> numbers;
  std::istringstream stream(row);
  for (std::string field; stream >> field;) {
    const std::size_t digits = field.size() - (field[0] == '-' ? 1 : 0);
    EXPECT_EQ(digits, std::string("1.2500000000000000e+002").size()) << field;
    numbers.push_back(std::strtod(field.c_str(), nullptr));
  }
  return numbers;
}

// The parts of a result file.
struct WrittenFile {
  std::string text;
  std::vector<std::string> layers;  // lines between <LAYERS> and </LAYERS>
  std::string heading;
  std::vector<std::string> row_lines;
  std::vector<std::vector<double>> rows;

  explicit WrittenFile(const std::string& path) : text(read_file(path)) {
    const std::vector<std::string> lines = lines_of(text);
    std::size_t i = 2;
    while (i < lines.size() && lines[i] != "</LAYERS>") layers.push_back(lines[i++]);
    if (++i >= lines.size()) {
      ADD_FAILURE() << "no layer block and heading in " << path;
      return;
    }
    EXPECT_EQ(lines[0], "\"VORLEN output file, version 2.0\"");
    EXPECT_EQ(lines[1], "<LAYERS>");
    heading = lines[i++];
    for (; i < lines.size(); ++i) {
      row_lines.push_back(lines[i]);
      rows.push_back(numbers_of(lines[i]));
    }
  }
};

// A model that writes into its own temporary folder.
struct WritingModel {
  TempFolder folder;
  std::string path = folder.path("result.txt");
  std::unique_ptr<vorlen::SurfChemNonst> m;

  explicit WritingModel(const vorlen::ProcessRecipe& recipe) : m(model_of(recipe, path)) {}
  vorlen::SurfChemNonst* operator->() { return m.get(); }
  vorlen::SurfChemNonst& operator*() { return *m; }

  WrittenFile write(bool success = true) {
    write_results(*m, success);
    return WrittenFile(path);
  }
};

// Appends a recorded point with distinct values in every list that the flags of the model ask for.
inline void add_history(vorlen::SurfChemNonst& m, double t, double z, const std::array<double, 3>& x = {0.1, 0.9, 0.0},
                        double h = 0.0, double rho_VD = 0.0) {
  const double i = static_cast<double>(m.history.t.size()) + 1.0;
  m.history.t.push_back(t);
  m.history.z.push_back(z);
  m.history.Vg.push_back(1e-10 * i);
  m.history.x_In.push_back(x[0]);
  m.history.x_Ga.push_back(x[1]);
  m.history.x_Al.push_back(x[2]);
  if (m.detail_output) {
    double value = 100.0 * i;
    for (auto* list : {&m.history.c_In, &m.history.c_Ga, &m.history.c_Al, &m.history.c_N, &m.history.c_H})
      list->push_back(value += 1.0);
  }
  if (m.stress_model != vorlen::STRESS_V_dislocation) return;
  m.history.h.push_back(h);
  m.history.rho_VD.push_back(rho_VD);
  double value = 1000.0 * i;
  for (auto* list : {&m.history.I0, &m.history.I1, &m.history.J0_0, &m.history.J0_1}) list->push_back(value += 1.0);
  if (!m.detail_output) return;
  for (auto* list : {&m.history.K1, &m.history.J0, &m.history.J1, &m.history.J2, &m.history.deltaE, &m.history.E_V_loop,
                     &m.history.r})
    list->push_back(value += 1.0);
}

}  // namespace vorlen_test

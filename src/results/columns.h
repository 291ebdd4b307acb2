// The columns of a result file's table, in the order of the file. This list is their only description: the writer, the
// command-line tool, docs/result-format.md and the Python package all use it.
//
// Every file has the N_RESULT_COLUMNS main columns. With the recipe's element output/detail the columns of the surface
// follow, and under V_dislocation those of the relaxation.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>

namespace vorlen {

struct Column {
  const char* heading;  // in the file
  const char* name;     // identifier in the tool's output and in the Python package
  const char* unit;     // "" if dimensionless
  const char* words;    // in sentences about a value
  const char* meaning;  // one line of documentation
};

// Index of a main column. (t): when this depth was the surface; (z): in the finished structure.
enum class ResultColumn : std::size_t {
  TIME,
  Z,
  RATE,
  X_IN,
  X_GA,
  X_AL,
  RHO_TD_T,
  RHO_VD0_T,
  A_EFF_T,
  EPS_XX_T,
  EPS_YY_T,
  EPS_ZZ_T,
  EPS_YZ_T,
  RHO_TD_Z,
  A_EFF_Z,
  EPS_XX_Z,
  EPS_YY_Z,
  EPS_ZZ_Z,
  EPS_YZ_Z,
};

inline constexpr std::size_t N_RESULT_COLUMNS = 19;
inline constexpr std::array<Column, N_RESULT_COLUMNS> RESULT_COLUMNS = {{
    {"time(sec)", "time", "s", "time", "time of the process"},
    {"z(nm)", "z", "nm", "height", "height above the bottom of the first pre-stage"},
    {"Vg", "rate", "nm/s", "growth rate",
     "growth rate. In rows of pre-stages and post-stages the recipe's `GR_average`, unconverted (um/h)"},
    {"xIn", "x_in", "", "indium fraction", "indium in the solid, as a fraction of all metal"},
    {"xGa", "x_ga", "", "gallium fraction", "gallium in the solid, as a fraction of all metal"},
    {"xAl", "x_al", "", "aluminium fraction", "aluminium in the solid, as a fraction of all metal"},
    {"rho_TD(t)", "rho_td_t", "cm^-2", "threading dislocation density (t)",
     "density of threading dislocations when this depth was the surface"},
    {"rho_VD0(t)", "rho_vd0_t", "cm^-2", "V-defect density (t)",
     "twice the density of V-defects when this depth was the surface"},
    {"a_eff(t)", "a_eff_t", "angstrom", "in-plane lattice constant (t)",
     "in-plane lattice constant when this depth was the surface"},
    {"eps_xx(t)", "eps_xx_t", "", "in-plane strain eps_xx (t)",
     "in-plane strain, positive when stretched, when this depth was the surface"},
    {"eps_yy(t)", "eps_yy_t", "", "in-plane strain eps_yy (t)", "equal to `eps_xx(t)`"},
    {"eps_zz(t)", "eps_zz_t", "", "strain eps_zz (t)",
     "strain along the growth direction when this depth was the surface"},
    {"eps_yz(t)", "eps_yz_t", "", "strain eps_yz (t)", "shear strain, always 0"},
    {"rho_TD(z)", "rho_td_z", "cm^-2", "threading dislocation density (z)",
     "density of threading dislocations in the finished structure"},
    {"a_eff(z)", "a_eff_z", "angstrom", "in-plane lattice constant (z)",
     "in-plane lattice constant in the finished structure"},
    {"eps_xx(z)", "eps_xx_z", "", "in-plane strain eps_xx (z)",
     "in-plane strain, positive when stretched, in the finished structure"},
    {"eps_yy(z)", "eps_yy_z", "", "in-plane strain eps_yy (z)", "equal to `eps_xx(z)`"},
    {"eps_zz(z)", "eps_zz_z", "", "strain eps_zz (z)", "strain along the growth direction in the finished structure"},
    {"eps_yz(z)", "eps_yz_z", "", "strain eps_yz (z)", "shear strain, always 0"},
}};

inline constexpr std::size_t N_SURFACE_COLUMNS = 6;
inline constexpr std::array<Column, N_SURFACE_COLUMNS> SURFACE_COLUMNS = {{
    {"sumX", "x_sum", "", "sum of the fractions", "sum of the three fractions"},
    {"In", "c_in", "kmol/m^2", "surface concentration of indium", "adsorbed indium"},
    {"Ga", "c_ga", "kmol/m^2", "surface concentration of gallium", "adsorbed gallium"},
    {"Al", "c_al", "kmol/m^2", "surface concentration of aluminium", "adsorbed aluminium"},
    {"N", "c_n", "kmol/m^2", "surface concentration of nitrogen", "adsorbed nitrogen"},
    {"H", "c_h", "kmol/m^2", "surface concentration of hydrogen", "adsorbed hydrogen"},
}};

// Energies are those of one V-defect, in units of 1e-10 J.
inline constexpr std::size_t N_RELAXATION_COLUMNS = 14;
inline constexpr std::array<Column, N_RELAXATION_COLUMNS> RELAXATION_COLUMNS = {{
    {"z0(nm)", "z0", "nm", "height of the V-defects",
     "height at which V-defects open; 0 in rows below it, -1 as long as there are none"},
    {"rho_VD", "rho_vd", "m^-2", "V-defect density", "density of V-defects when this depth was the surface"},
    {"K1", "k1", "1e-10 J", "moment K1", "`I1` less its value in the first row"},
    {"h", "h", "nm", "thickness grown in tension", "thickness grown in tension so far"},
    {"I0", "i0", "J/m", "integral I0",
     "integral of the stress that dislocations bend under; 0 once V-defects are open"},
    {"I1", "i1", "1e-10 J", "integral I1", "the same with the thickness as weight; 0 once V-defects are open"},
    {"J0_0", "j0_0", "J", "integral J0_0",
     "integral of the stress of the coherent film with the thickness as weight; 0 once V-defects are open"},
    {"J0_1", "j0_1", "J/m", "integral J0_1", "the same without the weight; 0 once V-defects are open"},
    {"J0", "j0", "1e-10 J", "balance term J0", "balance term of the coherent mismatch"},
    {"J1", "j1", "1e-10 J", "balance term J1", "balance term of the strain that is relieved below z0"},
    {"J2", "j2", "1e-10 J", "balance term J2", "balance term of the dislocations of the V-defects"},
    {"deltaE", "delta_e", "1e-10 J", "energy balance", "balance of V-defects: below 0 more of them lower the energy"},
    {"E_V_loop", "e_v_loop", "1e-10 J", "loop energy", "energy of the dislocation loop around a V-defect"},
    {"r", "r", "", "relative mismatch", "relative lattice mismatch of the surface"},
}};

// "#time(sec) z(nm) ..." without a line end: the columns of a file with or without detail, and of relaxation in it.
std::string result_heading(bool detail, bool relaxes);

// Number of columns of such a file: 19, 25 or 39.
std::size_t column_count(bool detail, bool relaxes);

// The column with that index, counted through the three groups from 0 to 38.
const Column& column_at(std::size_t index);

}  // namespace vorlen

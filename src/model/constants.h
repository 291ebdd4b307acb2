// Physical constants and fixed numbers of the growth model, each with its unit and its source. No recipe changes them.
//
// In order: mathematics and units, gas constants, gas transport, kinetics of the surface, the solid, dislocations,
// V-defects. Data of species are in recipe/species_data.cpp; numbers that belong to one algorithm are next to it.
#pragma once

#include "recipe/species_data.h"

namespace vorlen {

// ---- Mathematics and units
inline constexpr double PI = 3.141592653589793;
inline constexpr double NM = 1e-9;            // m
inline constexpr double M_TO_NM = 1e9;        // of a length: m to nm
inline constexpr double ANGSTROM = 1e-10;     // m
inline constexpr double GPA = 1e9;            // Pa
inline constexpr double CM2_TO_M2 = 10000.0;  // of a density: cm^-2 to m^-2
inline constexpr double M2_TO_CM2 = 0.0001;   // of a density: m^-2 to cm^-2

// ---- Gas constant. Three groups of formulas use different roundings of 8314.46 J/(kmol K), and results are
// reproducible only with all of them. The largest effect of the difference is 6e-5 of an exponent (docs/physics.md,
// section 11).
inline constexpr double R_TRANSPORT = 8314.0;            // J/(kmol K); diffusion resistance, Hertz-Knudsen flux, layers
inline constexpr double R_EQUILIBRIUM = 8314.0 * 0.001;  // J/(mol K); equilibrium constants, since G is in J/mol
inline constexpr double R_ACTIVITY = 8314.47;            // J/(kmol K); activities, since their energies are in J/kmol

// ---- Gas transport (docs/physics.md, section 3)
// Chapman-Enskog factor for D in m^2/s with p in Pa, sigma in angstrom and molar masses in kg/kmol. It is the 0.002628
// of Hirschfelder, Curtiss and Bird, Molecular Theory of Gases and Liquids, for cm^2/s and atm, with 1e5 Pa for 1 atm.
inline constexpr double CHAPMAN_ENSKOG = 0.02628;

// ---- Kinetics of the surface (docs/physics.md, section 4)
// Factor 2 pi R of the Hertz-Knudsen factor 1 / sqrt(2 pi M R T), J/(kmol K).
inline constexpr double HERTZ_KNUDSEN = (2.0 * PI) * R_TRANSPORT;
// Saturation of c_a[In_a] under vacancy_In, kmol/m^2. Value of this model; GaN(0001) has 1.885e-8 sites.
inline constexpr double C_IN_MAX = 1.901e-08;
// Least mole fraction of a gallium precursor that acts on the surface (docs/physics.md, section 2). Value of this
// model.
inline constexpr double GALLIUM_FLOOR = 5e-08;
// Reference pressure of the equilibrium constants. The free energies are for 1 atm; docs/physics.md, section 4, gives
// the effect of the difference.
inline constexpr double PA_PER_BAR = 100000.0;
inline constexpr double BAR_PER_PA = 1e-05;

// Evaporation coefficient of nitrogen over each nitride, N2_MIX_A exp(-N2_MIX_T/T). In the order of BulkSpecies.
// Values of this model.
inline constexpr double N2_MIX_A[] = {1.0, 0.0002811, 260000000.0};
inline constexpr double N2_MIX_T[] = {20000.0, 23650.0, 64746.0};  // K

// ---- The solid (docs/physics.md, section 5)
// Interaction parameters of the regular solution, J/kmol. Values of this model; section 5 compares that of InGaN with
// I. Ho, G. B. Stringfellow, Applied Physics Letters 69, 2701 (1996).
inline constexpr double W_InGa = 25700000.0;
inline constexpr double W_InAl = 90000000.0;
inline constexpr double W_GaAl = 5610000.0;
// Avogadro's constant to the digits that the model uses, 1/kmol.
inline constexpr double AVOGADRO = 6.02214e+26;

// ---- Dislocations (docs/physics.md, sections 7 and 8). Values of this model.
inline constexpr double BURGERS_ANGSTROM = A_GaN;            // length of the Burgers vector, a of GaN, angstrom
inline constexpr double BURGERS = BURGERS_ANGSTROM * 1e-10;  // m
inline constexpr double L_TD = 2.0 * 1.55e-8;                // length of the reaction law of dislocations, m
inline constexpr double INV_L_TD = 1.0 / L_TD;               // 1/m
inline constexpr double RHO_MIN = 1e-5;                      // m^-2; a smaller density counts as zero
inline constexpr double TENSION_THRESHOLD = 0.0001;          // strain above which thickness counts as grown in tension
inline constexpr double POISSON_RATIO = 0.243;
inline constexpr double LOOP_FACTOR = 1.08521;  // line energy of the loop around a V-defect over that of a dislocation

// ---- V-defects (docs/physics.md, section 8). Values of this model.
// Smallest depth of z0 below the surface, m: three Burgers vectors.
inline constexpr double CANDIDATE_DEPTH = 3e-10 * BURGERS_ANGSTROM;
inline constexpr double RHO_VD_MAX = 1e17;     // upper limit of the density of V-defects, m^-2
inline constexpr double BALANCE_ZERO = 1e-40;  // an energy balance of this size is zero, J
inline constexpr double Z0_FOUND = -1e-20;     // z0 above this: V-defects have opened

}  // namespace vorlen

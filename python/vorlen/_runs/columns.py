# Written by write_recipe_files from src/results/columns.h: change it there.
"""The columns of a result file."""

from typing import NamedTuple


class Column(NamedTuple):
    heading: str  # in the file
    name: str  # of the column of a data frame
    unit: str  # "1" if dimensionless
    words: str  # in messages
    meaning: str


RESULT_COLUMNS = (
    Column("time(sec)", "time", "s", "time", "time of the process"),
    Column("z(nm)", "z", "nm", "height", "height above the bottom of the first pre-stage"),
    Column("Vg", "rate", "nm/s", "growth rate", "growth rate. In rows of pre-stages and post-stages the recipe's GR_average, unconverted (um/h)"),
    Column("xIn", "x_in", "1", "indium fraction", "indium in the solid, as a fraction of all metal"),
    Column("xGa", "x_ga", "1", "gallium fraction", "gallium in the solid, as a fraction of all metal"),
    Column("xAl", "x_al", "1", "aluminium fraction", "aluminium in the solid, as a fraction of all metal"),
    Column("rho_TD(t)", "rho_td_t", "cm^-2", "threading dislocation density (t)", "density of threading dislocations when this depth was the surface"),
    Column("rho_VD0(t)", "rho_vd0_t", "cm^-2", "V-defect density (t)", "twice the density of V-defects when this depth was the surface"),
    Column("a_eff(t)", "a_eff_t", "angstrom", "in-plane lattice constant (t)", "in-plane lattice constant when this depth was the surface"),
    Column("eps_xx(t)", "eps_xx_t", "1", "in-plane strain eps_xx (t)", "in-plane strain, positive when stretched, when this depth was the surface"),
    Column("eps_yy(t)", "eps_yy_t", "1", "in-plane strain eps_yy (t)", "equal to eps_xx(t)"),
    Column("eps_zz(t)", "eps_zz_t", "1", "strain eps_zz (t)", "strain along the growth direction when this depth was the surface"),
    Column("eps_yz(t)", "eps_yz_t", "1", "strain eps_yz (t)", "shear strain, always 0"),
    Column("rho_TD(z)", "rho_td_z", "cm^-2", "threading dislocation density (z)", "density of threading dislocations in the finished structure"),
    Column("a_eff(z)", "a_eff_z", "angstrom", "in-plane lattice constant (z)", "in-plane lattice constant in the finished structure"),
    Column("eps_xx(z)", "eps_xx_z", "1", "in-plane strain eps_xx (z)", "in-plane strain, positive when stretched, in the finished structure"),
    Column("eps_yy(z)", "eps_yy_z", "1", "in-plane strain eps_yy (z)", "equal to eps_xx(z)"),
    Column("eps_zz(z)", "eps_zz_z", "1", "strain eps_zz (z)", "strain along the growth direction in the finished structure"),
    Column("eps_yz(z)", "eps_yz_z", "1", "strain eps_yz (z)", "shear strain, always 0"),
)


SURFACE_COLUMNS = (
    Column("sumX", "x_sum", "1", "sum of the fractions", "sum of the three fractions"),
    Column("In", "c_in", "kmol/m^2", "surface concentration of indium", "adsorbed indium"),
    Column("Ga", "c_ga", "kmol/m^2", "surface concentration of gallium", "adsorbed gallium"),
    Column("Al", "c_al", "kmol/m^2", "surface concentration of aluminium", "adsorbed aluminium"),
    Column("N", "c_n", "kmol/m^2", "surface concentration of nitrogen", "adsorbed nitrogen"),
    Column("H", "c_h", "kmol/m^2", "surface concentration of hydrogen", "adsorbed hydrogen"),
)


RELAXATION_COLUMNS = (
    Column("z0(nm)", "z0", "nm", "height of the V-defects", "height at which V-defects open; 0 in rows below it, -1 as long as there are none"),
    Column("rho_VD", "rho_vd", "m^-2", "V-defect density", "density of V-defects when this depth was the surface"),
    Column("K1", "k1", "1e-10 J", "moment K1", "I1 less its value in the first row"),
    Column("h", "h", "nm", "thickness grown in tension", "thickness grown in tension so far"),
    Column("I0", "i0", "J/m", "integral I0", "integral of the stress that dislocations bend under; 0 once V-defects are open"),
    Column("I1", "i1", "1e-10 J", "integral I1", "the same with the thickness as weight; 0 once V-defects are open"),
    Column("J0_0", "j0_0", "J", "integral J0_0", "integral of the stress of the coherent film with the thickness as weight; 0 once V-defects are open"),
    Column("J0_1", "j0_1", "J/m", "integral J0_1", "the same without the weight; 0 once V-defects are open"),
    Column("J0", "j0", "1e-10 J", "balance term J0", "balance term of the coherent mismatch"),
    Column("J1", "j1", "1e-10 J", "balance term J1", "balance term of the strain that is relieved below z0"),
    Column("J2", "j2", "1e-10 J", "balance term J2", "balance term of the dislocations of the V-defects; under continuous at the density before the step"),
    Column("deltaE", "delta_e", "1e-10 J", "energy balance", "balance of V-defects: below 0 more of them lower the energy"),
    Column("E_V_loop", "e_v_loop", "1e-10 J", "loop energy", "energy of the dislocation loop around a V-defect"),
    Column("r", "r", "1", "relative mismatch", "relative lattice mismatch of the surface"),
)

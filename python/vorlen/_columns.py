"""The columns of a result file. Written by write_recipe_files from src/results/columns.h: change them there.

Each column: heading in the file, name, unit ("1" if dimensionless), words for messages, meaning.
"""

RESULT_COLUMNS = (
    ("time(sec)", "time", "s", "time", "time of the process"),
    ("z(nm)", "z", "nm", "height", "height above the bottom of the first pre-stage"),
    ("Vg", "rate", "nm/s", "growth rate", "growth rate. In rows of pre-stages and post-stages the recipe's GR_average, unconverted (um/h)"),
    ("xIn", "x_in", "1", "indium fraction", "indium in the solid, as a fraction of all metal"),
    ("xGa", "x_ga", "1", "gallium fraction", "gallium in the solid, as a fraction of all metal"),
    ("xAl", "x_al", "1", "aluminium fraction", "aluminium in the solid, as a fraction of all metal"),
    ("rho_TD(t)", "rho_td_t", "cm^-2", "threading dislocation density (t)", "density of threading dislocations when this depth was the surface"),
    ("rho_VD0(t)", "rho_vd0_t", "cm^-2", "V-defect density (t)", "twice the density of V-defects when this depth was the surface"),
    ("a_eff(t)", "a_eff_t", "angstrom", "in-plane lattice constant (t)", "in-plane lattice constant when this depth was the surface"),
    ("eps_xx(t)", "eps_xx_t", "1", "in-plane strain eps_xx (t)", "in-plane strain, positive when stretched, when this depth was the surface"),
    ("eps_yy(t)", "eps_yy_t", "1", "in-plane strain eps_yy (t)", "equal to eps_xx(t)"),
    ("eps_zz(t)", "eps_zz_t", "1", "strain eps_zz (t)", "strain along the growth direction when this depth was the surface"),
    ("eps_yz(t)", "eps_yz_t", "1", "strain eps_yz (t)", "shear strain, always 0"),
    ("rho_TD(z)", "rho_td_z", "cm^-2", "threading dislocation density (z)", "density of threading dislocations in the finished structure"),
    ("a_eff(z)", "a_eff_z", "angstrom", "in-plane lattice constant (z)", "in-plane lattice constant in the finished structure"),
    ("eps_xx(z)", "eps_xx_z", "1", "in-plane strain eps_xx (z)", "in-plane strain, positive when stretched, in the finished structure"),
    ("eps_yy(z)", "eps_yy_z", "1", "in-plane strain eps_yy (z)", "equal to eps_xx(z)"),
    ("eps_zz(z)", "eps_zz_z", "1", "strain eps_zz (z)", "strain along the growth direction in the finished structure"),
    ("eps_yz(z)", "eps_yz_z", "1", "strain eps_yz (z)", "shear strain, always 0"),
)

SURFACE_COLUMNS = (
    ("sumX", "x_sum", "1", "sum of the fractions", "sum of the three fractions"),
    ("In", "c_in", "kmol/m^2", "surface concentration of indium", "adsorbed indium"),
    ("Ga", "c_ga", "kmol/m^2", "surface concentration of gallium", "adsorbed gallium"),
    ("Al", "c_al", "kmol/m^2", "surface concentration of aluminium", "adsorbed aluminium"),
    ("N", "c_n", "kmol/m^2", "surface concentration of nitrogen", "adsorbed nitrogen"),
    ("H", "c_h", "kmol/m^2", "surface concentration of hydrogen", "adsorbed hydrogen"),
)

RELAXATION_COLUMNS = (
    ("z0(nm)", "z0", "nm", "height of the V-defects", "height at which V-defects open; 0 in rows below it, -1 as long as there are none"),
    ("rho_VD", "rho_vd", "m^-2", "V-defect density", "density of V-defects when this depth was the surface"),
    ("K1", "k1", "1e-10 J", "moment K1", "I1 less its value in the first row"),
    ("h", "h", "nm", "thickness grown in tension", "thickness grown in tension so far"),
    ("I0", "i0", "J/m", "integral I0", "integral of the stress that dislocations bend under; 0 once V-defects are open"),
    ("I1", "i1", "1e-10 J", "integral I1", "the same with the thickness as weight; 0 once V-defects are open"),
    ("J0_0", "j0_0", "J", "integral J0_0", "integral of the stress of the coherent film with the thickness as weight; 0 once V-defects are open"),
    ("J0_1", "j0_1", "J/m", "integral J0_1", "the same without the weight; 0 once V-defects are open"),
    ("J0", "j0", "1e-10 J", "balance term J0", "balance term of the coherent mismatch"),
    ("J1", "j1", "1e-10 J", "balance term J1", "balance term of the strain that is relieved below z0"),
    ("J2", "j2", "1e-10 J", "balance term J2", "balance term of the dislocations of the V-defects"),
    ("deltaE", "delta_e", "1e-10 J", "energy balance", "balance of V-defects: below 0 more of them lower the energy"),
    ("E_V_loop", "e_v_loop", "1e-10 J", "loop energy", "energy of the dislocation loop around a V-defect"),
    ("r", "r", "1", "relative mismatch", "relative lattice mismatch of the surface"),
)

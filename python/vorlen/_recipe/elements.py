# Written by write_recipe_files from src/recipe/recipe_table.cpp: change it there.
"""The elements of a recipe."""

from typing import NamedTuple


class Element(NamedTuple):
    path: str  # below the root; # is the number of a stage, N_# the numbers of a periodic stage and its sub-stage
    kind: str  # container, stages, text, keyword, integer, real, range or arrhenius
    unit: str  # "" if dimensionless or without a number
    attributes: tuple[str, ...]
    optional: bool
    default: str  # of an optional value
    keywords: tuple[str, ...]
    allowed: str  # in words
    meaning: str


ROOT = "NonstSurfChem"

ELEMENTS = (
    Element("material", "keyword", "", ("val",), False, "", ("InGaN", "AlGaN", "AlInN", "AlInGaN"), "InGaN, AlGaN, AlInN, AlInGaN", "names the alloy. All three metals are carried in every run, so the flows decide what grows"),
    Element("chemistry", "container", "", (), False, "", (), "", "kinetic constants"),
    Element("chemistry/vacancy_model", "keyword", "", ("val",), False, "", ("vacancy_In", "vacancy_none"), "vacancy_In, vacancy_none", "vacancy_In: indium on the surface blocks sites for indium; vacancy_none: no blocking"),
    Element("chemistry/Kd_In", "arrhenius", "1/s, K, 1", ("A", "Ta", "Tn"), False, "", (), "any", "desorption of indium"),
    Element("chemistry/K_InN_plus", "arrhenius", "m²/(kmol s), K, 1", ("A", "Ta", "Tn"), False, "", (), "any", "incorporation of InN"),
    Element("chemistry/Kd_Ga", "arrhenius", "1/s, K, 1", ("A", "Ta", "Tn"), False, "", (), "any", "desorption of gallium"),
    Element("chemistry/K_GaN_plus", "arrhenius", "m²/(kmol s), K, 1", ("A", "Ta", "Tn"), False, "", (), "any", "incorporation of GaN"),
    Element("chemistry/Kd_Al", "arrhenius", "1/s, K, 1", ("A", "Ta", "Tn"), False, "", (), "any", "desorption of aluminium"),
    Element("chemistry/K_AlN_plus", "arrhenius", "m²/(kmol s), K, 1", ("A", "Ta", "Tn"), False, "", (), "any", "incorporation of AlN"),
    Element("chemistry/Kd_N2", "arrhenius", "m²/(kmol s), K, 1", ("A", "Ta", "Tn"), False, "", (), "any", "desorption of nitrogen as N2"),
    Element("chemistry/Kd_H2", "arrhenius", "m²/(kmol s), K, 1", ("A", "Ta", "Tn"), False, "", (), "any", "desorption of hydrogen as H2"),
    Element("stress", "container", "", (), False, "", (), "", "strain and its relaxation"),
    Element("stress/model", "keyword", "", ("val",), False, "", ("V_dislocation",), "V_dislocation, or any other text", "V_dislocation: strain, relaxation by inclined dislocations, V-defects. Any other text (none, relax, ...) is accepted without a message as \"no relaxation\": the layers grow on the lattice of the last pre-stage"),
    Element("stress/cut_angle", "real", "", ("val",), False, "", (), "any", "cut angle of the substrate. Required, but no equation uses it"),
    Element("stress/V_angle_05", "real", "degree", ("val",), False, "", (), "above 0 and below 89.99", "inclination of the dislocations"),
    Element("stress/X_ref", "real", "fraction", ("val",), False, "", (), "0 to 1", "indium fraction at which the shear modulus is evaluated"),
    Element("transport", "container", "", (), False, "", (), "", "transport of the gases to the surface"),
    Element("transport/model", "keyword", "", ("val",), False, "", ("fixed_thickness", "thick_GaN", "InGaN_GR_X", "InGaN_GR"), "fixed_thickness, thick_GaN, InGaN_GR_X, InGaN_GR", "how the thickness of the diffusion layer above the surface is found"),
    Element("transport/parameters", "container", "", (), False, "", (), "", "the reference conditions"),
    Element("transport/parameters/reactor", "keyword", "", ("val",), False, "", ("CCS", "TDR", "HFR"), "CCS, TDR, HFR", "close-coupled showerhead, turbo-disc, horizontal reactor"),
    Element("transport/parameters/GR_ref", "real", "nm/s", ("val",), False, "", (), "at least 1e-10", "known growth rate of GaN at the reference conditions"),
    Element("transport/parameters/P_ref", "real", "Pa", ("val",), False, "", (), "not 0", "reference pressure"),
    Element("transport/parameters/T_ref", "real", "K", ("val",), False, "", (), "not 0", "reference temperature"),
    Element("transport/parameters/omega_TDR_ref", "real", "rpm", ("val",), False, "", (), "not 0", "reference rotation rate"),
    Element("transport/parameters/Q_ref", "container", "", (), False, "", (), "", "the reference flows; their sum must be at least 1e-10 sccm"),
    Element("transport/parameters/Q_ref/N2", "real", "sccm", ("val",), False, "", (), "any", "reference flow of N2"),
    Element("transport/parameters/Q_ref/H2", "real", "sccm", ("val",), False, "", (), "any", "reference flow of H2"),
    Element("transport/parameters/Q_ref/NH3", "real", "sccm", ("val",), False, "", (), "any", "reference flow of NH3"),
    Element("transport/parameters/Q_ref/TMGa", "real", "sccm", ("val",), False, "", (), "at least 1e-10", "reference flow of TMGa"),
    Element("pre_stages", "container", "", (), False, "", (), "", "the layers below; required even if there are none"),
    Element("pre_stages/t0", "real", "s", ("val",), False, "", (), "at least 0", "start of the process"),
    Element("pre_stages/n_pre_stages", "integer", "", ("val",), False, "", (), "0 to 9999", "number of pre-stages"),
    Element("pre_stages/pre_stage_#", "stages", "", (), False, "", (), "", "pre_stage_1 to the number"),
    Element("pre_stages/pre_stage_#/name", "text", "", ("val",), False, "", (), "any text, also empty", "name of the layer in the result file"),
    Element("pre_stages/pre_stage_#/tau", "real", "s", ("val",), False, "", (), "at least 1e-4", "duration"),
    Element("pre_stages/pre_stage_#/GR_average", "real", "µm/h", ("val",), False, "", (), "at least 0", "growth rate; only printed"),
    Element("pre_stages/pre_stage_#/thickness", "real", "nm", ("val",), False, "", (), "at least 1e-4", "thickness of the layer"),
    Element("pre_stages/pre_stage_#/X_In_average", "real", "fraction", ("val",), False, "", (), "0 to 1", "indium fraction"),
    Element("pre_stages/pre_stage_#/X_Ga_average", "real", "fraction", ("val",), False, "", (), "0 to 1", "gallium fraction"),
    Element("pre_stages/pre_stage_#/X_Al_average", "real", "fraction", ("val",), False, "", (), "0 to 1", "aluminium fraction; the three must add up to 0.9999 to 1.0001"),
    Element("pre_stages/pre_stage_#/dislocations", "container", "", (), False, "", (), "", "dislocation density of the layer"),
    Element("pre_stages/pre_stage_#/dislocations/disl_model", "keyword", "", ("val",), False, "", ("given", "inherited"), "given, inherited", "inherited: the density of the layer below. Not in pre_stage_1"),
    Element("pre_stages/pre_stage_#/dislocations/rho_D", "real", "cm⁻²", ("val",), False, "", (), "at least 1000", "dislocation density"),
    Element("pre_stages/pre_stage_#/stress_state", "real", "", ("val",), False, "", (), "at least 0", "below 1.0000000001: degree of relaxation, 0 keeps the lattice of the layer below, 1 gives the layer its own. From 1.0000000001 up: the in-plane lattice constant itself, in angstrom"),
    Element("process_stages", "container", "", (), False, "", (), "", "the stages that are simulated"),
    Element("process_stages/n_stages", "integer", "", ("val",), False, "", (), "1 to 9999", "number of active stages, a periodic one counting once"),
    Element("process_stages/stage_#", "stages", "", (), False, "", (), "", "stage_1 to the number"),
    Element("process_stages/stage_#/type", "keyword", "", ("val",), True, "single", ("single", "periodic"), "single, periodic", "a periodic stage has other children, see below"),
    Element("process_stages/stage_#/name", "text", "", ("val",), False, "", (), "any text, also empty", "name of the layer in the result file"),
    Element("process_stages/stage_#/tau", "real", "s", ("val",), False, "", (), "at least 1e-4", "duration"),
    Element("process_stages/stage_#/T", "range", "K", ("val", "end"), False, "", (), "at least 1e-4", "temperature of the surface"),
    Element("process_stages/stage_#/P", "range", "Pa", ("val", "end"), False, "", (), "at least 1", "pressure"),
    Element("process_stages/stage_#/dislocations", "container", "", (), False, "", (), "", "dislocation density of the layer"),
    Element("process_stages/stage_#/dislocations/disl_model", "keyword", "", ("val",), False, "", ("given", "inherited"), "given, inherited", "inherited: the density at the end of the previous stage; in the first stage, that of the last pre-stage, which must then exist"),
    Element("process_stages/stage_#/dislocations/rho_D", "range", "cm⁻²", ("val", "end"), False, "", (), "at least 1000", "dislocation density"),
    Element("process_stages/stage_#/delta", "real", "m", ("val",), False, "", (), "at least 1e-6", "thickness of the diffusion layer, the same for all species; 0.005 to 0.008 is usual"),
    Element("process_stages/stage_#/omega_TDR", "range", "rpm", ("val", "end"), False, "", (), "at least 1", "rotation rate"),
    Element("process_stages/stage_#/GR_average", "real", "nm/s", ("val",), False, "", (), "at least 1e-5", "prescribed growth rate; acts as nm/s, whatever the text of the message says"),
    Element("process_stages/stage_#/XIn_average", "real", "fraction", ("val",), False, "", (), "1e-10 to 0.99999", "prescribed indium fraction"),
    Element("process_stages/stage_#/XAl_average", "real", "fraction", ("val",), False, "", (), "1e-10 to 0.99999", "prescribed aluminium fraction; at least 1e-10, also in InGaN"),
    Element("process_stages/stage_#/gas_species", "container", "", (), False, "", (), "", "the gases"),
    Element("process_stages/stage_#/gas_species/Q", "container", "", (), False, "", (), "", "the flows"),
    Element("process_stages/stage_#/gas_species/Q/TMIn", "range", "sccm", ("val", "end"), False, "", (), "at least 0", "flow of trimethylindium"),
    Element("process_stages/stage_#/gas_species/Q/TMGa", "range", "sccm", ("val", "end"), False, "", (), "at least 0", "flow of trimethylgallium"),
    Element("process_stages/stage_#/gas_species/Q/TEGa", "range", "sccm", ("val", "end"), False, "", (), "at least 0", "flow of triethylgallium"),
    Element("process_stages/stage_#/gas_species/Q/TMAl", "range", "sccm", ("val", "end"), False, "", (), "at least 0", "flow of trimethylaluminium"),
    Element("process_stages/stage_#/gas_species/Q/N2", "range", "sccm", ("val", "end"), False, "", (), "at least 0", "flow of nitrogen"),
    Element("process_stages/stage_#/gas_species/Q/NH3", "range", "sccm", ("val", "end"), False, "", (), "at least 0", "flow of ammonia"),
    Element("process_stages/stage_#/gas_species/Q/H2", "range", "sccm", ("val", "end"), False, "", (), "at least 0", "flow of hydrogen"),
    Element("process_stages/stage_#/n_periods", "integer", "", ("val",), False, "", (), "above 0", "how often the sequence is grown"),
    Element("process_stages/stage_#/n_stages", "integer", "", ("val",), False, "", (), "1 to 9999", "number of sub-stages"),
    Element("process_stages/stage_#/stage_N_#", "stages", "", (), False, "", (), "", "single stages with the children of the table above"),
    Element("post_stages", "container", "", (), False, "", (), "", "the layers above; required even if there are none"),
    Element("post_stages/n_post_stages", "integer", "", ("val",), False, "", (), "0 to 9999", "number of post-stages"),
    Element("post_stages/post_stage_#", "stages", "", (), False, "", (), "", "post_stage_1 to the number"),
    Element("post_stages/post_stage_#/name", "text", "", ("val",), False, "", (), "any text, also empty", "name of the layer in the result file"),
    Element("post_stages/post_stage_#/tau", "real", "s", ("val",), False, "", (), "at least 1e-4", "duration"),
    Element("post_stages/post_stage_#/GR_average", "real", "µm/h", ("val",), False, "", (), "at least 0", "growth rate; only printed"),
    Element("post_stages/post_stage_#/thickness", "real", "nm", ("val",), False, "", (), "at least 1e-4", "thickness of the layer"),
    Element("post_stages/post_stage_#/X_In_average", "real", "fraction", ("val",), False, "", (), "0 to 1", "indium fraction"),
    Element("post_stages/post_stage_#/X_Ga_average", "real", "fraction", ("val",), False, "", (), "0 to 1", "gallium fraction"),
    Element("post_stages/post_stage_#/X_Al_average", "real", "fraction", ("val",), False, "", (), "0 to 1", "aluminium fraction; the three must add up to 0.9999 to 1.0001"),
    Element("post_stages/post_stage_#/dislocations", "container", "", (), False, "", (), "", "dislocation density of the layer"),
    Element("post_stages/post_stage_#/dislocations/disl_model", "keyword", "", ("val",), False, "", ("given", "inherited"), "given, inherited", "inherited: the density of the layer below. Not in pre_stage_1"),
    Element("post_stages/post_stage_#/dislocations/rho_D", "real", "cm⁻²", ("val",), False, "", (), "at least 1000", "dislocation density"),
    Element("post_stages/post_stage_#/stress_state", "real", "", ("val",), False, "", (), "at least 0", "below 1.0000000001: degree of relaxation, 0 keeps the lattice of the layer below, 1 gives the layer its own. From 1.0000000001 up: the in-plane lattice constant itself, in angstrom"),
    Element("integration", "container", "", (), True, "", (), "", "how the process is integrated in time"),
    Element("integration/scheme", "keyword", "", ("val",), True, "continuous", ("continuous", "staged"), "continuous, staged", "staged: stage by stage, recommended; continuous: in one sweep over all stages"),
    Element("integration/tolerance", "real", "", ("val",), True, "1e-6", (), "1e-10 to 1e-3", "relative tolerance of the scheme staged; no effect with continuous"),
    Element("output", "container", "", (), True, "", (), "", "what the result file contains"),
    Element("output/detail", "keyword", "", ("val",), True, "false", ("true", "false"), "true, false", "true: further columns in the result file"),
)

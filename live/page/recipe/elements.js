// What is known about the elements of a recipe. The page carries the table from which the library's reader works.

let known = new Map();

// list: entries {path, kind, unit, attributes, keywords, allowed, meaning}; see python/vorlen/_recipe/elements.py
export function loadElements(list) {
  known = new Map(list.map(entry => [entry.path, entry]));
}

// The entry of an element at a path; undefined for an element that the library does not read. A sub-stage of a periodic
// stage has the elements of a stage.
export function knownElement(path) {
  return known.get(path.replace(/\/stage_\d+_\d+(?=\/)/, "").replace(/((?:^|\/)(?:pre_|post_)?stage_)\d+(?=\/|$)/, "$1#"));
}

// Labels of what is used most; other elements are called by their name.
const LABELS = {
  tau: "Duration", T: "Temperature", P: "Pressure", thickness: "Thickness", delta: "Diffusion layer",
  GR_average: "Growth rate", X_In_average: "Indium", X_Ga_average: "Gallium", X_Al_average: "Aluminium",
  XIn_average: "Indium, prescribed", XAl_average: "Aluminium, prescribed", rho_D: "Dislocations",
  disl_model: "Dislocations are", stress_state: "Relaxation or lattice", omega_TDR: "Rotation", name: "Name",
  n_periods: "Periods",
};

export function labelOf(tag) {
  return LABELS[tag] ?? tag;
}

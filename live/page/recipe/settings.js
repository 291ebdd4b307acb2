// Models and constants of the recipe: everything outside of stages.
import {button, el} from "./dom.js";
import {namesScheme} from "./scheme.js";
import {valueRow, valuesIn} from "./stage_panel.js";

const SECTIONS = {
  material: "Material", stress: "Stress", transport: "Transport", chemistry: "Kinetic constants A · exp(−Ta/T) · Tᵀⁿ",
  integration: "Integration", output: "Output",
};

export function settingsShape(p) {
  return JSON.stringify([namesScheme(p.model.root), sections(p).map(([, values]) => values.map(value => value.path))]);
}

function sections(p) {
  const found = Object.keys(SECTIONS).map(path => [path, p.model.root.children.some(child => child.tag === path)
    ? valuesIn(p.model.root, path) : []]);
  const start = valuesIn(p.model.root, "").filter(value => value.path === "pre_stages/t0");
  return [...found, ["process", start]].filter(([, values]) => values.length);
}

// {node, fields}
export function settings(p) {
  const fields = [];
  const groups = sections(p).map(([path, values]) => {
    const title = SECTIONS[path] ?? "Start of the process";
    return el("div", {class: "values", role: "group", "aria-label": title}, el("h3", {}, title), values.map(value => {
      const row = valueRow(p, value, title);
      fields.push(...row.fields);
      return row.node;
    }));
  });
  const scheme = namesScheme(p.model.root) ? null : el("p", {class: "scheme"}, "The recipe names no integration scheme: continuous is used. ",
    button("Choose the scheme staged", p.actions.chooseStaged, {class: "small"}));
  const node = el("details", {class: "settings", open: p.settingsOpen, ontoggle: () => { p.settingsOpen = node.open; }},
    el("summary", {}, "Models and constants"), groups, scheme);
  return {node, fields};
}

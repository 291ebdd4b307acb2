// The controls of the pane: axis, zoom, panels, keeping, the variant that the table is compared with, and files to save.
import { KEPT_MAX } from "./palette.js";
import { PANELS } from "./panels.js";
import { htmlElement } from "./svg.js";

const AXES = [["height", "Over depth"], ["time", "Over time"]];
const ZOOMS = [["whole", "Whole run"], ["thin", "Thin layers"]];
const FILES = [["result", "Result file"], ["layers", "Layers as CSV"], ["rows", "Rows as CSV"], ["charts", "Charts as SVG"], ["stack", "Stack as SVG"]];

export function createControls(node, { onChange, onKeep, onZoom, onAxis, onSave }) {
  const box = htmlElement("div", { class: "growth-controls no-print" }, node);
  let axis = "height";
  const axes = buttons("Axis", AXES, (name) => { axis = name; mark(axes, name); onAxis(name); });
  mark(axes, axis);
  const zooms = buttons("Zoom", ZOOMS, onZoom);
  const keep = htmlElement("button", { type: "button", class: "keep" }, box, "Keep this");
  keep.addEventListener("click", onKeep);
  const list = htmlElement("details", { class: "panels" }, box);
  htmlElement("summary", {}, list, "Panels");
  const group = htmlElement("div", { role: "group", "aria-label": "Panels" }, list);
  const switches = new Map(PANELS.map(([key, name, isOn]) => {
    const label = htmlElement("label", {}, group), check = htmlElement("input", { type: "checkbox", "data-panel": key }, label);
    check.checked = isOn;
    check.addEventListener("change", onChange);
    label.append(name);
    return [key, check];
  }));

  const compare = htmlElement("label", { class: "compare no-print" }), choice = htmlElement("select", {});
  compare.append("Differences from ", choice);
  compare.hidden = true;
  choice.addEventListener("change", onChange);
  const files = htmlElement("p", { class: "growth-files no-print" }, null, "Save: ");
  for (const [what, name] of FILES) {
    htmlElement("button", { type: "button", "data-file": what }, files, name).addEventListener("click", () => onSave(what));
  }

  function buttons(label, names, onClick) {
    const made = htmlElement("span", { role: "group", "aria-label": label }, box);
    return new Map(names.map(([key, name]) => {
      const button = htmlElement("button", { type: "button", "data-choice": key }, made, name);
      button.addEventListener("click", () => onClick(key));
      return [key, button];
    }));
  }

  function mark(all, chosen) {
    for (const [key, button] of all) button.setAttribute("aria-pressed", String(key === chosen));
  }

  function setKeep(isGood, isFull) {
    keep.disabled = !isGood || isFull;
    keep.title = isFull ? "Five variants are kept; remove one first" : "Keeps this run for comparison";
  }

  return {
    axis: () => axis,
    isOn: (key) => switches.get(key).checked,
    compared: (kept) => kept.find((variant) => variant.layers && variant.colour === choice.value) ?? null,
    compareWith(variant, kept) {
      this.setKept(kept, kept.length >= KEPT_MAX);
      choice.value = variant.colour;
    },
    // Where the table is: what belongs to it is put around it.
    place(tables) {
      tables.prepend(compare);
      tables.append(files);
    },
    setKept(kept, isFull) {
      const before = choice.value;
      choice.replaceChildren(new Option("nothing", ""));
      for (const { name, colour } of kept) choice.append(new Option(name, colour));
      choice.value = kept.some(({ colour }) => colour === before) ? before : "";
      compare.hidden = !kept.length;
      keep.disabled = isFull;
    },
    setKeep,
    setReady(isReady) { box.hidden = !isReady; },
    // Only panels that the run has can be switched.
    setPanels(panels) {
      for (const [key, check] of switches) check.parentNode.hidden = !panels.some((panel) => panel.key === key);
    },
    setZoom(mode, has_thin) {
      mark(zooms, mode);
      zooms.get("thin").hidden = !has_thin;
    },
    state: () => ({ axis, panels: [...switches].filter(([, check]) => check.checked).map(([key]) => key) }),
    restore(saved) {
      if (AXES.some(([name]) => name === saved.axis)) {
        axis = saved.axis;
        mark(axes, axis);
      }
      if (Array.isArray(saved.panels)) for (const [key, check] of switches) check.checked = saved.panels.includes(key);
    },
  };
}

// The table of the layers, from the bottom up, with differences from a kept variant. Of repeated groups the first period is
// shown, the others on request. While a slider moves only the texts that change are written.
import { compositionOf, groupsOf, oneLine } from "./layers.js";
import { difference, fraction, number } from "./numbers.js";
import { htmlElement, setText } from "./svg.js";

const FEW = 12; // layers; of more, later periods are shown on request
const THIN = 0.1; // nm; pauses, likewise
const percent = (value) => (value === null ? null : 100 * value);
const COLUMNS = [
  { head: ["Thickness", "nm"], value: (layer) => layer.thickness, text: (value) => number(value, 5), least: 5e-4 },
  { head: ["In"], value: (layer) => compositionOf(layer)[0], text: fraction, least: 5e-5, metal: 0 },
  { head: ["In", "final"], value: (layer) => layer.x_in_end, text: fraction, least: 5e-5, metal: 0 },
  { head: ["Al"], value: (layer) => compositionOf(layer)[2], text: fraction, least: 5e-5, metal: 2 },
  { head: ["Al", "final"], value: (layer) => layer.x_al_end, text: fraction, least: 5e-5, metal: 2 },
  { head: ["Rate", "nm/s"], value: (layer) => layer.mean_rate, text: (value) => number(value, 4), least: 5e-6 },
  { head: ["Strain", "%"], value: (layer) => percent(layer.eps_xx_z), text: (value) => number(value, 3), least: 5e-4 },
  { head: ["Dislocations", "cm⁻²"], value: (layer) => layer.rho_td_z, text: (value) => number(value, 3), share: 5e-4 },
  { head: ["V-defects", "cm⁻²"], value: (layer) => layer.v_defects_t, text: (value) => number(value, 3), share: 5e-4 },
];

// Gives {draw({layers, reached, other})}; other: {name, layers} of a kept variant or null. onLayer(number): a name was clicked.
export function createTable(node, onLayer) {
  const box = htmlElement("label", { class: "all-periods" }, node);
  const all = htmlElement("input", { type: "checkbox" }, box);
  box.append("All periods and pauses");
  const frame = htmlElement("div", { class: "scroll", role: "region", tabindex: "0", "aria-label": "Table of the layers" }, node);
  const table = htmlElement("table", { class: "growth-layers" }, frame);
  htmlElement("caption", { class: "hidden" }, table, "Layers from the bottom up");
  const head = htmlElement("thead", {}, table), body = htmlElement("tbody", {}, table);
  const note = htmlElement("p", { class: "note", id: "growth-layers-note" }, node);
  table.setAttribute("aria-describedby", note.id);
  let last = null, headText = "";
  all.addEventListener("change", () => last && draw(last));
  body.addEventListener("click", ({ target }) => {
    const button = target.closest("button[data-layer]");
    if (button) onLayer(Number(button.dataset.layer));
  });

  function draw(shown) {
    last = shown;
    const { layers, reached, other } = shown;
    const used = (metal) => layers.some((layer) => compositionOf(layer)[metal] > 1e-6 || layer[metal ? "x_al_end" : "x_in_end"] > 1e-6);
    const columns = COLUMNS.filter(({ metal }) => metal === undefined || used(metal));
    drawHead(columns);
    setText(note, "From the bottom up. Fractions without “final” are those of a layer without its interfaces; strain and " +
      "dislocations are those of the finished structure, at the top of the layer." + (other ? ` Below each value: its difference from “${other.name}”.` : ""));
    const rows = rowsOf(layers, all.checked);
    box.hidden = rows.length === layers.length && !all.checked;
    const partners = other ? partnersOf(layers, other.layers) : new Map();
    while (body.rows.length > rows.length) body.lastChild.remove();
    rows.forEach((row, index) => {
      const line = body.rows[index] ?? body.insertRow();
      if (row.note) drawNote(line, row.note, columns.length + 2);
      else drawLayer(line, row.layer, reached.has(row.layer.number), columns, partners.get(row.layer));
    });
  }

  function drawHead(columns) {
    const text = columns.map((column) => column.head.join()).join(";");
    if (text === headText) return;
    headText = text;
    head.replaceChildren();
    body.replaceChildren();
    const row = htmlElement("tr", {}, head);
    htmlElement("th", { scope: "col" }, row, "No.");
    htmlElement("th", { scope: "col", class: "text" }, row, "Layer");
    for (const { head: [name, unit] } of columns) {
      const cell = htmlElement("th", { scope: "col" }, row, name);
      if (unit) cell.append(htmlElement("br"), unit);
    }
  }

  function drawNote(line, note, width) {
    if (line.dataset.kind !== "note") {
      line.replaceChildren(htmlElement("th", { colspan: width, scope: "rowgroup" }));
      line.dataset.kind = "note";
      line.className = "group";
    }
    setText(line.cells[0], note);
  }

  function drawLayer(line, layer, isReached, columns, partner) {
    if (line.dataset.kind !== "layer") {
      line.replaceChildren(htmlElement("td"), htmlElement("th", { scope: "row" }), ...columns.map(() => htmlElement("td")));
      htmlElement("button", { type: "button", title: "Zoom to this layer" }, line.cells[1]);
      for (let k = 0; k < columns.length; ++k) line.cells[k + 2].append(htmlElement("span"), htmlElement("span", { class: "change" }));
      line.dataset.kind = "layer";
    }
    line.className = isReached ? layer.kind : "unreached";
    setText(line.cells[0], String(layer.number));
    const button = line.cells[1].firstChild;
    button.dataset.layer = layer.number;
    setText(button, oneLine(layer.name) + (isReached ? "" : " (not reached)"));
    columns.forEach((column, k) => {
      const value = isReached ? column.value(layer) : null, [shown, change] = line.cells[k + 2].children;
      setText(shown, column.text(value));
      const before = partner && isReached ? column.value(partner) : null;
      const step = typeof value === "number" && typeof before === "number" ? value - before : null;
      setText(change, difference(step, 3, column.least ?? column.share * Math.abs(before)));
    });
  }

  return { draw };
}

// What is shown: {layer} or {note} before a repeated group.
function rowsOf(layers, isAll) {
  if (layers.length <= FEW || isAll) return layers.map((layer) => ({ layer }));
  const rows = [];
  for (const { first, size, periods } of groupsOf(layers)) {
    if (periods > 1) {
      const [begin, end] = [layers[first].number, layers[first + size * periods - 1].number];
      rows.push({ note: `Layers ${begin} to ${end}: ${periods} periods of ${size}, of which the first is shown` });
    }
    for (const layer of layers.slice(first, first + size)) {
      if (!(Math.abs(layer.thickness) < THIN)) rows.push({ layer });
    }
  }
  return rows;
}

// For each layer the one with its name in another run: the first for the first of that name, and so on.
function partnersOf(layers, others) {
  const byName = new Map();
  for (const layer of others) byName.set(layer.name, [...(byName.get(layer.name) ?? []), layer]);
  const partners = new Map();
  for (const layer of layers) {
    const partner = byName.get(layer.name)?.shift();
    if (partner) partners.set(layer, partner);
  }
  return partners;
}

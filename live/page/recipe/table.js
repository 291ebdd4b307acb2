// The table of stages: a row for each, with the numbers that are used in this recipe, and below it what the check and
// the run have to say about it.
import {attributeAt, elementAt} from "./xml_text.js";
import {el, button} from "./dom.js";
import {isRamp, numberField, textField, unitText, valueOf} from "./fields.js";
import {knownElement} from "./elements.js";
import {GROUPS, PROCESS, countOf, isPeriodic, stagesOf, tagOf} from "./stages.js";
import {leadingInteger, leadingNumber} from "./units.js";

export const ROWS_SHOWN = 150; // at once; more on request
const FLOWS = ["TMIn", "TMGa", "TEGa", "TMAl", "N2", "NH3", "H2"];
const COLUMNS = ["tau", "T", "P", ...FLOWS.map(flow => `gas_species/Q/${flow}`)];
const GROUP_TITLES = {pre_stages: "Layers below, given", process_stages: "Grown stages", post_stages: "Layers above, given"};

// The rows of the table: {kind: "group" | "stage" | "layer" | "periods", path, inside}. inside: within periods.
export function rowsOf(root) {
  const rows = [];
  for (const group of Object.keys(GROUPS)) {
    if (!elementAt(root, group)) continue;
    rows.push({kind: "group", path: group});
    for (const path of stagesOf(root, group)) {
      if (group !== PROCESS) rows.push({kind: "layer", path});
      else if (!isPeriodic(root, path)) rows.push({kind: "stage", path});
      else {
        rows.push({kind: "periods", path});
        for (const sub of stagesOf(root, path)) rows.push({kind: "stage", path: sub, inside: path});
      }
    }
  }
  return rows;
}

// Columns with a value in some stage; duration, temperature and pressure always.
function columnsIn(root, rows) {
  const stages = rows.filter(row => row.kind === "stage").map(row => elementAt(root, row.path));
  return COLUMNS.filter((column, k) => k < 3 || stages.some(stage =>
    ["val", "end"].some(name => Math.abs(leadingNumber(attributeAt(stage, column, name) ?? "0")) > 0)));
}

// What decides which fields there are; the table is built again when it changes.
export function shapeOf(p) {
  const root = p.model.root;
  if (!root) return "";
  const rows = rowsOf(root);
  const ramps = rows.slice(0, p.rowsShown).filter(row => row.kind === "stage").map(row =>
    COLUMNS.map(column => Number(rampAt(p, row.path, column))).join(""));
  return JSON.stringify([rows.map(row => row.path + row.kind[0]), columnsIn(root, rows), ramps, p.rowsShown]);
}

function rampAt(p, stage, column) {
  const known = knownElement(`${stage}/${column}`);
  return known ? isRamp(p, valueOf(`${stage}/${column}`, known)) : false;
}

// {node, fields, rowNodes}: the table, its fields with show(), and the row of each path.
export function stageTable(p) {
  const root = p.model.root, rows = rowsOf(root), columns = columnsIn(root, rows), fields = [], rowNodes = new Map();
  const body = el("tbody");
  for (const row of rows.slice(0, p.rowsShown)) {
    const node = {group: groupRow, periods: periodsRow, layer: layerRow, stage: stageRow}[row.kind](p, row, columns, fields);
    rowNodes.set(row.path, node);
    body.append(node);
  }
  if (rows.length > p.rowsShown) {
    body.append(el("tr", {class: "more"}, el("td", {colspan: columns.length + 1},
      `${p.rowsShown} of ${rows.length} rows are shown. `,
      button(`Show ${Math.min(ROWS_SHOWN, rows.length - p.rowsShown)} more`, () => { p.rowsShown += ROWS_SHOWN; p.refresh(); }))));
  }
  const heads = columns.map(column => {
    const known = knownElement(`${PROCESS}/stage_1/${column}`), value = valueOf(`${PROCESS}/stage_1/${column}`, known);
    const short = {tau: "Time"}[value.tag] ?? value.tag;
    return el("th", {scope: "col", class: `column-${value.tag}`}, short, el("span", {class: "unit"}, unitText(p, value)));
  });
  const node = el("table", {class: "stages"}, el("caption", {class: "hidden"}, "Stages in the order of growth"),
    el("thead", {}, el("tr", {}, el("th", {scope: "col"}, "Stage"), heads)), body);
  return {node, fields, rowNodes, width: columns.length + 1};
}

function groupRow(p, row, columns) {
  const root = p.model.root, count = countOf(root, row.path);
  const add = count === 0 && row.path !== PROCESS
    ? button("Add a layer", () => p.actions.addLayer(row.path), {class: "small"}) : null;
  return el("tr", {class: "group"}, el("th", {colspan: columns.length + 1, scope: "rowgroup"},
    GROUP_TITLES[row.path], count === 0 ? el("span", {class: "none"}, " none ") : null, add));
}

// A periodic stage: how often its sub-stages are grown.
function periodsRow(p, row, columns, fields) {
  const path = `${row.path}/n_periods`, known = knownElement(path), inside = countOf(p.model.root, row.path);
  const tag = tagOf(row.path);
  let field = null;
  if (known && elementAt(p.model.root, path)?.attributes.val) {
    field = numberField(p, valueOf(path, known), ["val"], `Periods of ${tag}`, "table");
    fields.push(field);
  }
  const node = el("tr", {class: "periods", "data-path": row.path}, el("th", {colspan: columns.length + 1, scope: "rowgroup"},
    el("span", {class: "line"}, el("span", {}, "Repeat"), field?.node, el("span", {}, `× ${inside} stage${inside === 1 ? "" : "s"}`),
      button("Edit group", () => p.select(row.path), {class: "small select", "aria-label": `Edit the repeated group ${tag}`}))));
  selectOnFocus(p, node, row.path);
  return node;
}

function stageRow(p, row, columns, fields) {
  const name = nameOf(p, row.path);
  const cells = columns.map(column => {
    const path = `${row.path}/${column}`, known = knownElement(path), element = elementAt(p.model.root, path);
    const cell = el("td", {class: `column-${tagOf(path)}`});
    if (!known || !element?.attributes.val) return cell;
    const value = valueOf(path, known), ramp = isRamp(p, value);
    const names = known.attributes.length === 1 ? [["val"]] : ramp ? [["val"], ["end"]] : [["val", "end"]];
    for (const attributes of names) {
      const part = !ramp ? "" : attributes[0] === "val" ? " at the start" : " at the end";
      const field = numberField(p, value, attributes, `${value.label}${part}, ${name}`, "table");
      field.node.classList.toggle("zero", leadingNumber(attributeAt(p.model.root, path)) === 0 && !ramp);
      fields.push(field);
      cell.append(field.node);
    }
    cell.classList.toggle("ramped", ramp);
    return cell;
  });
  return finishedRow(p, row, el("tr", {class: row.inside ? "stage inside" : "stage"}, headCell(p, row, name, fields), cells));
}

function layerRow(p, row, columns, fields) {
  const name = nameOf(p, row.path), cells = [];
  const field = (tag, label) => {
    const path = `${row.path}/${tag}`, known = knownElement(path);
    if (!known || !elementAt(p.model.root, path)?.attributes.val) return null;
    const made = numberField(p, valueOf(path, known), ["val"], `${label}, ${name}`, "table");
    fields.push(made);
    return made.node;
  };
  cells.push(el("td", {class: "column-tau"}, field("tau", "Duration")));
  const parts = [["thickness", "Thickness", "nm"], ["X_In_average", "Indium", "In"], ["X_Al_average", "Aluminium", "Al"]]
    .map(([tag, label, word]) => {
      const node = field(tag, label);
      return node && el("span", {class: `part part-${word}`}, ...(word === "nm" ? [node, " nm"] : [`${word} `, node]));
    });
  cells.push(el("td", {colspan: columns.length - 1, class: "layer"}, el("span", {class: "line"}, parts)));
  return finishedRow(p, row, el("tr", {class: "stage given"}, headCell(p, row, name, fields), cells));
}

function headCell(p, row, name, fields) {
  const path = `${row.path}/name`, known = knownElement(path);
  let shown = el("span", {class: "name"}, tagOf(row.path));
  if (known && elementAt(p.model.root, path)?.attributes.val) {
    const field = textField(p, valueOf(path, known), `Name of ${tagOf(row.path)}`, "table");
    fields.push(field);
    shown = field.node;
  }
  return el("th", {scope: "row"}, el("span", {class: "line"},
    button("", () => p.select(row.path, {toggle: true}), {class: "select opener", "aria-label": `Edit ${name}`, title: "Edit this stage"}), shown));
}

function finishedRow(p, row, node) {
  node.dataset.path = row.path;
  selectOnFocus(p, node, row.path);
  return node;
}

// A field that gets the focus selects its stage.
function selectOnFocus(p, node, path) {
  node.addEventListener("focusin", event => {
    if (!event.target.classList.contains("select")) p.select(path, {keep: true});
  });
}

export function nameOf(p, path) {
  if (isPeriodic(p.model.root, path)) return `${leadingInteger(attributeAt(p.model.root, `${path}/n_periods`))} periods`;
  return attributeAt(p.model.root, `${path}/name`) || tagOf(path);
}

// The panel of the selected stage: all its values with sliders, and what can be done with it.
import {attributeAt, elementAt, pathOf} from "./xml_text.js";
import {button, el, freshId} from "./dom.js";
import {hasSlider, isRamp, keywordField, numberField, rampButton, slider, textField, unitText, valueOf} from "./fields.js";
import {knownElement} from "./elements.js";
import {GROUPS, PROCESS, countOf, groupOf, isPeriodic, moveTarget, stagesOf, tagOf} from "./stages.js";
import {nameOf} from "./table.js";

const SUB_STAGE = /^stage_\d+_\d+$/;

// The known values of an element, in the order of the file, without those of sub-stages.
export function valuesIn(root, path) {
  const values = [], pending = [elementAt(root, path)];
  while (pending.length) {
    const element = pending.shift();
    const own = pathOf(element), known = knownElement(own);
    const first = element === elementAt(root, own); // the library reads the first of one name
    if (first && known?.attributes.length && element.attributes[known.attributes[0]]) values.push(valueOf(own, known));
    if (element !== elementAt(root, path) && SUB_STAGE.test(element.tag)) continue;
    pending.unshift(...element.children.filter(child => !SUB_STAGE.test(child.tag)));
  }
  return values;
}

// {node, fields} of one value: label, slider, number or numbers, unit, and what is wrong with it.
export function valueRow(p, value, owner) {
  const fields = [], label = `${value.label}, ${owner}`, id = freshId("value");
  const kind = value.known.kind;
  if (kind === "keyword") fields.push(keywordField(p, value, label, "panel"));
  else if (kind === "text") fields.push(textField(p, value, label, "panel"));
  else if (kind === "arrhenius") fields.push(...value.attributes.map(name => numberField(p, value, [name], `${label}, ${name}`, "panel")));
  else if (kind !== "range") fields.push(numberField(p, value, ["val"], label, "panel"));
  else if (isRamp(p, value)) {
    fields.push(numberField(p, value, ["val"], `${label}, at the start`, "panel"), numberField(p, value, ["end"], `${label}, at the end`, "panel"));
  } else fields.push(numberField(p, value, ["val", "end"], label, "panel"));

  const numbers = el("span", {class: "numbers"});
  fields.forEach((field, k) => {
    if (k > 0 && kind === "range") numbers.append(el("span", {"aria-hidden": "true"}, "→"));
    if (kind === "arrhenius") numbers.append(el("span", {class: "unit"}, value.attributes[k]));
    numbers.append(field.node);
  });
  const unit = el("span", {class: "unit"}, kind === "arrhenius" ? "" : unitText(p, value));
  const handle = hasSlider(value) ? slider(p, value, label) : null;
  const message = el("span", {class: "message", role: "alert"});
  const show = () => {
    const faults = value.attributes.map(name => p.faults.get(`${value.path}@${name}`)).filter(Boolean);
    const findings = p.findingsAt(value.path);
    const text = faults[0] ?? findings.map(finding => finding.text + (finding.hint ? ` (${finding.hint})` : "")).join("; ");
    if (message.textContent !== text) message.textContent = text;
    message.classList.toggle("caution", !faults.length && findings.every(finding => finding.severity === "warning"));
  };
  show();
  const node = el("div", {class: handle ? "value" : "value plain", "data-value": value.path},
    el("span", {class: "label", id, title: value.known.meaning}, value.label),
    handle?.node ?? el("span", {class: "slider-place"}), numbers, unit,
    kind === "range" ? rampButton(p, value, label) : el("span"), message);
  return {node, fields: [...fields, ...(handle ? [handle] : []), {node: message, show}]};
}

// {node, fields} of the panel of a stage, a layer or a periodic stage.
export function stagePanel(p, path) {
  const root = p.model.root, name = nameOf(p, path), fields = [];
  const all = valuesIn(root, path).filter(value => !["type", "n_stages"].includes(value.tag));
  const flows = all.filter(value => value.path.includes("/gas_species/Q/"));
  const main = all.filter(value => hasSlider(value) && !flows.includes(value));
  const other = all.filter(value => !flows.includes(value) && !main.includes(value));
  const rows = values => values.map(value => {
    const row = valueRow(p, value, name);
    fields.push(...row.fields);
    return row.node;
  });
  const titleId = freshId("title");
  const section = (title, values) => (values.length
    ? el("div", {class: "values", role: "group", "aria-label": title}, el("h3", {}, title), rows(values)) : null);
  const given = groupOf(path) !== PROCESS && Boolean(GROUPS[groupOf(path)]);
  const node = el("section", {class: "panel", "aria-labelledby": titleId},
    el("div", {class: "panel-head"}, el("h2", {id: titleId}, name, el("span", {class: "tag"}, tagOf(path))), actionsOf(p, path)),
    section(given ? "Layer" : "Conditions", given ? all : main), section("Flows", flows), given ? null : section("More", other));
  return {node, fields};
}

// Of what the panel depends beyond the values.
export function panelShape(p, path) {
  return JSON.stringify([path, nameOf(p, path), valuesIn(p.model.root, path).map(value => [value.path, isRamp(p, value)]),
    stagesOf(p.model.root, groupOf(path)).length]);
}

function actionsOf(p, path) {
  const root = p.model.root, {actions} = p, periodic = isPeriodic(root, path), group = groupOf(path);
  const act = (text, title, action, enabled = true) =>
    button(text, action, {title, class: "small", disabled: !enabled, "data-key": `${title}@action`});
  const removable = countOf(root, group) > 1 || (GROUPS[group] && group !== PROCESS);
  const nodes = [
    group === PROCESS || !GROUPS[group] ? (periodic ? null : act("Add after", "Add a stage that continues with the conditions at the end of this one", () => actions.add(path))) : null,
    act("Copy", "Copy, and put the copy after it", () => actions.copy(path)),
    act("↑", "Move up", () => actions.move(path, -1), Boolean(moveTarget(root, path, -1))),
    act("↓", "Move down", () => actions.move(path, 1), Boolean(moveTarget(root, path, 1))),
    group === PROCESS && !periodic ? act("Repeat…", "Repeat this stage, or several from here on", () => repeatForm.hidden = !repeatForm.hidden) : null,
    periodic ? act("Grow once", "Make the stages of this group single stages, grown once", () => actions.dissolve(path)) : null,
    act("Remove", periodic ? "Remove the group with its stages" : "Remove", () => actions.remove(path), removable),
  ];
  const repeatForm = group === PROCESS && !periodic ? formOfPeriods(p, path) : null;
  return el("div", {class: "actions"}, nodes, repeatForm);
}

// From which stage to which, and how often.
function formOfPeriods(p, path) {
  const root = p.model.root, all = stagesOf(root, PROCESS), following = [];
  for (const each of all.slice(all.indexOf(path))) {
    if (isPeriodic(root, each)) break;
    following.push(each);
  }
  const last = el("select", {"aria-label": "Last stage of the group"}, following.slice(0, 200).map(each =>
    el("option", {value: each}, `${tagOf(each).replace("stage_", "")}. ${attributeAt(root, `${each}/name`) || tagOf(each)}`)));
  const times = el("input", {type: "number", min: "1", max: "100000", step: "1", value: "3", "aria-label": "Number of periods", class: "number"});
  const message = el("span", {class: "message", role: "alert"});
  const form = el("form", {class: "repeat", hidden: true, onsubmit: event => {
    event.preventDefault();
    const periods = Number(times.value);
    if (!Number.isInteger(periods) || periods < 1) message.textContent = "the number of periods must be a positive integer";
    else p.actions.repeat(path, last.value, periods);
  }}, el("label", {}, "From here to ", last), el("label", {}, times, " times"), el("button", {class: "small"}, "Repeat"), message);
  return form;
}

// Fields for the values of a recipe: numbers, sliders, keywords, texts.
//
// p is the pane (pane.js): p.model, p.unitOf(quantity), p.setValues(path, {attribute: text}, group), p.faults.
import {attributeAt} from "./xml_text.js";
import {button, el} from "./dom.js";
import {labelOf} from "./elements.js";
import {numberText, parsed, quantityOf, shownText, storedText} from "./units.js";

// A value of the recipe: {path, tag, known, attributes, quantity, label}. known is its entry in the table of elements.
export function valueOf(path, known) {
  const tag = path.slice(path.lastIndexOf("/") + 1);
  return {path, tag, known, attributes: known.attributes, quantity: quantityOf(tag, known.unit), label: labelOf(tag)};
}

// The unit that is shown beside a value; empty for a number without one.
export function unitText(p, value, attribute = "val") {
  if (value.quantity) return p.unitOf(value.quantity).name;
  if (value.known.kind === "arrhenius") return value.known.unit.split(", ")[value.attributes.indexOf(attribute)].replace(/^1$/, "");
  return value.known.unit === "fraction" ? "" : value.known.unit;
}

function unitFor(p, value) { return value.quantity ? p.unitOf(value.quantity) : null; }

export function isRamp(p, value) {
  if (value.known.kind !== "range") return false;
  return p.forcedRamps.has(value.path) ||
    attributeAt(p.model.root, value.path, "val") !== attributeAt(p.model.root, value.path, "end");
}

// A field for a number. attributes are those that it sets: both of a constant value. Says at once what is wrong with
// the text; such a text does not reach the recipe.
export function numberField(p, value, attributes, label, view) {
  const key = `${value.path}@${attributes[0]}`;
  const input = el("input", {type: "text", inputmode: "decimal", class: "number", autocomplete: "off", spellcheck: "false",
    "aria-label": label, "data-key": key, "data-view": view});
  const current = () => attributeAt(p.model.root, value.path, attributes[0]) ?? "";
  let original = null; // texts of the attributes before the first key

  function show() {
    const fault = p.faults.get(key);
    if (document.activeElement === input) {
      const typed = parsed(input.value);
      if (fault || (!typed.fault && storedText(input.value, unitFor(p, value)) === current())) return mark(fault);
    }
    input.value = fault && input.value ? input.value : shownText(current(), unitFor(p, value));
    mark(fault);
  }

  function mark(fault) {
    const finding = fault ? null : p.findingsAt(value.path)[0];
    input.setAttribute("aria-invalid", String(Boolean(fault) || finding?.severity === "error"));
    input.classList.toggle("warned", finding?.severity === "warning");
    input.title = fault ?? finding?.text ?? "";
    input.setAttribute("aria-description", input.title);
  }

  input.addEventListener("input", () => {
    const typed = parsed(input.value);
    p.setFault(key, typed.fault ?? null);
    if (typed.fault) {
      // What was typed before, such as the 1 of 1e, is not meant.
      if (original) p.setValues(value.path, original, `type:${key}`);
      return mark(typed.fault);
    }
    original ??= Object.fromEntries(attributes.map(name => [name, attributeAt(p.model.root, value.path, name)]));
    const text = storedText(input.value, unitFor(p, value));
    p.setValues(value.path, Object.fromEntries(attributes.map(name => [name, text])), `type:${key}`);
  });
  input.addEventListener("keydown", event => {
    if (event.key === "Escape" && p.faults.has(key)) {
      restore();
      event.stopPropagation();
    } else if ((event.key === "ArrowUp" || event.key === "ArrowDown") && !parsed(input.value).fault) {
      event.preventDefault();
      const {step} = windowOf(Number(input.value), value, unitFor(p, value));
      const next = Number(input.value) + (event.key === "ArrowUp" ? step : -step);
      input.value = numberText(next);
      input.dispatchEvent(new Event("input"));
    }
  });
  input.addEventListener("change", () => p.model.seal());
  input.addEventListener("blur", () => {
    original = null;
    show();
  });
  show();
  return {node: input, show};

  function restore() {
    p.setFault(key, null);
    input.value = shownText(current(), unitFor(p, value));
    mark(null);
  }
}

// ---- Sliders

const RAMP_STEP = {temperature: 1};

// 1, 2 or 5 times a power of ten, at most x.
function nice(x) {
  const power = 10 ** Math.floor(Math.log10(x));
  return power * [5, 2, 1].find(factor => factor * power <= x * (1 + 1e-9));
}

// The usual largest value of a quantity that is 0, in the unit shown.
function usual(value, unit) {
  const stored = {temperature: 1300, pressure: 40000, metal: 1, gas: 10000}[value.quantity] ?? 100;
  return nice(stored * (unit?.factor ?? 1));
}

// {low, high, step} of a slider around a number in the unit shown: 100 K to both sides, or from 0 to twice the number.
export function windowOf(number, value, unit) {
  if (value.quantity === "temperature") {
    return {low: Math.floor(number - 100), high: Math.ceil(number + 100), step: RAMP_STEP.temperature};
  }
  const size = Math.abs(number) || usual(value, unit) / 2, step = nice(size / 50);
  const low = value.tag === "tau" || value.quantity === "pressure" ? step : 0;
  return {low, high: Math.max(step, Math.ceil(2 * size / step) * step), step};
}

export function hasSlider(value) {
  return value.tag === "tau" || (value.quantity !== null && value.known.kind === "range");
}

// A slider that moves a value, and a ramp as a whole.
export function slider(p, value, label) {
  const input = el("input", {type: "range", class: "slider", "aria-label": label, "data-key": `${value.path}@slider`});
  const group = `slide:${value.path}`;
  let range = null, name = "";

  const shown = attribute => Number(shownText(attributeAt(p.model.root, value.path, attribute) ?? "", unitFor(p, value)));

  function show() {
    const unit = unitFor(p, value), begin = shown("val"), ramp = isRamp(p, value), end = ramp ? shown("end") : begin;
    input.disabled = !Number.isFinite(begin) || !Number.isFinite(end);
    if (input.disabled) return;
    const largest = value.quantity === "temperature" ? begin : Math.max(begin, end);
    if (!range || name !== unit?.name || begin < range.low || begin > range.high) range = windowOf(largest, value, unit);
    name = unit?.name;
    const above = Math.max(range.low, ramp && value.quantity !== "temperature" ? begin - Math.min(begin, end) : range.low);
    input.min = numberText(above);
    input.max = numberText(Math.max(range.high, begin));
    input.step = numberText(range.step);
    if (Number(input.value) !== begin) input.value = numberText(begin);
    const unitName = unitText(p, value);
    input.setAttribute("aria-valuetext", ramp ? `${numberText(begin)} to ${numberText(end)} ${unitName}` : `${numberText(begin)} ${unitName}`);
  }

  input.addEventListener("input", () => {
    const unit = unitFor(p, value), begin = Number(input.value), texts = {val: storedText(numberText(begin), unit)};
    if (value.known.kind === "range") {
      texts.end = isRamp(p, value) ? storedText(numberText(shown("end") + begin - shown("val")), unit) : texts.val;
    }
    for (const name of Object.keys(texts)) p.setFault(`${value.path}@${name}`, null);
    p.setValues(value.path, texts, group);
  });
  input.addEventListener("change", () => p.model.seal());
  show();
  return {node: input, show};
}

// The button that makes a ramp of a constant value, and back.
export function rampButton(p, value, label) {
  const pressed = isRamp(p, value);
  return button("Ramp", () => {
    if (isRamp(p, value)) {
      p.forcedRamps.delete(value.path);
      p.setFault(`${value.path}@end`, null);
      p.setValues(value.path, {end: attributeAt(p.model.root, value.path, "val")}, null);
      p.refresh();
    } else {
      p.forcedRamps.add(value.path);
      p.refresh();
    }
  }, {class: "ramp", "aria-pressed": String(pressed), "aria-label": `${label}: ramp`, "data-key": `${value.path}@ramp`,
    title: pressed ? "A ramp from start to end of the stage; press for a constant value" : "Constant; press for a ramp"});
}

// ---- Texts and keywords

export function textField(p, value, label, view) {
  const key = `${value.path}@val`;
  const input = el("input", {type: "text", class: "name", "aria-label": label, "data-key": key, "data-view": view, autocomplete: "off"});
  const show = () => {
    const text = attributeAt(p.model.root, value.path) ?? "";
    if (input.value !== text) input.value = text;
  };
  input.addEventListener("input", () => p.setValues(value.path, {val: input.value}, `type:${key}`));
  input.addEventListener("change", () => p.model.seal());
  show();
  return {node: input, show};
}

export function keywordField(p, value, label, view) {
  const list = el("select", {"aria-label": label, "data-key": `${value.path}@val`, "data-view": view});
  const show = () => {
    const text = attributeAt(p.model.root, value.path) ?? "", words = [...value.known.keywords];
    if (value.path === "stress/model") words.unshift("none");
    const known = words.find(word => word.toLowerCase() === text.toLowerCase());
    if (!known) words.push(text);
    list.replaceChildren(...words.map(word => el("option", {value: word}, word)));
    list.value = known ?? text;
    const finding = p.findingsAt(value.path)[0];
    list.setAttribute("aria-invalid", String(finding?.severity === "error"));
  };
  list.addEventListener("change", () => p.setValues(value.path, {val: list.value}, null));
  show();
  return {node: list, show};
}

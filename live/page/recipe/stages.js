// Stages of a recipe: listing, adding, moving and removing them, and combining them into periods, as edits of the text.
//
// A group is pre_stages, process_stages, post_stages, or a periodic stage with its sub-stages. It states the number of
// its stages; those with larger numbers are not grown. Each change takes a text and gives a new one. What can't be done
// without a mistake throws an Error that says why.
import {applied, attributeAt, attributeEdits, childOf, deeper, elementAt, lineStart, parseXml, reindented, spaceBefore,
  tagEdits} from "./xml_text.js";
import {leadingInteger} from "./units.js";

export const PROCESS = "process_stages";
export const GROUPS = {
  pre_stages: {prefix: "pre_stage_", count: "n_pre_stages"},
  process_stages: {prefix: "stage_", count: "n_stages"},
  post_stages: {prefix: "post_stage_", count: "n_post_stages"},
};

function prefixOf(group) { return GROUPS[group]?.prefix ?? group.split("/").at(-1) + "_"; }
function countPath(group) { return `${group}/${GROUPS[group]?.count ?? "n_stages"}`; }
export function groupOf(path) { return path.slice(0, path.lastIndexOf("/")); }
export function tagOf(path) { return path.slice(path.lastIndexOf("/") + 1); }

// The number in the name of a stage; null for other elements.
function numberOf(tag, prefix) {
  const digits = tag.startsWith(prefix) ? tag.slice(prefix.length) : "";
  return /^(0|[1-9]\d*)$/.test(digits) ? Number(digits) : null;
}

export function countOf(root, group) {
  return Math.max(0, leadingInteger(attributeAt(root, countPath(group))));
}

// Paths of the stages of a group in order, up to the number that it states.
export function stagesOf(root, group) {
  const element = elementAt(root, group), prefix = prefixOf(group), count = element ? countOf(root, group) : 0;
  const found = new Map();
  for (const child of element?.children ?? []) {
    const number = numberOf(child.tag, prefix);
    if (number !== null && number >= 1 && number <= count && !found.has(number)) found.set(number, `${group}/${child.tag}`);
  }
  return [...found.keys()].sort((a, b) => a - b).map(number => found.get(number));
}

export function isPeriodic(root, path) {
  return groupOf(path) === PROCESS && (attributeAt(root, `${path}/type`) ?? "").toLowerCase() === "periodic";
}

// ---- Changes

// A stage after another one: a copy, or with continued a stage that continues with the conditions at the end of it.
// Gives {text, path}.
export function addedStage(text, path, {continued = false, name = null} = {}) {
  const root = rootOf(text), element = elementAt(root, path), group = groupOf(path);
  const number = numberOf(element.tag, prefixOf(group)) + 1;
  let copy = renamed(text, element, prefixOf(group) + number);
  if (continued) copy = constantAtEnd(copy);
  if (name !== null) copy = withAttribute(copy, "name", name);
  return {text: inserted(text, group, number, copy), path: `${group}/${prefixOf(group)}${number}`};
}

// A text in which every pair of val and end has the value of end twice.
function constantAtEnd(stage) {
  const edits = [], pending = [rootOf(stage)];
  while (pending.length) {
    const element = pending.pop();
    if (element.attributes.val && element.attributes.end) {
      edits.push(...attributeEdits(stage, element, "val", element.attributes.end.text));
    }
    pending.push(...element.children);
  }
  return applied(stage, edits);
}

function withAttribute(stage, path, value) {
  return applied(stage, attributeEdits(stage, elementAt(rootOf(stage), path), "val", value));
}

// The first layer of an empty group of given layers: 100 nm of GaN. Gives {text, path}.
export function addedLayer(text, group) {
  const {prefix} = GROUPS[group], first = group === "pre_stages";
  const lines = [`<${prefix}1>`, `  <name val="GaN"/>`, `  <tau val="100"/>`, `  <GR_average val="3.6"/>`, `  <thickness val="100"/>`,
    `  <X_In_average val="0"/>`, `  <X_Ga_average val="1"/>`, `  <X_Al_average val="0"/>`, `  <dislocations>`,
    `    <disl_model val="${first ? "given" : "inherited"}"/>`, ...(first ? [`    <rho_D val="3e8"/>`] : []), `  </dislocations>`,
    `  <stress_state val="${first ? "3.189" : "0"}"/>`, `</${prefix}1>`];
  const element = elementAt(rootOf(text), group);
  if (!element) throw new Error(`the recipe has no element ${group}`);
  const start = startInside(text, element) || "\n";
  return {text: inserted(text, group, 1, lines.join(start)), path: `${group}/${prefix}1`};
}

export function withoutStage(text, path) {
  const root = rootOf(text), group = groupOf(path), count = countOf(root, group);
  if (count === 1 && (group === PROCESS || !GROUPS[group])) throw new Error("the only stage can't be removed");
  const element = elementAt(root, path), number = numberOf(element.tag, prefixOf(group));
  checkSingle(root, group, number, number);
  const begin = element.begin - spaceBefore(text, element.begin).length;
  const shorter = renumbered(applied(text, [{begin, end: element.end, text: ""}]), group, number + 1, -1);
  return withCount(shorter, group, count - 1);
}

// Where a stage would go by a move up (-1) or down (+1): {swap: path} exchanges it with a neighbour, {into: group,
// number} takes it into or out of a periodic stage; null if it can't move.
export function moveTarget(root, path, step) {
  const group = groupOf(path), paths = stagesOf(root, group), place = paths.indexOf(path), next = paths[place + step];
  if (next !== undefined) {
    if (isPeriodic(root, next) && !isPeriodic(root, path)) {
      if (paths.length === 1) return null;
      return {into: next, number: step > 0 ? 1 : countOf(root, next) + 1};
    }
    return {swap: next};
  }
  if (GROUPS[group] || paths.length === 1) return null;
  return {into: PROCESS, number: numberOf(tagOf(group), "stage_") + (step > 0 ? 1 : 0)};
}

// Gives {text, path}: the stage one place up (-1) or down (+1).
export function movedStage(text, path, step) {
  const root = rootOf(text), target = moveTarget(root, path, step);
  if (!target) throw new Error("the stage can't move further");
  if (target.swap) return {text: swapped(text, root, path, target.swap), path: target.swap};
  const group = groupOf(path), element = elementAt(root, path);
  const outer = lineStart(text, element.begin), body = text.slice(element.begin, element.end);
  let rest = withoutStage(text, path), into = target.into, number = target.number;
  const removed = numberOf(element.tag, prefixOf(group));
  if (group === PROCESS) { // taken into a periodic stage; those after the removed one have moved up
    const periodic = numberOf(tagOf(into), "stage_");
    if (periodic > removed) into = `${PROCESS}/stage_${periodic - 1}`;
  }
  const inner = startOfStages(rest, into);
  const stage = outer && inner ? reindented(body, outer.replace(/^[\r\n]+/, ""), inner.replace(/^[\r\n]+/, "")) : body;
  const tag = prefixOf(into) + number;
  return {text: inserted(rest, into, number, renamedText(stage, tag)), path: `${into}/${tag}`};
}

function swapped(text, root, path, other) {
  const [a, b] = [elementAt(root, path), elementAt(root, other)];
  return applied(text, [
    {begin: a.begin, end: a.end, text: renamed(text, b, a.tag)}, {begin: b.begin, end: b.end, text: renamed(text, a, b.tag)},
  ]);
}

// The stages from first to last, both in process_stages, as one periodic stage. Gives {text, path}.
export function withPeriods(text, first, last, periods) {
  const root = rootOf(text), all = stagesOf(root, PROCESS);
  const paths = all.slice(all.indexOf(first), all.indexOf(last) + 1);
  const [begin, end] = [first, last].map(path => numberOf(tagOf(path), "stage_"));
  if (!paths.length) throw new Error("the last stage is before the first");
  if (paths.some(path => isPeriodic(root, path))) throw new Error("a repeated group can't contain another one");
  checkSingle(root, PROCESS, begin, end);
  const elements = paths.map(path => elementAt(root, path));
  if (elements.some((element, k) => k > 0 && element.begin < elements[k - 1].end)) {
    throw new Error("the stages are not in this order in the XML");
  }
  const count = countOf(root, PROCESS);
  const outer = lineStart(text, elements[0].begin) || "\n", inner = deeper(outer);
  const head = [`<stage_${begin}>`, `<type val="periodic"/>`, `<n_periods val="${periods}"/>`, `<n_stages val="${paths.length}"/>`];
  const edits = elements.flatMap((element, k) => tagEdits(element, `stage_${begin}_${k + 1}`));
  const from = elements[0].begin, to = elements.at(-1).end;
  const body = applied(text.slice(from, to), edits.map(edit => ({...edit, begin: edit.begin - from, end: edit.end - from})));
  const periodic = [...head, reindented(body, "", inner.slice(outer.length))].join(inner) + outer + `</stage_${begin}>`;
  const whole = renumbered(applied(text, [{begin: from, end: to, text: periodic}]), PROCESS, end + 1, begin - end);
  return {text: withCount(whole, PROCESS, count - paths.length + 1), path: `${PROCESS}/stage_${begin}`};
}

// The sub-stages of a periodic stage as single stages, once.
export function withoutPeriods(text, path) {
  const root = rootOf(text), element = elementAt(root, path), inside = stagesOf(root, path).map(each => elementAt(root, each));
  const number = numberOf(element.tag, "stage_"), count = countOf(root, PROCESS), outer = lineStart(text, element.begin) || "\n";
  if (!inside.length) throw new Error("the group has no stages");
  const stages = inside.map(stage => {
    const start = lineStart(text, stage.begin);
    return reindented(text.slice(stage.begin, stage.end), start.replace(/^[\r\n]+/, ""), outer.replace(/^[\r\n]+/, ""));
  });
  const named = stages.map((stage, k) => renamedText(stage, `stage_${number + k}`)).join(outer);
  // The following stages are renumbered first: their new names must not meet those of the sub-stages.
  let whole = renumbered(text, PROCESS, number + 1, inside.length - 1);
  const periodic = elementAt(rootOf(whole), path);
  whole = applied(whole, [{begin: periodic.begin, end: periodic.end, text: named}]);
  return withCount(whole, PROCESS, count + inside.length - 1);
}

// ---- Helpers

function rootOf(text) {
  const {root, error} = parseXml(text);
  if (error) throw new Error(error.message);
  return root;
}

// The text of a stage under another name; the sub-stages of a periodic one are renamed with it.
function renamed(text, element, tag) {
  const edits = stageEdits(element, tag);
  return applied(text.slice(element.begin, element.end),
    edits.map(edit => ({...edit, begin: edit.begin - element.begin, end: edit.end - element.begin})));
}

function renamedText(stage, tag) {
  return applied(stage, stageEdits(rootOf(stage), tag));
}

function stageEdits(element, tag) {
  const inside = element.children.filter(child => numberOf(child.tag, element.tag + "_") !== null);
  return [...tagEdits(element, tag), ...inside.flatMap(child => tagEdits(child, tag + child.tag.slice(element.tag.length)))];
}

// A stage at a number of a group; the following ones are renumbered.
function inserted(text, group, number, stage) {
  const count = countOf(rootOf(text), group);
  const whole = renumbered(text, group, number, 1), root = rootOf(whole), element = elementAt(root, group);
  const following = childOf(element, prefixOf(group) + (number + 1)), last = childOf(element, prefixOf(group) + (number - 1));
  let edit;
  if (last) edit = {begin: last.end, end: last.end, text: spaceOfStage(whole, last) + stage};
  else if (following) edit = {begin: following.begin, end: following.begin, text: stage + spaceOfStage(whole, following)};
  else {
    const place = element.endTag - spaceBefore(whole, element.endTag).length;
    edit = {begin: place, end: place, text: startOfStages(whole, group) + stage};
  }
  return withCount(applied(whole, [edit]), group, count + 1);
}

// One line end and the indentation before a stage, or the blanks before it.
function spaceOfStage(text, element) {
  return lineStart(text, element.begin) || spaceBefore(text, element.begin);
}

function startOfStages(text, group) {
  const root = rootOf(text), first = stagesOf(root, group)[0];
  return first ? lineStart(text, elementAt(root, first).begin) : startInside(text, elementAt(root, group));
}

function startInside(text, element) {
  if (element.children.length) return lineStart(text, element.children.at(-1).begin);
  return deeper(lineStart(text, element.begin));
}

// The library reads only the first of several stages of one number; removing or renaming it would make another count.
function checkSingle(root, group, first, last) {
  const prefix = prefixOf(group), seen = new Set();
  for (const child of elementAt(root, group).children) {
    const number = numberOf(child.tag, prefix);
    if (number === null || number < first || number > last) continue;
    if (seen.has(number)) throw new Error(`${child.tag} occurs twice in the XML; remove one there first`);
    seen.add(number);
  }
}

function withCount(text, group, count) {
  const element = elementAt(rootOf(text), countPath(group));
  if (!element?.attributes.val) throw new Error(`the recipe has no ${countPath(group)}`);
  return applied(text, attributeEdits(text, element, "val", String(count)));
}

function renumbered(text, group, first, shift) {
  const prefix = prefixOf(group), edits = [];
  for (const child of elementAt(rootOf(text), group).children) {
    const number = numberOf(child.tag, prefix);
    if (number !== null && number >= first) edits.push(...stageEdits(child, prefix + (number + shift)));
  }
  return applied(text, edits);
}

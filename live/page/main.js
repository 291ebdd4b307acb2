// The live page: connects the recipe, the solver and what grows.
import {createEngine} from "./engine.js";
import {createGrowthPane} from "./growth/pane.js";
import {fragmentOf, recipeOf} from "./link.js";
import {sentenceOf} from "./outcome.js";
import {showAbout, showHelp, showLink} from "./panels.js";
import {pageRecipe} from "./recipe.js";
import {debounced} from "./recipe/dom.js";
import {loadElements} from "./recipe/elements.js";
import {decodedRecipe} from "./recipe/files.js";
import {createRecipePane} from "./recipe/pane.js";
import {forget, pageKey, store, stored} from "./storage.js";
import {remedyOf} from "./words.js";

const TIMEOUT_S = 60;
const SAY_DELAY = 700; // ms of rest before a screen reader hears the result, so that sliders do not chatter
const LINK_MAX = 2e6; // characters; browsers do not open longer addresses

const at = id => document.getElementById(id);
const data = JSON.parse(at("page-data").textContent);
loadElements(data.elements);

let first = null, embeddedNote = ""; // the recipe of the page, and what there is to say about it
const embedded = pageRecipe();
if (embedded) {
  const {xml, note, fault} = decodedRecipe(embedded.bytes);
  if (!fault) first = {xml, name: embedded.name};
  embeddedNote = fault ? `${embedded.name}: ${fault}` : note;
}
first ??= {xml: data.examples[0].xml, name: `${data.examples[0].name}.xml`};

const key = pageKey(embedded), engine = createEngine();
const second = createEngine(); // for kept variants of a link: their runs do not replace those of the recipe
const growth = createGrowthPane(at("growth"), {
  onRecall: xml => pane.setXml(xml, pane.name()),
  unitOf: quantity => pane.unitOf(quantity),
  run: xml => second.run(xml),
});
let newest = 0, last = null; // number of the newest run; {outcome, xml} that is shown, null while the newest run is under way

// ---- Messages

const say = debounced(text => { at("live").textContent = text; }, SAY_DELAY);

function note(text) {
  at("note-text").textContent = text;
  at("note").hidden = !text;
}

function showStatus(kind, text) {
  at("status").className = `status ${kind}`;
  at("status-word").textContent = {complete: "Complete", failed: "Failed", cancelled: "Cancelled", running: "Running"}[kind];
  at("status-text").textContent = text;
}

// ---- Runs

async function run(xml) {
  const number = ++newest;
  last = null;
  at("again").hidden = true;
  growth.busy(true);
  const slow = setTimeout(() => {
    if (number !== newest) return;
    showStatus("running", "The solver is at work.");
    at("cancel").hidden = false;
  }, 400);
  const answer = await engine.run(xml, {timeout_s: TIMEOUT_S, name: pane.name()}), outcome = {...answer, remedy: remedyOf(answer)};
  clearTimeout(slow);
  const current = number === newest; // results of earlier ones are drawn while a slider moves
  if (current) {
    growth.busy(false);
    at("cancel").hidden = true;
  } else if (outcome.status !== "ok" || pane.hasFault()) return;
  at("again").hidden = outcome.status !== "cancelled" && outcome.status !== "crashed";
  const sentence = sentenceOf(outcome), good = outcome.status === "ok";
  showStatus(good ? "complete" : outcome.status === "cancelled" ? "cancelled" : "failed", sentence);
  say(sentence);
  pane.showRunFailure(good ? null : outcome);
  if (good || outcome.status === "failed") last = {outcome, xml};
  growth.show(outcome, xml, pane.name());
  document.documentElement.dataset.runs = String(Number(document.documentElement.dataset.runs ?? 0) + 1);
}

const remember = debounced(() => store(key, {pane: pane.state(), growth: growth.state()}), 500);

function changed(xml) {
  document.title = `${pane.name()} – live growth`;
  at("name").textContent = pane.name();
  run(xml);
  remember();
}

// ---- The page

const pane = createRecipePane(at("recipe-pane"), {
  ...first, examples: data.examples,
  check: xml => engine.check(xml),
  onChange: changed,
  onFault: text => {
    ++newest; // the outcome of a run under way is not that of this text
    growth.busy(false);
    growth.notRun();
    showStatus("failed", `Not run: ${text}`);
    say(`Not run: ${text}`);
    remember();
  },
  onUnits: () => growth.redraw(),
  onShare: async (xml, name) => {
    const address = location.href.replace(/#.*/, "") + await fragmentOf(xml, name, growth.state());
    if (address.length > LINK_MAX) note("The recipe is too large for a link; save it as a file.");
    else showLink(address);
  },
  onNote: note,
});

async function openLink() {
  if (!location.hash) return false;
  const fragment = location.hash;
  try {
    const recipe = await recipeOf(fragment);
    if (!recipe) return false;
    pane.setXml(recipe.xml, recipe.name);
    if (recipe.growth) growth.restore(recipe.growth);
  } catch {
    note("The recipe in the link can't be read: the link is incomplete or was changed on its way.");
    return false;
  } finally {
    if (fragment.startsWith("#recipe=")) clearFragment();
  }
  return true;
}

// A reload shows what was changed since, not the link again.
function clearFragment() {
  try {
    history.replaceState(null, "", location.href.replace(/#.*/, ""));
  } catch {
    location.hash = "";
  }
}

function restore() {
  const state = stored(key);
  if (!state?.pane) return false;
  try {
    pane.restore(state.pane);
    if (state.growth) growth.restore(state.growth);
  } catch {
    forget(key); // of another version of the page
    return false;
  }
  return true;
}

async function start() {
  if (embeddedNote) note(embeddedNote);
  if (!await openLink()) restore();
  if (newest === 0) pane.rerun();
}

function shortcut(event) {
  if (event.defaultPrevented) return; // the editor of the XML has its own
  const word = event.key.toLowerCase(), control = event.ctrlKey || event.metaKey;
  const action = control && word === "z" ? (event.shiftKey ? pane.redo : pane.undo)
    : control && word === "y" ? pane.redo
    : control && word === "s" ? pane.save
    : control && word === "o" ? pane.chooseFile
    : event.altKey && word === "1" ? () => pane.showTab("table")
    : event.altKey && word === "2" ? () => pane.showTab("xml")
    : event.key === "?" && !event.target.closest?.("input, textarea, select, .CodeMirror") ? showHelp : null;
  if (!action || document.querySelector("dialog[open]")) return;
  event.preventDefault();
  action();
}

// On narrow screens one half is shown at a time.
function showHalf(half) {
  document.body.dataset.half = half;
  for (const each of ["recipe", "growth"]) at(`half-${each}`).setAttribute("aria-pressed", String(each === half));
  window.dispatchEvent(new Event("resize"));
}

at("help").onclick = showHelp;
at("about").onclick = () => showAbout(data);
at("cancel").onclick = () => engine.cancel();
at("again").onclick = () => pane.rerun();
at("note-close").onclick = () => note("");
for (const half of ["recipe", "growth"]) at(`half-${half}`).onclick = () => showHalf(half);
showHalf("recipe");
addEventListener("keydown", shortcut);
addEventListener("hashchange", openLink);
addEventListener("pagehide", () => store(key, {pane: pane.state(), growth: growth.state()}));
addEventListener("dragover", event => event.preventDefault());
addEventListener("drop", event => {
  event.preventDefault();
  const file = event.dataTransfer?.files[0];
  if (file) pane.openFile(file);
});
// Whatever goes wrong, the page says so and continues.
addEventListener("error", event => note(`An error of the page: ${event.message}`));
addEventListener("unhandledrejection", event => note(`An error of the page: ${event.reason?.message ?? event.reason}`));
window.vorlen = {engine, pane, growth, get last() { return last; }};
start();

// The recipe half of the page: toolbar, problems, table of stages with the panel of the selected one, and the XML.
//
//   createRecipePane(node, {xml, name, examples, check, onChange, onFault, onUnits, onShare, onNote})
//
// examples  [{name, title, xml}]
// check     async (xml) => {findings}, as engine.check
// onChange  called with the recipe after each change that can be run; not for texts that are not well-formed
// onFault   called with a text when the XML is not well-formed, so that there is nothing to run
// onUnits   called when other units were chosen; unitOf(quantity) of the answer gives them
// onShare   called when a link to the recipe is wanted; onNote with a text for the user
//
// The answer has rerun(), xml(), hasFault(), name(), unitOf(quantity), setXml(xml, name), markFindings(findings), showRunFailure(outcome or null), state() and
// restore(state). Nothing here throws on any text of a recipe.
import {attributeAt, attributeEdits, elementAt} from "./xml_text.js";
import {button, debounced, el} from "./dom.js";
import {createModel} from "./model.js";
import {decodedRecipe, fileName, saveFile} from "./files.js";
import {createActions} from "./actions.js";
import {located, stageNamedIn, stagePathOf} from "./findings.js";
import {problemList} from "./problems.js";
import {settings, settingsShape} from "./settings.js";
import {panelShape, stagePanel} from "./stage_panel.js";
import {PROCESS, isPeriodic, stagesOf} from "./stages.js";
import {ROWS_SHOWN, shapeOf, stageTable} from "./table.js";
import {toolbar} from "./toolbar.js";
import {chosenUnits} from "./unit_choice.js";
import {createXmlEditor} from "./xml_editor.js";

const CHECK_DELAY = 250; // ms after the last change
const TYPING_DELAY = 250; // ms after the last key, before a run; sliders run at once

export function createRecipePane(node, {xml, name = "recipe.xml", examples = [], check, onChange, onFault = () => {}, onUnits = () => {}, onShare = () => {}, onNote = () => {}}) {
  const p = {
    examples, tab: "table", selected: null, rowsShown: ROWS_SHOWN, settingsOpen: false, checkState: "",
    faults: new Map(), findings: [], forcedRamps: new Set(), columns: new Set(), failure: null,
  };
  p.model = createModel(changed);
  const units = chosenUnits(p);
  p.unitOf = units.of;
  p.actions = createActions(p, onNote);
  let recipeName = name, editor = null, shapes = {}, fields = [], editorOpen = false;
  let started = false; // the first recipe is run by rerun()
  let sent = null; // the text of the last run
  let table = null, byPath = new Map();

  // ---- What the parts of the pane call

  p.setValues = (path, texts, group) => {
    const element = elementAt(p.model.root, path);
    if (!element) return;
    const edits = Object.entries(texts).flatMap(([attribute, text]) => attributeEdits(p.model.text, element, attribute, text));
    p.model.edit(edits, group);
  };
  p.setFault = (key, text) => {
    if ((p.faults.get(key) ?? null) === text) return;
    if (text) p.faults.set(key, text);
    else p.faults.delete(key);
    showMarks();
  };
  p.findingsAt = path => byPath.get(path) ?? [];
  p.wordsFor = key => attributeAt(p.model.root, `${stagePathOf(key)}/name`) || stagePathOf(key)?.split("/").at(-1) || key.split("@")[0];
  p.refresh = () => show(true);
  p.select = (path, {toggle = false, keep = false} = {}) => {
    if (p.selected === path) {
      if (!toggle || keep) return;
      path = null;
    }
    p.selected = path;
    show();
  };
  p.undo = () => p.model.undo();
  p.redo = () => p.model.redo();
  p.share = () => onShare(p.model.shownText, recipeName);
  p.save = () => saveFile(fileName(recipeName), p.model.shownText, "application/xml");
  p.chooseUnit = (quantity, unit) => { units.choose(quantity, unit); p.refresh(); onUnits(); };
  p.open = (text, fresh) => {
    const renamed = fresh !== recipeName;
    recipeName = fresh;
    p.selected = null;
    p.faults.clear();
    p.forcedRamps.clear();
    p.columns.clear();
    p.rowsShown = ROWS_SHOWN;
    const before = sent;
    p.model.load(text);
    units.suit();
    selectFirst();
    show(true);
    if (renamed && before !== null && sent === before) send(); // the same recipe under another name
  };
  p.openFile = async file => {
    if (file.size > 64e6) return onNote(`${file.name}: the file is too large for a recipe`);
    const {xml: text, note, fault} = decodedRecipe(new Uint8Array(await file.arrayBuffer()));
    if (fault) return onNote(`${file.name}: ${fault}`);
    p.open(text, file.name);
    onNote(note);
  };
  p.showTab = tab => {
    p.tab = tab;
    show();
    if (tab === "xml") editor?.refresh();
  };
  p.goTo = problem => {
    const path = problem.key ? problem.key.split("@")[0] : problem.target;
    const stage = stagePathOf(path);
    if (p.tab === "xml" || !path || p.model.draft) {
      p.showTab("xml");
      return editor.focus(problem.line, problem.column);
    }
    if (stage) p.select(stage);
    const field = fieldAt(path);
    if (!field) {
      p.showTab("xml");
      return editor.focus(problem.line, problem.column);
    }
    field.closest("details:not([open])")?.setAttribute("open", "");
    field.focus();
    field.scrollIntoView({block: "nearest"});
  };

  // ---- Parts

  const tools = toolbar(p), problems = problemList(p);
  const draftNote = el("div", {class: "draft", role: "status", hidden: true});
  const failureNote = el("div", {class: "run-failure", hidden: true});
  const scroll = el("div", {class: "scroll stages-scroll", tabindex: "0", role: "region", "aria-label": "Stages"});
  const dock = el("div", {class: "dock"}), more = el("div", {class: "more-settings"});
  const content = el("fieldset", {class: "content"}, scroll, dock, more);
  const tablePane = el("div", {id: "pane-table", role: "tabpanel", "aria-labelledby": "tab-table"}, draftNote, content);
  const xmlNote = el("div", {class: "draft", role: "status", hidden: true});
  const editorNode = el("div", {class: "editor"});
  const xmlPane = el("div", {id: "pane-xml", role: "tabpanel", "aria-labelledby": "tab-xml", hidden: true}, xmlNote, editorNode);
  node.replaceChildren(tools.node, problems.node, failureNote, tablePane, xmlPane);
  const narrow = matchMedia("(max-width: 640px)");
  narrow.addEventListener("change", () => show(true));

  const checkLater = debounced(async () => {
    const text = p.model.shownText;
    const answer = await check(text);
    if (text === p.model.shownText && answer?.findings) markFindings(answer.findings);
  }, CHECK_DELAY);
  const changeLater = debounced(send, TYPING_DELAY);

  function changed({source}) {
    if (source !== "table") p.faults.clear();
    if (source === "load") byPath = new Map(p.findings = []);
    setFailure(null);
    if (p.selected && p.model.root && !elementAt(p.model.root, p.selected)) p.selected = null;
    show();
    checkLater();
    changeLater.cancel();
    if (p.model.draft) {
      sent = null;
      return onFault(placed(p.model.draft.error));
    }
    if (p.model.text === sent) return; // the text is back at what was run
    const typing = source === "xml" || document.activeElement?.matches?.("input[type=text]");
    if (typing) changeLater();
    else if (started) send();
  }

  function send() {
    if (p.model.draft || !p.model.root) return;
    sent = p.model.text;
    onChange(sent);
  }

  // ---- Showing

  // Fields take their new values; parts whose shape has changed, or all on request, are built again.
  function show(all = false) {
    const focus = all || p.model.root ? focused() : null;
    tools.show();
    showDraft();
    tablePane.hidden = p.tab !== "table";
    xmlPane.hidden = p.tab !== "xml";
    if (p.tab === "xml") showEditor();
    if (p.model.root) {
      const fresh = {table: shapeOf(p), panel: p.selected ? panelShape(p, p.selected) : "", settings: settingsShape(p), narrow: narrow.matches};
      const rebuild = part => all || fresh[part] !== shapes[part] || fresh.narrow !== shapes.narrow;
      const parts = ["table", "panel", "settings"].filter(rebuild);
      if (parts.includes("table") && !parts.includes("panel") && narrow.matches) parts.push("panel");
      shapes = fresh;
      for (const part of parts) build[part]();
      if (parts.length) restoreFocus(focus);
      for (const [path, row] of table.rowNodes) row.classList.toggle("selected", path === p.selected);
      for (const each of scroll.querySelectorAll("button.select")) {
        each.setAttribute("aria-expanded", String(each.closest("tr").dataset.path === p.selected));
      }
    }
    showMarks();
  }

  const built = {table: [], panel: [], settings: []};
  const build = {
    table() {
      table = stageTable(p);
      built.table = table.fields;
      scroll.replaceChildren(table.node);
    },
    panel() {
      for (const old of node.querySelectorAll("tr.panel-row")) old.remove();
      dock.replaceChildren();
      built.panel = [];
      if (!p.selected) return;
      const panel = stagePanel(p, p.selected), row = table.rowNodes.get(p.selected);
      built.panel = panel.fields;
      if (narrow.matches && row) row.after(el("tr", {class: "panel-row"}, el("td", {colspan: table.width}, panel.node)));
      else dock.replaceChildren(panel.node);
    },
    settings() {
      const made = settings(p);
      built.settings = made.fields;
      more.replaceChildren(made.node);
    },
  };

  function showMarks() {
    fields = [...built.table, ...built.panel, ...built.settings];
    for (const field of fields) field.show();
    problems.show();
    showMessages();
    editor?.mark([...p.findings, ...(p.model.draft ? [{...p.model.draft.error, severity: "error"}] : [])]);
  }

  // Below the row of a stage: what the check and the run say about it.
  function showMessages() {
    if (!table) return;
    for (const old of scroll.querySelectorAll("tr.message-row")) old.remove();
    const texts = new Map();
    const add = (path, kind, text) => texts.set(path, [...(texts.get(path) ?? []), {kind, text}]);
    for (const [key, text] of p.faults) add(stagePathOf(key), "error", `${key.split("@")[0].split("/").at(-1)}: ${text}`);
    for (const finding of p.findings) if (finding.stagePath && !finding.repeated) add(finding.stagePath, finding.severity, finding.text);
    if (p.failure?.path && !isKnown(p.failure)) add(p.failure.path, "error", p.failure.text);
    for (const [path, list] of texts) {
      const row = table.rowNodes.get(path);
      if (!row) continue;
      row.after(el("tr", {class: "message-row"}, el("td", {colspan: table.width},
        list.slice(0, 3).map(({kind, text}) => el("p", {class: kind}, text)),
        list.length > 3 ? el("p", {}, `and ${list.length - 3} more`) : null)));
    }
  }

  // The failure of a run is shown once: not if the check has found it, and above the table only if it is in no stage.
  function isKnown(failure) { return p.findings.some(finding => finding.text === failure.message); }

  function setFailure(failure) {
    p.failure = failure;
    failureNote.hidden = !failure || isKnown(failure) || Boolean(table?.rowNodes.has(failure.path));
    failureNote.replaceChildren(el("strong", {}, failure?.crashed ? "The solver stopped. " : "The run failed. "), failure?.text ?? "");
  }

  function showDraft() {
    const {draft, root} = p.model;
    draftNote.hidden = xmlNote.hidden = !draft;
    content.disabled = Boolean(draft);
    content.classList.toggle("stale", Boolean(draft));
    if (!draft) return;
    const text = `${placed(draft.error)}.`;
    xmlNote.textContent = text;
    draftNote.replaceChildren(el("p", {}, `The XML can't be shown as a table. ${text}`),
      el("p", {}, root ? "The table shows the last state that could be read." : "Correct the XML, or open another recipe."),
      button("Go to the place", () => { p.showTab("xml"); editor.focus(draft.error.line, draft.error.column); }, {class: "small"}),
      root ? button("Discard the XML", () => p.model.discardDraft(), {class: "small"}) : "");
  }

  function placed(error) { return (error.line ? `Line ${error.line}: ` : "") + error.message; }

  function showEditor() {
    editor ??= createXmlEditor(editorNode, {typed: text => p.model.type(text), undo: p.undo, redo: p.redo});
    editor.show(p.model.shownText);
    if (!editorOpen) editor.refresh();
    editorOpen = true;
  }

  // ---- Focus: fields that are built again keep it

  function fieldAt(path) {
    const fits = [...node.querySelectorAll("[data-key]")].filter(each => each.dataset.key.split("@")[0] === path && each.dataset.view);
    return fits.find(each => each.dataset.view === "panel") ?? fits[0] ?? null;
  }

  function focused() {
    const active = document.activeElement;
    if (!active || !node.contains(active) || !active.dataset.key) return null;
    return {key: active.dataset.key, view: active.dataset.view, value: active.value, place: active.selectionStart ?? null, top: active.getBoundingClientRect().top};
  }

  function restoreFocus(focus) {
    if (!focus || document.activeElement?.dataset?.key === focus.key) return;
    const field = [...node.querySelectorAll("[data-key]")].find(each => each.dataset.key === focus.key && each.dataset.view === focus.view);
    if (!field) return;
    field.focus({preventScroll: true});
    if (focus.place !== null && field.type === "text") {
      field.value = focus.value;
      field.setSelectionRange(focus.place, focus.place);
      field.dispatchEvent(new Event("restored"));
    }
  }

  function selectFirst() {
    const {root} = p.model;
    if (!root) return;
    const first = stagesOf(root, PROCESS)[0];
    p.selected = narrow.matches ? null : first && isPeriodic(root, first) ? stagesOf(root, first)[0] ?? first : first ?? null;
  }

  function markFindings(findings) {
    p.findings = located(findings, p.model.shownText, p.model.draft ? null : p.model.root);
    p.checkState = "No problems";
    byPath = new Map();
    for (const finding of p.findings) {
      if (finding.target !== null) byPath.set(finding.target, [...(byPath.get(finding.target) ?? []), finding]);
    }
    setFailure(p.failure);
    showMarks();
  }

  p.open(xml, name);
  started = true;
  return {
    // Calls onChange with the recipe, as after a change.
    rerun: send,
    xml: () => p.model.shownText,
    hasFault: () => Boolean(p.model.draft),
    name: () => recipeName,
    unitOf: units.of,
    setXml: (text, fresh = recipeName) => p.open(text, fresh),
    openFile: p.openFile,
    markFindings,
    // Shows why a run failed, next to its stage; null after a run that did not fail.
    showRunFailure(outcome) {
      const texts = outcome && outcome.status !== "cancelled" ? [outcome.message, outcome.stage, outcome.unphysical, outcome.remedy].filter(Boolean) : [];
      const text = [...new Set(texts)].join(". ").replaceAll(".. ", ". ");
      const place = stageNamedIn([outcome?.stage, outcome?.unphysical, outcome?.message].join(" "));
      setFailure(text ? {text, message: outcome.message, path: place, crashed: outcome.status === "crashed"} : null);
      showMessages();
    },
    undo: p.undo, redo: p.redo, save: p.save,
    chooseFile: () => node.querySelector("input.file").click(),
    showTab: p.showTab,
    state: () => ({name: recipeName, xml: p.model.shownText, units: units.state(), tab: p.tab, selected: p.selected}),
    restore(state) {
      units.restore(state.units);
      p.open(String(state.xml), String(state.name));
      p.selected = p.model.root && elementAt(p.model.root, state.selected ?? "-") ? state.selected : p.selected;
      p.showTab(state.tab === "xml" ? "xml" : "table");
    },
  };
}

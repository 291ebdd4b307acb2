// The buttons and lists above the table: examples, files, undo, table or XML, units.
import {button, el} from "./dom.js";
import {QUANTITY_NAMES, UNITS} from "./units.js";

const MAC = /Mac|iPhone|iPad/.test(globalThis.navigator?.platform ?? "");
const CONTROL = MAC ? "⌘" : "Ctrl-";

// {node, show()}
export function toolbar(p) {
  const examples = el("select", {"aria-label": "Examples", class: "examples", onchange: () => {
    const example = p.examples.find(each => each.name === examples.value);
    examples.value = "";
    if (example) p.open(example.xml, `${example.name}.xml`);
  }}, el("option", {value: ""}, "Examples…"), p.examples.map(example =>
    el("option", {value: example.name, title: example.title}, `${example.name}: ${example.title}`)));
  const file = el("input", {type: "file", accept: ".xml,text/xml,application/xml", hidden: true, class: "file", onchange: () => {
    if (file.files[0]) p.openFile(file.files[0]);
    file.value = "";
  }});
  const undo = button("Undo", p.undo, {title: `Undo (${CONTROL}Z)`, class: "undo"});
  const redo = button("Redo", p.redo, {title: `Redo (${CONTROL}Shift-Z)`, class: "redo"});
  const tabs = [["table", "Table"], ["xml", "XML"]].map(([key, text]) => button(text, () => p.showTab(key), {
    role: "tab", id: `tab-${key}`, "aria-controls": `pane-${key}`, class: "tab"}));
  const list = el("div", {role: "tablist", "aria-label": "View of the recipe", class: "tabs", onkeydown: event => {
    if (event.key !== "ArrowLeft" && event.key !== "ArrowRight") return;
    p.showTab(p.tab === "table" ? "xml" : "table");
    tabs[p.tab === "table" ? 0 : 1].focus();
  }}, tabs);
  const units = Object.entries(UNITS).map(([quantity, choices]) => {
    const select = el("select", {class: "units", "aria-label": `Unit: ${QUANTITY_NAMES[quantity]}`, title: QUANTITY_NAMES[quantity], "data-quantity": quantity,
      onchange: () => p.chooseUnit(quantity, select.value)}, choices.map(unit => el("option", {value: unit.name}, unit.name)));
    return select;
  });
  const node = el("div", {class: "tools"},
    el("div", {class: "bar", role: "group", "aria-label": "Recipe"}, examples,
      button("Open…", () => file.click(), {title: `Open a recipe (${CONTROL}O); a file can also be dropped on the page`}), file,
      button("Save", p.save, {title: `Save the recipe (${CONTROL}S)`, class: "save"}),
      button("Link", p.share, {title: "A link that contains the recipe", class: "link"}), undo, redo),
    el("div", {class: "bar"}, list, el("span", {class: "unit-choice", role: "group", "aria-label": "Units"},
      el("span", {class: "unit-head"}, "Units"), units)));

  return {node, show() {
    undo.disabled = !p.model.canUndo();
    redo.disabled = !p.model.canRedo();
    tabs.forEach((tab, k) => {
      const chosen = p.tab === ["table", "xml"][k];
      tab.setAttribute("aria-selected", String(chosen));
      tab.tabIndex = chosen ? 0 : -1;
    });
    for (const select of units) select.value = p.unitOf(select.dataset.quantity).name;
  }};
}

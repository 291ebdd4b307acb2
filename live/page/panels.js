// Panels over the page: help with the keyboard, about, a link to the recipe.
import {button, el} from "./recipe/dom.js";

function openPanel(title, ...content) {
  const panel = el("dialog", {class: "sheet", "aria-label": title},
    el("div", {class: "sheet-head"}, el("h2", {}, title), button("Close", () => panel.close(), {class: "close"})), content);
  panel.addEventListener("close", () => panel.remove());
  panel.addEventListener("click", event => { if (event.target === panel) panel.close(); });
  document.body.append(panel);
  panel.showModal();
  return panel;
}

const KEYS = [
  ["Ctrl-Z, Ctrl-Shift-Z", "undo, redo; a movement of a slider is one step"],
  ["Ctrl-S", "save the recipe"],
  ["Ctrl-O", "open a recipe"],
  ["Tab", "to the next field"],
  ["↑ ↓ in a number", "a step up or down"],
  ["← → on a slider", "a step; Page Up and Page Down: ten"],
  ["Esc in a number", "the last good value"],
  ["Alt-1, Alt-2", "table, XML"],
  ["?", "this help, outside of fields"],
];

export function showHelp() {
  openPanel("Help",
    el("p", {}, "Change a number or move a slider, and the growth is computed at once, by the same solver as the command vorlen. " +
      "Everything happens in this page: nothing is sent anywhere."),
    el("ul", {},
      el("li", {}, "The rows of the table are the stages in the order of growth. The panel below has all values of the selected stage."),
      el("li", {}, "Two numbers in a cell are a ramp from the start to the end of the stage. Its slider moves both."),
      el("li", {}, "Table and XML show one recipe. A change in the table changes only that value in the XML."),
      el("li", {}, "Units are those of the screen: at first those in which the numbers of the recipe are shortest. The recipe keeps K, Pa and sccm."),
      el("li", {}, "Problems are marked where they are and listed above the table. A click leads to the place.")),
    el("h3", {}, "Keyboard"),
    el("table", {class: "keys"}, el("tbody", {}, KEYS.map(([keys, use]) => el("tr", {}, el("th", {scope: "row"}, keys), el("td", {}, use))))));
}

// data: {version, licences: [{name, use, text}]}
export function showAbout(data) {
  openPanel("About this page",
    el("p", {}, `VorlenSolver ${data.version}: growth of III-nitride layers by MOVPE. The page contains the solver itself, compiled to ` +
      "WebAssembly; its results are those of the command-line tool."),
    el("p", {}, "It is one file and works without a network. Copy it to another computer or a phone, or keep it with the recipe as a record."),
    el("p", {}, "Your browser keeps the last state of the page, where it allows this for files. Nothing else is stored."),
    el("h3", {}, "Bundled libraries and their licences"),
    data.licences.map(each => el("details", {}, el("summary", {}, `${each.name} (${each.use})`), el("pre", {tabindex: "0"}, each.text))));
}

export function showLink(address) {
  const field = el("textarea", {readonly: true, rows: "5", class: "address", "aria-label": "Link to the recipe"});
  field.value = address;
  const note = el("span", {role: "status"});
  const copy = button("Copy", async () => {
    field.select();
    try {
      await navigator.clipboard.writeText(address);
      note.textContent = "Copied.";
    } catch {
      note.textContent = document.execCommand("copy") ? "Copied." : "Press Ctrl-C to copy.";
    }
  });
  const local = address.startsWith("file:");
  openPanel("Link to this recipe", el("p", {}, "The link contains the whole recipe. " + (local
    ? "This page is a file, so the link opens where the file is at the same place. With another copy of the page, append the part from # on to its address."
    : "Whoever opens it sees this page with this recipe.")), field, el("p", {class: "bar"}, copy, note));
  field.select();
}

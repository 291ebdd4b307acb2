// The recipe that is being edited: its text, the elements in it, undo and redo.
//
// The text is always one that can be shown as a table. A text from the XML editor that is not well-formed is kept as a
// draft beside it, and the table keeps the last good state.
import {applied, parseXml} from "./xml_text.js";
import {createHistory} from "./history.js";

export const SIZE_MAX = 4e6; // characters; larger recipes would make the page slow
const ROOT = "NonstSurfChem";

// {root}, or {error: {message, line, column}}.
export function parseRecipe(text) {
  if (text.length > SIZE_MAX) {
    return {error: {message: `the recipe has ${(text.length / 1e6).toFixed(1)} million characters, and this page takes up to ` +
      `${SIZE_MAX / 1e6} million; run it with “vorlen run”`, line: 0, column: 0}};
  }
  if (text.includes("\0")) return {error: {message: "the text contains a zero byte", line: 0, column: 0}};
  const result = parseXml(text);
  if (!result.error && result.root.tag !== ROOT) {
    return {error: {message: `this is not a recipe: the root element is ${result.root.tag.slice(0, 40)}, not ${ROOT}`, line: 1, column: 1}};
  }
  return result;
}

// changed({source}) is called after every change; source is "load", "table", "xml" or "history".
export function createModel(changed) {
  let text = "", root = null, draft = null, history = null;

  const model = {
    get text() { return text; },
    get root() { return root; }, // null until there is a recipe that can be shown
    get draft() { return draft; }, // {text, error} of a text that can't be shown, or null
    get shownText() { return draft ? draft.text : text; },

    // Replaces the whole text, as one step that can be undone.
    load(fresh) { take(fresh, null, "load"); },
    // Text typed in the XML editor.
    type(fresh) { take(fresh, "xml", "xml"); },
    edit(edits, group = null) {
      if (edits.length) take(applied(text, edits), group, "table");
    },
    replace(fresh, group = null) { take(fresh, group, "table"); },
    discardDraft() {
      if (!draft) return;
      draft = null;
      changed({source: "history"});
    },
    seal() { history?.seal(); },
    undo() { if (draft && root) model.discardDraft(); else restore(history?.undo()); },
    redo() { restore(history?.redo()); },
    canUndo: () => Boolean((draft && root) || history?.canUndo()),
    canRedo: () => Boolean(history?.canRedo()),
  };
  return model;

  function take(fresh, group, source) {
    if (fresh === text && !draft && root) return;
    const result = parseRecipe(fresh);
    if (result.error) {
      draft = {text: fresh, error: result.error};
    } else {
      draft = null;
      text = fresh;
      root = result.root;
      if (history) history.push(text, group);
      else history = createHistory(text);
    }
    changed({source});
  }

  function restore(earlier) {
    if (earlier === null || earlier === undefined) return;
    draft = null;
    text = earlier;
    root = parseRecipe(text).root;
    changed({source: "history"});
  }
}

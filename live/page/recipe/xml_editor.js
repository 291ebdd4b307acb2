// The XML of the recipe in an editor, made when it is first shown.
import CodeMirror from "codemirror";
import "codemirror/mode/xml/xml.js";
import "codemirror/addon/edit/closetag.js";

// The raw text after a change of the editor, which knows line feeds only: the line ends elsewhere stay as they are.
export function mergedText(raw, edited) {
  const normal = raw.replace(/\r\n|\r/g, "\n");
  if (normal === edited) return raw;
  let head = 0;
  const shorter = Math.min(normal.length, edited.length);
  while (head < shorter && normal[head] === edited[head]) ++head;
  let tail = 0;
  while (tail < shorter - head && normal[normal.length - 1 - tail] === edited[edited.length - 1 - tail]) ++tail;
  const rawPlace = offset => {
    let place = 0;
    for (let k = 0; k < offset; ++k) place += raw[place] === "\r" && raw[place + 1] === "\n" ? 2 : 1;
    return place;
  };
  const lineEnd = /\r\n|\r|\n/.exec(raw)?.[0] ?? "\n";
  const middle = edited.slice(head, edited.length - tail).replaceAll("\n", lineEnd);
  return raw.slice(0, rawPlace(head)) + middle + raw.slice(rawPlace(normal.length - tail));
}

// typed(text) is called for each change by the user. undo and redo replace those of the editor.
export function createXmlEditor(node, {typed, undo, redo}) {
  let raw = "", marks = [];
  const editor = CodeMirror(node, {
    mode: "xml", lineNumbers: true, lineWrapping: false, tabSize: 2, autoCloseTags: true, inputStyle: "contenteditable",
    extraKeys: {
      "Ctrl-Z": undo, "Cmd-Z": undo, "Shift-Ctrl-Z": redo, "Shift-Cmd-Z": redo, "Ctrl-Y": redo, "Ctrl-D": false,
      // The key that leaves the editor: without it, Tab would hold the keyboard.
      Tab: false, "Shift-Tab": false,
    },
  });
  editor.getInputField().setAttribute("aria-label", "XML of the recipe");
  editor.on("changes", (_, changes) => {
    if (changes.every(change => change.origin === "setValue")) return;
    raw = mergedText(raw, editor.getValue());
    typed(raw);
  });

  return {
    // Shows a text; the cursor and what is seen stay where they are, as far as the text is the same.
    show(text) {
      if (text === raw) return;
      const old = editor.getValue(), fresh = text.replace(/\r\n|\r/g, "\n");
      raw = text;
      if (old === fresh) return;
      let head = 0, tail = 0;
      const shorter = Math.min(old.length, fresh.length);
      while (head < shorter && old[head] === fresh[head]) ++head;
      while (tail < shorter - head && old[old.length - 1 - tail] === fresh[fresh.length - 1 - tail]) ++tail;
      const {doc} = editor;
      doc.replaceRange(fresh.slice(head, fresh.length - tail), doc.posFromIndex(head), doc.posFromIndex(old.length - tail), "setValue");
    },
    refresh() { editor.refresh(); },
    focus(line, column) {
      editor.focus();
      if (line) {
        editor.setCursor({line: line - 1, ch: (column || 1) - 1});
        editor.scrollIntoView(null, 80);
      }
    },
    // Marks the lines of findings: {line, column, severity, text}.
    mark(findings) {
      for (const mark of marks) editor.removeLineClass(mark, "background");
      marks = [];
      for (const finding of findings.slice(0, 200)) {
        if (!finding.line || finding.line > editor.lineCount()) continue;
        marks.push(editor.addLineClass(finding.line - 1, "background", finding.severity === "error" ? "line-error" : "line-warning"));
      }
    },
    text: () => raw,
  };
}

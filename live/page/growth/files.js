// Files that the pane saves: made in the page, without a network.

const COLUMNS = ["number", "name", "kind"]; // first of the layers

export function save(name, type, content) {
  const link = document.createElement("a");
  link.href = URL.createObjectURL(new Blob([content], { type }));
  link.download = name;
  document.body.append(link);
  link.click();
  link.remove();
  setTimeout(() => URL.revokeObjectURL(link.href), 60000); // ms
}

// The name of a recipe as the start of file names.
export function stemOf(name) {
  return name.replace(/\.(xml|txt)$/i, "").replace(/[^\p{L}\p{N}_.-]+/gu, "-").replace(/^[-.]+|[-.]+$/g, "") || "recipe";
}

// Comma-separated values of the layers, with the identifiers of docs/result-format.md, as `vorlen show --csv` writes them.
export function layersText(layers) {
  const names = layers.length ? Object.keys(layers[0]) : COLUMNS;
  return lines([names, ...layers.map((layer) => names.map((name) => layer[name]))]);
}

// The rows, as `vorlen show --rows` writes them: `active` first.
export function rowsText(columns) {
  const names = ["active", ...Object.keys(columns).filter((name) => name !== "active")];
  const rows = Array.from(columns.time ?? [], (_, row) => names.map((name) => columns[name][row]));
  return lines([names, ...rows]);
}

function lines(records) {
  return records.map((values) => values.map(cell).join(",") + "\n").join("");
}

function cell(value) {
  if (value === null || value === undefined || Number.isNaN(value)) return "";
  if (typeof value === "number") return Object.is(value, -0) ? "-0" : String(value);
  return /[",\r\n]/.test(value) ? `"${value.replaceAll('"', '""')}"` : value;
}

// Colours and text of the pictures: one style sheet for the page, in light and dark mode, and for saved files, which are
// always light. Curves have the colours of the reports (Okabe and Ito's palette for colour-blind readers).

const COLOURS = { // light, dark
  ink: ["#1c2733", "#e6ebf0"],
  soft: ["#4a5866", "#a9b6c3"],
  paper: ["#ffffff", "#1b232b"],
  shade: ["#e9eef3", "#242f39"],
  grid: ["#d5dbe1", "#33404c"],
  axis: ["#44525f", "#93a2b0"],
  indium: ["#d55e00", "#ff8c42"],
  gallium: ["#0072b2", "#5bb4f0"],
  aluminium: ["#008f68", "#2fcf9d"],
  strain: ["#aa3377", "#f07fbf"],
  warm: ["#b87500", "#eab04a"],
  ghost: ["#8a97a3", "#71808e"], // the last run that succeeded, under one that failed
  kept1: ["#7b5ea7", "#b99cf0"],
  kept2: ["#8a7400", "#d9c24a"],
  kept3: ["#00808a", "#4fc7d0"],
  kept4: ["#8a5a3c", "#c99877"],
  kept5: ["#5f6f80", "#a3b3c4"],
};
export const KEPT_MAX = 5;

const RULES = `
.picture { font-family: system-ui, "Segoe UI", Roboto, Helvetica, Arial, sans-serif; font-size: 12px; font-variant-numeric: tabular-nums; }
.picture text { fill: var(--plot-ink); stroke: none; }
.picture .soft { fill: var(--plot-soft); }
.picture .head { font-weight: 600; }
.picture .shade { fill: var(--plot-shade); }
.picture .curve, .picture .key { fill: none; stroke-width: 1.8; stroke-linejoin: round; }
.picture .thin { stroke-width: 1; }
.picture .dashed { stroke-dasharray: 5 3; }
.picture .domain, .picture .tick line { stroke: var(--plot-axis); fill: none; }
.picture .tick text { fill: var(--plot-soft); font-size: 11px; }
.picture .grid { stroke: var(--plot-grid); fill: none; }
.picture .frame { stroke: var(--plot-axis); fill: none; }
.picture .cursor { stroke: var(--plot-ink); stroke-dasharray: 3 2; }
.picture .selection { fill: var(--plot-gallium); fill-opacity: .18; }
.picture .edge { stroke: var(--plot-axis); stroke-width: .6; fill: none; }
.picture .lead { stroke: var(--plot-axis); stroke-width: .8; fill: none; }
.picture .cut { stroke: var(--plot-paper); stroke-width: 2.5; fill: none; }
`;

function variables(mode) {
  return Object.entries(COLOURS).map(([name, values]) => `--plot-${name}: ${values[mode]};`).join(" ");
}

// The style sheet of the page.
export function installPalette() {
  if (document.getElementById("plot-style")) return;
  const style = document.createElement("style");
  style.id = "plot-style";
  style.textContent = `:root { ${variables(0)} }
@media screen and (prefers-color-scheme: dark) { :root { ${variables(1)} } }
${RULES}`;
  document.head.append(style);
}

// The style sheet of a saved picture.
export function lightStyle() {
  return `.picture { ${variables(0)} }${RULES}`;
}

export function colour(name) {
  return `var(--plot-${name})`;
}

// Colour of a composition [In, Ga, Al]: a mixture of those of the three nitrides.
export function alloyColour(x) {
  if (!x.every(Number.isFinite)) return "#999999";
  let shares = x.map((value) => Math.min(Math.max(value, 0), 1));
  shares[0] = 1.5 * shares[0] ** 0.4; // makes a little indium visible
  const sum = Math.max(shares[0] + shares[1] + shares[2], 1e-9);
  const mixed = [0, 1, 2].map((part) => NITRIDES.reduce((value, nitride, metal) => value + (nitride[part] * shares[metal]) / sum, 0));
  return "#" + mixed.map((value) => Math.floor(value).toString(16).padStart(2, "0")).join("");
}
const NITRIDES = [[226, 88, 14], [186, 204, 224], [32, 156, 112]]; // InN, GaN, AlN; as in the reports

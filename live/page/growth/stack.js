// The layers as a picture, from the bottom up. Heights are in proportion to the thickness, but thin layers are made visible
// and thick ones are cut (a white line through them), so that wells are seen on a template. Repeated groups are drawn once,
// with "× 5". Names never overlap.
import { alloy, compositionOf, groupsOf, oneLine, thicknessOf } from "./layers.js";
import { length } from "./numbers.js";
import { alloyColour } from "./palette.js";
import { svgElement } from "./svg.js";

const WIDTH = 248, HEIGHT = 400, TOP = 26, FOOT = 8, LEFT = 26, BAR = 54; // pixels
const LEAST = 4, LEAST_PAUSE = 1, CUT = 56; // pixels of a layer that would be thinner, of a pause, and of a layer that is cut
const WANTED = 14; // pixels of the thinnest alloy; thicker layers are cut for it
const THINNEST = 1; // nm; thinner layers need not be visible
const PAUSE = 0.25; // nm; thinner layers are pauses and interfaces, and have no name
const LINE = 15, SHIFT = 70; // pixels that a name needs, and by which it may be moved
const LETTERS = 21; // of a name with its thickness

// node: its container; onLayer(number): a layer was clicked. Gives {draw(layers), svg}.
export function createStack(node, onLayer) {
  const svg = svgElement("svg", { class: "picture stack", viewBox: `0 0 ${WIDTH} ${TOP + HEIGHT + FOOT}`, role: "img",
    "aria-labelledby": "stack-title stack-text" }, node);
  const title = svgElement("title", { id: "stack-title" }, svg), description = svgElement("desc", { id: "stack-text" }, svg);
  let drawn = "";
  svg.addEventListener("click", ({ target }) => {
    const place = target.closest("[data-layer]");
    if (place) onLayer(Number(place.dataset.layer));
  });

  // layers: those that were reached.
  function draw(layers) {
    const { items, brackets } = itemsOf(layers);
    const key = JSON.stringify([items, brackets]);
    if (key === drawn) return;
    drawn = key;
    while (description.nextSibling) description.nextSibling.remove();
    const total = layers.reduce((sum, layer) => sum + (layer.kind === "active" ? thicknessOf(layer) : 0), 0);
    title.textContent = "Stack of layers";
    description.textContent = `From the bottom up: ${items.filter(({ name }) => name).map((item) =>
      `${item.name} ${item.size}, ${item.what}`).join("; ")}.` +
      brackets.map(({ first, last, periods }) => ` ${items[first].name || "From here"} to ${items[last].name || "here"} ${periods} times.`).join("");
    svgElement("text", { class: "head", x: LEFT, y: 14 }, svg, `Layers, ${length(total)} grown`);
    drawBar(items, brackets);
  }

  function drawBar(items, brackets) {
    const pixels = pixelsOf(items);
    const edges = [TOP + HEIGHT];
    for (const size of pixels) edges.push(edges.at(-1) - size);
    items.forEach((item, place) => {
      const [low, high] = [edges[place], edges[place + 1]];
      const box = svgElement("rect", { x: LEFT, y: high.toFixed(1), width: BAR, height: (low - high + 0.3).toFixed(1),
        fill: item.colour, "data-layer": item.number }, svg);
      svgElement("title", {}, box, `${item.number}. ${item.full}: ${item.size} ${item.what}`);
      if (low - high > LEAST) svgElement("path", { class: "edge", d: `M${LEFT} ${high.toFixed(1)}h${BAR}` }, svg);
      if (item.isCut) {
        const y = (low + high) / 2, wave = Array.from({ length: 6 }, (_, k) => `l${BAR / 12} ${k ? -6 : -3}l${BAR / 12} 6`).join("");
        svgElement("path", { class: "cut", d: `M${LEFT} ${y}${wave}` }, svg);
      }
    });
    svgElement("rect", { class: "frame", x: LEFT, y: edges.at(-1), width: BAR, height: edges[0] - edges.at(-1) }, svg);
    const right = LEFT + BAR;
    for (const { place, y } of placedNames(items, pixels, edges)) {
      const item = items[place], middle = (edges[place] + edges[place + 1]) / 2;
      svgElement("path", { class: "lead", d: `M${right} ${middle.toFixed(1)}L${right + 12} ${y.toFixed(1)}` }, svg);
      const text = svgElement("text", { x: right + 16, y: (y + 4).toFixed(1), "data-layer": item.number }, svg);
      const room = LETTERS - item.size.length;
      svgElement("tspan", {}, text, item.name.length <= room ? item.name : item.name.slice(0, room - 1) + "…");
      svgElement("tspan", { class: "soft", dx: 4 }, text, item.size);
      if (item.what !== "GaN") {
        svgElement("tspan", { class: "soft", x: right + 16, dy: LINE - 2 }, text, item.what);
      }
    }
    for (const { first, last, periods } of brackets) {
      const low = edges[first], high = edges[last + 1], middle = (low + high) / 2, x = LEFT - 5;
      svgElement("path", { class: "lead", d: `M${x} ${low - 1}h-5V${high + 1}h5` }, svg);
      svgElement("text", { class: "head", transform: `translate(${x - 9} ${middle.toFixed(1)}) rotate(-90)`, "text-anchor": "middle" }, svg, `× ${periods}`);
    }
  }

  return { draw, svg };
}

// The layers to draw, repeated groups once, and brackets {first, last, periods} beside items.
function itemsOf(layers) {
  const items = [], brackets = [];
  for (const { first, size, periods } of groupsOf(layers)) {
    const start = items.length;
    for (const layer of layers.slice(first, first + size)) {
      const thickness = thicknessOf(layer), x = compositionOf(layer);
      if (!(thickness > 0)) continue;
      items.push({ number: layer.number, name: thickness < PAUSE ? "" : oneLine(layer.name), full: oneLine(layer.name),
        thickness, size: length(thickness), what: alloy(x), colour: alloyColour(x), alloyed: alloy(x) !== "GaN" });
    }
    if (periods > 1 && items.length > start) brackets.push({ first: start, last: items.length - 1, periods });
  }
  return { items, brackets };
}

// Pixels of the items, in proportion to the thickness. If that makes thin alloys too thin, the thickest layers are cut, one
// after the other. What is still too thin gets the least size at the cost of the others.
function pixelsOf(items) {
  const counted = items.filter(({ thickness }) => thickness >= THINNEST);
  const alloys = counted.filter(({ alloyed }) => alloyed);
  const thinnest = Math.min(...(alloys.length ? alloys : counted).map(({ thickness }) => thickness));
  const order = [...items].sort((a, b) => b.thickness - a.thickness);
  let scale = 0;
  for (let cuts = 0; cuts < order.length; ++cuts) {
    const rest = order.slice(cuts).reduce((sum, { thickness }) => sum + thickness, 0);
    scale = (HEIGHT - cuts * CUT) / rest;
    if (!(scale * thinnest < WANTED) || !(order[cuts].thickness > CUT / WANTED * thinnest) || (cuts + 1) * CUT > 0.6 * HEIGHT) break;
    order[cuts].isCut = true;
  }
  const wanted = items.map(({ thickness, isCut }) => (isCut ? CUT : Math.max(scale * thickness, thickness < PAUSE ? LEAST_PAUSE : LEAST)));
  const sum = wanted.reduce((total, value) => total + value, 0);
  return wanted.map((value) => (value * HEIGHT) / sum);
}

// Which layers are named, and at which height: alloys first, then the thicker ones. A name is as near to its layer as there
// is room, never passes another, and is left out if it would be too far away.
function placedNames(items, pixels, edges) {
  const middles = items.map((_, place) => (edges[place] + edges[place + 1]) / 2);
  const order = items.map((_, place) => place).filter((place) => items[place].name)
    .sort((a, b) => items[b].alloyed - items[a].alloyed || pixels[b] - pixels[a] || a - b);
  let chosen = [];
  for (const place of order) {
    if (chosen.length >= HEIGHT / LINE) break;
    const tried = [...chosen, place].sort((a, b) => b - a); // downwards
    const ys = spread(tried, items, middles);
    if (ys.every((y, k) => Math.abs(y - middles[tried[k]]) <= SHIFT)) chosen = tried;
  }
  return spread(chosen, items, middles).map((y, k) => ({ place: chosen[k], y }));
}

// Heights of names downwards with room for each, as near to the wanted ones as possible: least squares, which without the
// room is an isotonic regression.
function spread(places, items, middles) {
  const rooms = places.map((place) => (items[place].what !== "GaN" ? 2 : 1) * LINE);
  const before = []; // room above each
  let sum = 0;
  for (const room of rooms) {
    before.push(sum);
    sum += room;
  }
  const blocks = [];
  places.forEach((place, k) => {
    let block = { mean: middles[place] - before[k], count: 1 };
    while (blocks.length && blocks.at(-1).mean > block.mean) {
      const other = blocks.pop(), count = block.count + other.count;
      block = { mean: (block.mean * block.count + other.mean * other.count) / count, count };
    }
    blocks.push(block);
  });
  const [top, bottom] = [TOP + 6, TOP + HEIGHT + FOOT - 4 - sum + LINE / 2];
  return blocks.flatMap(({ mean, count }) => Array(count).fill(Math.min(Math.max(mean, top), Math.max(bottom, top))))
    .map((mean, k) => mean + before[k]);
}

// Variants that are kept for comparison: at most five, each with a name, a colour, its recipe and its result.
import { colour, KEPT_MAX } from "./palette.js";
import { htmlElement } from "./svg.js";

// node: a list element. onChange(): the variants or their names changed; onRecall(variant).
// Gives {list, add, isFull}; a variant is {name, xml, colour, outcome, panels}, with outcome null until it is simulated.
export function createKept(node, { onChange, onRecall }) {
  const variants = [];

  function freeColour() {
    const names = Array.from({ length: KEPT_MAX }, (_, k) => `kept${k + 1}`);
    return names.find((name) => !variants.some((variant) => variant.colour === name));
  }

  function freeName() {
    for (let number = 1; ; ++number) {
      const name = `Variant ${number}`;
      if (!variants.some((variant) => variant.name === name)) return name;
    }
  }

  function add(variant) {
    if (variants.length >= KEPT_MAX) return null;
    const kept = { outcome: null, panels: null, ...variant, name: variant.name ?? freeName(), colour: freeColour() };
    variants.push(kept);
    draw();
    onChange();
    return kept;
  }

  function remove(variant) {
    variants.splice(variants.indexOf(variant), 1);
    draw();
    onChange();
  }

  function draw() {
    node.replaceChildren();
    node.hidden = !variants.length;
    for (const variant of variants) {
      const item = htmlElement("li", {}, node);
      htmlElement("span", { class: "swatch", style: `background: ${colour(variant.colour)}` }, item);
      const name = htmlElement("input", { "aria-label": "Name of the variant", maxlength: 40, size: 14 }, item);
      name.value = variant.name;
      name.addEventListener("change", () => {
        variant.name = name.value.trim() || variant.name;
        name.value = variant.name;
        label();
        onChange();
      });
      const recall = htmlElement("button", { type: "button", class: "recall" }, item, "Recall");
      recall.addEventListener("click", () => onRecall(variant));
      const drop = htmlElement("button", { type: "button", class: "remove" }, item, "Remove");
      drop.addEventListener("click", () => remove(variant));
      const label = () => {
        recall.setAttribute("aria-label", `Recall ${variant.name}`);
        drop.setAttribute("aria-label", `Remove ${variant.name}`);
      };
      label();
    }
  }

  draw();
  return { list: () => variants, add, isFull: () => variants.length >= KEPT_MAX, clear: () => variants.slice().forEach(remove) };
}

// In which units the numbers are shown: those that the user chose, else those in which the recipe reads shortest.
import {attributeAt, pathOf} from "./xml_text.js";
import {UNITS, quantityOf, shortestUnit, unitNamed} from "./units.js";
import {knownElement} from "./elements.js";

const TEXTS_MAX = 2000; // of a recipe, looked at for a choice

export function chosenUnits(p) {
  const chosen = {}; // by the user
  const suited = {};

  return {
    of: quantity => unitNamed(quantity, chosen[quantity] ?? suited[quantity]),
    choose(quantity, name) { chosen[quantity] = name; },
    // Chooses the units for the recipe of the pane.
    suit() {
      if (!p.model.root) return;
      const texts = textsByQuantity(p.model.root);
      for (const quantity of Object.keys(UNITS)) suited[quantity] = shortestUnit(quantity, [...texts[quantity]]);
    },
    state: () => ({...chosen}),
    restore(state) {
      for (const [quantity, name] of Object.entries(state ?? {})) {
        if (UNITS[quantity]?.some(unit => unit.name === name)) chosen[quantity] = name;
      }
    },
  };
}

function textsByQuantity(root) {
  const texts = Object.fromEntries(Object.keys(UNITS).map(quantity => [quantity, new Set()])), pending = [root];
  for (let count = 0; pending.length && count < TEXTS_MAX; ++count) {
    const element = pending.shift();
    pending.push(...element.children);
    if (!element.attributes.val) continue;
    const known = knownElement(pathOf(element)), quantity = known && quantityOf(element.tag, known.unit);
    if (quantity) for (const name of known.attributes) texts[quantity].add(attributeAt(element, "", name) ?? "");
  }
  return texts;
}

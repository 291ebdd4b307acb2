// Runs the recipe of the page and lists its layers.
import { createEngine } from "./engine.js";
import { pageRecipe } from "./recipe.js";

const engine = createEngine();
const recipe = pageRecipe();
if (recipe) {
  document.getElementById("name").textContent = recipe.name;
  engine.run(recipe.bytes, { name: recipe.name, timeout_s: 60 }).then((run) => {
    document.getElementById("status").textContent = [run.status, run.message].join(" ");
    for (const layer of run.layers) {
      const row = document.getElementById("layers").insertRow();
      for (const value of [layer.number, layer.name, layer.thickness]) row.insertCell().textContent = value;
    }
  });
}
window.vorlen = { engine };

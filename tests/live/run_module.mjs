// Runs recipes with vorlen.wasm: node run_module.mjs MODULE OUTPUT_FOLDER RECIPE...
// Writes OUTPUT_FOLDER/NAME.txt for the recipe NAME.xml, and prints for each recipe a line of JSON: name, status,
// message, and the duration in ms.
import fs from "node:fs";
import path from "node:path";

import { createSolver } from "../../live/page/solver.js";

const [module_path, folder, ...recipes] = process.argv.slice(2);
const module = new WebAssembly.Module(fs.readFileSync(module_path));
const solver = createSolver(module);
for (const recipe of recipes) {
  const name = path.basename(recipe, ".xml");
  const bytes = fs.readFileSync(recipe);
  const start = performance.now();
  const run = solver.run(recipe, bytes);
  const milliseconds = performance.now() - start;
  fs.writeFileSync(path.join(folder, `${name}.txt`), run.result);
  console.log(JSON.stringify({ name, status: run.status, message: run.message, milliseconds }));
}

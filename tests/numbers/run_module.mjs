// Runs recipes with vorlen.wasm: node run_module.mjs MODULE FOLDER LIST, like run_recipes.c.
// The line of a recipe also has the status. Unphysical values are not a message of the library.
import fs from "node:fs";
import path from "node:path";

import { createSolver } from "../../live/page/solver.js";

const [module_path, folder, list] = process.argv.slice(2);
const solver = createSolver(new WebAssembly.Module(fs.readFileSync(module_path)));
for (const recipe of fs.readFileSync(list, "utf8").split("\n").filter(Boolean)) {
  const name = path.basename(recipe, ".xml");
  const bytes = fs.readFileSync(recipe);
  const start = performance.now();
  const run = solver.run(recipe, bytes);
  const milliseconds = performance.now() - start;
  fs.writeFileSync(path.join(folder, `${name}.txt`), run.result);
  console.log(JSON.stringify({ name, message: run.message === run.unphysical ? "" : run.message, milliseconds, status: run.status }));
}

// The web worker of engine.js: receives the compiled module, then one question at a time.
import { createSolver } from "./solver.js";

let solver;

function run(name, recipe) {
  const start = performance.now();
  const answer = solver.run(name, recipe);
  answer.seconds = (performance.now() - start) / 1000;
  const buffers = [answer.result.buffer];
  for (const values of Object.values(answer.columns)) buffers.push(values.buffer);
  return [answer, buffers];
}

self.onmessage = ({ data }) => {
  try {
    if (data.module) {
      solver = createSolver(data.module);
    } else {
      const [answer, buffers] = data.question === "run" ? run(data.name, data.recipe) : [solver.check(data.name, data.recipe), []];
      self.postMessage({ answer }, buffers);
    }
  } catch (error) {
    const memory = error instanceof RangeError || solver?.isOutOfMemory();
    self.postMessage({ crash: memory ? "Out of memory" : `The solver has stopped: ${error.message}` });
  }
};

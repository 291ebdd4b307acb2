// The solver of the page, in a web worker.
//
//   const engine = createEngine();
//   const run = await engine.run(xml, {timeout_s: 20, name: "wells.xml"});
//   const check = await engine.check(xml, {name: "wells.xml"});
//   engine.cancel();
//   engine.close();
//
// xml is the recipe: a string, or a Uint8Array with the bytes of a file in any encoding. name is its name in messages.
// No promise is ever rejected.
//
// run() gives
//   status    "ok", "failed" (it ran, but ended early or has unphysical rows), "rejected" (the recipe is faulty),
//             "cancelled" (by cancel(), a newer run or the timeout), "crashed" (the module has stopped; it is replaced)
//   message   why, as `vorlen run` says it; "" after "ok"
//   stage     where the integration ended: "The run ended at 12 s in stage_2 (GaN cap)", or ""
//   unphysical  "Unphysical values in 3 of 70 rows, first at ...", or ""
//   remedy    "What to do: ...", or ""
//   scheme    the integration scheme of the recipe, "" if the recipe can't be read
//   seconds   duration in the worker
//   result    Uint8Array, the content of the result file; empty if there is none
//   columns   {name: Float64Array}, a value for each row, by the identifiers of docs/result-format.md; and `active`,
//             1 for rows of active stages, else 0
//   layers    the layers as `vorlen show --json` lists them
//
// check() gives {status, message, errors, warnings, findings}: the numbers of errors and warnings, and the problems as
// `vorlen check --format json` lists them. status is "ok", "cancelled" or "crashed".
//
// One question is answered at a time. A run that arrives during another one waits; if one waits already, the newest
// takes its place. A run that a newer one waits for is cancelled when it takes longer than PATIENCE_MS: shorter ones are
// cheaper to finish than to interrupt, and their results can be drawn while a slider moves. For checks likewise. A check
// that waits is answered before a run that waits, because it is shorter.
import { module_bytes, worker_source } from "./embedded.js";

const PATIENCE_MS = 300;

const NO_RUN = { message: "", stage: "", unphysical: "", remedy: "", scheme: "", seconds: 0, result: new Uint8Array(), columns: {}, layers: [] };
const NO_CHECK = { message: "", errors: 0, warnings: 0, findings: [] };

export function createEngine() {
  let compiled; // promise of the module
  let url;
  let worker = null; // idle or at work; null until it is needed
  let current = null; // the question at work
  const waiting = { check: null, run: null };
  let timer = null; // of the current question

  function settle(question, status, answer) {
    const empty = question.kind === "run" ? NO_RUN : NO_CHECK;
    question.resolve({ ...empty, ...answer, status });
  }

  function dropWorker() {
    worker?.terminate();
    worker = null;
  }

  // Ends the current question with the worker that works on it.
  function stopCurrent(status, message) {
    clearTimeout(timer);
    dropWorker();
    const question = current;
    current = null;
    settle(question, status, { message, seconds: (performance.now() - question.start) / 1000 });
  }

  function limitTime(milliseconds, message) {
    const question = current;
    clearTimeout(timer);
    timer = setTimeout(() => {
      if (current !== question) return;
      stopCurrent("cancelled", message);
      next();
    }, Math.max(0, milliseconds));
  }

  function receive(from, { answer, crash }) {
    if (from !== worker || current === null) return;
    if (crash !== undefined) {
      stopCurrent("crashed", crash);
    } else {
      clearTimeout(timer);
      const question = current;
      current = null;
      if (question.kind === "run") settle(question, answer.status, answer);
      else settle(question, "ok", { errors: answer.errors, warnings: answer.warnings, findings: answer.problems });
    }
    next();
  }

  async function startWorker() {
    url ??= URL.createObjectURL(new Blob([worker_source], { type: "text/javascript" }));
    compiled ??= WebAssembly.compile(module_bytes);
    const module = await compiled;
    const started = new Worker(url);
    started.onmessage = ({ data }) => receive(started, data);
    started.onerror = (event) => receive(started, { crash: `The solver has stopped: ${event.message}` });
    started.postMessage({ module });
    return started;
  }

  async function next() {
    if (current !== null) return;
    const kind = waiting.check ? "check" : "run";
    const question = waiting[kind];
    if (question === null) return;
    waiting[kind] = null;
    current = question;
    try {
      worker ??= await startWorker();
    } catch (error) {
      if (current === question) stopCurrent("crashed", `The solver can't be started: ${error.message}`);
      return next();
    }
    if (current !== question) return next(); // cancelled while the module was compiled
    question.start = performance.now();
    worker.postMessage({ question: kind, name: question.name, recipe: question.recipe }, [question.recipe.buffer]);
    if (question.timeout_s) limitTime(1000 * question.timeout_s, `No answer within ${question.timeout_s} s`);
    if (waiting[kind]) supersede();
  }

  // The current question has a successor.
  function supersede() {
    limitTime(PATIENCE_MS - (performance.now() - current.start), "Replaced by a newer run");
  }

  function ask(kind, xml, { name = "recipe.xml", timeout_s = 0 } = {}) {
    const recipe = typeof xml === "string" ? new TextEncoder().encode(xml) : xml.slice();
    return new Promise((resolve) => {
      if (waiting[kind]) settle(waiting[kind], "cancelled", { message: "Replaced by a newer run" });
      waiting[kind] = { kind, recipe, name, timeout_s, resolve, start: performance.now() };
      if (current?.kind === kind) supersede();
      next();
    });
  }

  // Ends all runs and checks, the current one and those that wait.
  function cancel() {
    for (const kind of ["check", "run"]) {
      if (waiting[kind]) settle(waiting[kind], "cancelled", { message: "Cancelled" });
      waiting[kind] = null;
    }
    if (current) stopCurrent("cancelled", "Cancelled");
  }

  return {
    run: (xml, options) => ask("run", xml, options),
    check: (xml, options) => ask("check", xml, options),
    cancel,
    // Ends the worker; the next question starts another.
    close() {
      cancel();
      dropWorker();
    },
  };
}

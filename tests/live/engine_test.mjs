// The engine of the page with its worker: node --test engine_test.mjs, with VORLEN_ENGINE (engine.mjs of the build) and
// VORLEN_SOURCE in the environment. Node's worker threads take the place of a browser's workers.
import assert from "node:assert";
import { resolveObjectURL } from "node:buffer";
import fs from "node:fs";
import path from "node:path";
import { after, test } from "node:test";
import { Worker as Thread } from "node:worker_threads";

const PRELUDE = `const { parentPort } = require("node:worker_threads");
globalThis.self = { postMessage: (message, list) => parentPort.postMessage(message, list),
                    set onmessage(receive) { parentPort.on("message", (data) => receive({ data })); } };
`;
let threads = 0; // started so far

globalThis.Worker = class {
  constructor(url) {
    threads += 1;
    this.thread = resolveObjectURL(url)
      .text()
      .then((source) => {
        const thread = new Thread(PRELUDE + source, { eval: true });
        thread.on("message", (data) => this.onmessage({ data }));
        thread.on("error", (error) => this.onerror({ message: error.message }));
        return thread;
      });
  }
  postMessage(message, list) {
    this.thread.then((thread) => thread.postMessage(message, list));
  }
  terminate() {
    this.thread.then((thread) => thread.terminate());
  }
};

const { createEngine } = await import(process.env.VORLEN_ENGINE);
const engine = createEngine();
after(() => engine.close());

const example = (name) => fs.readFileSync(path.join(process.env.VORLEN_SOURCE, "examples", `${name}.xml`), "utf8");
const WELLS = example("ingan_gan_mqw");
// A hundred thousand wells: longer than any test waits.
const ENDLESS = WELLS.replace(/<n_periods val="\d+"/, '<n_periods val="100000"');
assert.notEqual(ENDLESS, WELLS);

async function expectAGoodRun() {
  assert.equal((await engine.run(WELLS)).status, "ok");
}

test("a run gives rows, layers and the result file", async () => {
  const run = await engine.run(WELLS, { name: "wells.xml" });
  assert.deepEqual([run.status, run.message, run.stage, run.unphysical, run.remedy], ["ok", "", "", "", ""]);
  const text = new TextDecoder().decode(run.result);
  assert.ok(text.startsWith('"VORLEN output file, version 2.0"\n'));
  const rows = text.slice(text.indexOf("\n#time")).trim().split("\n").slice(1);
  const names = Object.keys(run.columns);
  assert.equal(names.length, 20);
  for (const values of Object.values(run.columns)) assert.equal(values.length, rows.length);
  for (const k of [0, 7, rows.length - 1]) {
    const numbers = rows[k].trim().split(" ").map(Number);
    assert.deepEqual(names.slice(0, 19).map((name) => run.columns[name][k]), numbers);
  }
  assert.deepEqual([run.columns.active[0], run.columns.active[10]], [0, 1]);
  assert.ok(run.seconds > 0);
  assert.ok(run.layers.length > 3 && run.layers[0].kind === "pre");
});

test("a check reports problems as the command does", async () => {
  const good = await engine.check(WELLS);
  assert.deepEqual([good.status, good.errors, good.findings], ["ok", 0, []]);
  const bad = await engine.check(WELLS.replace("<tau val=", "<tau value="), { name: "b.xml" });
  assert.ok(bad.errors > 0);
  assert.equal(bad.findings[0].severity, "error");
  assert.ok(bad.findings[0].line > 0);
});

test("bytes in another encoding are taken as they are", async () => {
  const text = WELLS.replace(/<\?xml[^>]*\?>/, '<?xml version="1.0" encoding="ISO-8859-1"?>').replace("InGaN well", "puits \u00e9troit");
  const latin = new Uint8Array(Buffer.from(text, "latin1"));
  const length = latin.length;
  assert.equal((await engine.run(latin)).status, "ok");
  assert.equal(latin.length, length, "the caller keeps the bytes");
});

test("a recipe with a fault is rejected with the text of the library", async () => {
  const run = await engine.run("<NonstSurfChem><a", { name: "my recipe" });
  assert.equal(run.status, "rejected");
  assert.match(run.message, /^Error reading file my recipe\n/);
  assert.deepEqual([run.remedy, run.result.length, run.layers], ["", 0, []]);
});

test("a failed run says where it ended and what to do", async () => {
  const run = await engine.run(example("ingan_gan_mqw").replace('<tau val="', '<tau val="nan'));
  assert.equal(run.status, "failed");
  assert.notEqual(run.message, "");
  assert.match(run.remedy, /^What to do: /);
});

test("cancel ends a run, and the next one works", async () => {
  const before = threads;
  const run = engine.run(ENDLESS);
  setTimeout(() => engine.cancel(), 200);
  const cancelled = await run;
  assert.deepEqual([cancelled.status, cancelled.message], ["cancelled", "Cancelled"]);
  await expectAGoodRun();
  assert.ok(threads > before);
});

test("a run that takes too long is cancelled", async () => {
  const run = await engine.run(ENDLESS, { timeout_s: 0.3 });
  assert.deepEqual([run.status, run.message], ["cancelled", "No answer within 0.3 s"]);
  await expectAGoodRun();
});

test("of the runs that wait only the newest is done", async () => {
  const runs = await Promise.all([engine.run(WELLS), engine.run(WELLS), engine.run("<"), engine.run(WELLS)]);
  assert.deepEqual(runs.map((run) => run.status), ["ok", "cancelled", "cancelled", "ok"]);
  assert.equal(runs[1].message, "Replaced by a newer run");
});

test("a long run makes way for a newer one", async () => {
  const long = engine.run(ENDLESS);
  await new Promise((resolve) => setTimeout(resolve, 50));
  const [first, second] = await Promise.all([long, engine.run(WELLS)]);
  assert.deepEqual([first.status, second.status], ["cancelled", "ok"]);
});

test("a check and a run can wait together", async () => {
  const [run, check, last] = await Promise.all([engine.run(WELLS), engine.check(WELLS), engine.run(WELLS)]);
  assert.deepEqual([run.status, check.status, last.status], ["ok", "ok", "ok"]);
});

test("exhausted memory is reported, and a new worker takes over", async () => {
  // The parsed elements need more than the 1 GiB that the module may have.
  const large = `<NonstSurfChem>${"<a b=''></a>".repeat(4000000)}</NonstSurfChem>`;
  const run = await engine.run(large);
  assert.deepEqual([run.status, run.message], ["crashed", "Out of memory"]);
  await expectAGoodRun();
  const check = await engine.check(large);
  assert.deepEqual([check.status, check.message], ["crashed", "Out of memory"]);
  await expectAGoodRun();
});

test("a recipe with a million rows exhausts the memory, and a new worker takes over", async () => {
  // 320 rows of 450 characters for each period: half of the memory for the result file, which is copied as it grows.
  const run = await engine.run(WELLS.replace(/<n_periods val="\d+"/, '<n_periods val="3200"'));
  assert.deepEqual([run.status, run.message], ["crashed", "Out of memory"]);
  await expectAGoodRun();
});

test("many runs do not use up the memory", async () => {
  for (let k = 0; k < 100; k += 1) {
    const deep = k % 3 === 0;
    assert.equal((await engine.run(deep ? "<a>".repeat(1000000) : WELLS)).status, deep ? "rejected" : "ok");
  }
});

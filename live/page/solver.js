// Calls of vorlen.wasm (live/module/module.cpp). Used in the worker of engine.js.

// The module has no operating system: every call of one fails with the code for a bad file.
const BAD_FILE = 8;

function imports_of(module) {
  const imports = {};
  for (const { module: from, name } of WebAssembly.Module.imports(module)) {
    imports[from] ??= {};
    imports[from][name] = () => BAD_FILE;
  }
  return imports;
}

// An instance of a compiled module. After an exception of one of its functions it must not be used any more.
export function createSolver(module) {
  const { exports } = new WebAssembly.Instance(module, imports_of(module));
  exports._initialize();

  const copy_of = (begin, size) => new Uint8Array(exports.memory.buffer, begin, size).slice();
  const answer = () =>
    JSON.parse(new TextDecoder().decode(new Uint8Array(exports.memory.buffer, exports.vorlen_json(), exports.vorlen_json_size())));

  // Calls a function of the module with the name, ended by a zero, and the bytes of a recipe.
  function call(entry, name, recipe) {
    const label = new TextEncoder().encode(name);
    const block = exports.vorlen_alloc(label.length + 1 + recipe.length);
    const memory = new Uint8Array(exports.memory.buffer, block, label.length + 1 + recipe.length);
    memory.set(label);
    memory[label.length] = 0;
    memory.set(recipe, label.length + 1);
    entry(block, block + label.length + 1, recipe.length);
    exports.vorlen_free(block);
  }

  return {
    // The report of the check, as one file of `vorlen check --format json`. recipe: Uint8Array.
    check(name, recipe) {
      call(exports.vorlen_check, name, recipe);
      return answer();
    },

    // The answer of a run, with the bytes of the result file and a Float64Array for each column.
    run(name, recipe) {
      call(exports.vorlen_run, name, recipe);
      const { columns: names, rows, ...run } = answer();
      const values = new Float64Array(exports.memory.buffer, exports.vorlen_columns(), names.length * rows);
      const columns = {};
      names.forEach((column, k) => (columns[column] = values.slice(k * rows, (k + 1) * rows)));
      return { ...run, columns, result: copy_of(exports.vorlen_result(), exports.vorlen_result_size()) };
    },

    // Whether the module has trapped because its memory is exhausted.
    isOutOfMemory: () => exports.vorlen_out_of_memory() !== 0,
  };
}

// What the bundle contains (cmake/LivePage.cmake): vorlen.wasm and the bundled worker.js.
import module_bytes from "vorlen-module";
import worker_source from "vorlen-worker";

export { module_bytes, worker_source };

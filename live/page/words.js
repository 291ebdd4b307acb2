// Advice of the library and the tool, in words of the page: it has no command line and no folder of documents.

const STAGED = /(?:(?:add|write) <.*, or )?run it with --scheme staged(?: \(in Python: scheme="staged"\))?/g;
const PLACE = "choose the scheme “staged” in “Models and constants”, below the stages";
const MANUAL = "see docs/when-a-run-fails.md";
const VALUES = "look at the values of this stage, and at “Models and constants”: temperature, pressure, flows and constants far " +
  "from those of the examples. A very long process can be made shorter.";
const SMALLER = "What to do: make it smaller, with fewer periods or shorter stages, or save it and run it with the command " +
  "“vorlen run”, which may take more time and memory.";

export function wordsOfPage(text) {
  return text.replace(STAGED, PLACE).replace(MANUAL, VALUES);
}

// What to do after an outcome of the engine; "" if there is nothing to say.
export function remedyOf({ status, message, remedy }) {
  const is_too_large = status === "crashed" ? message === "Out of memory" : message.startsWith("No answer within");
  return is_too_large ? SMALLER : wordsOfPage(remedy);
}

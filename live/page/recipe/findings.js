// The findings of the check, by the element that they belong to.
import {wordsOfPage} from "../words.js";
import {elementAround, offsetOf, pathOf} from "./xml_text.js";

// Adds to each finding of a check the path of its element (target) and of its stage (stagePath); null if unknown.
// text and root: the recipe that was checked.
export function located(findings, text, root) {
  const problems = findings?.problems ?? (Array.isArray(findings) ? findings : []);
  return problems.flatMap(problem => {
    const element = problem.line && root ? elementAround(root, offsetOf(text, problem.line, problem.column ?? 1)) : null;
    const target = element ? pathOf(element) : null;
    const first = {...problem, hint: problem.hint && wordsOfPage(problem.hint), target, stagePath: stagePathOf(target)};
    // A warning that applies to several stages is marked in each of them, and listed once.
    const others = (problem.also_in ?? []).map(tag => {
      const stagePath = pathOfStage(tag);
      const other = target && first.stagePath ? stagePath + target.slice(first.stagePath.length) : stagePath;
      return {...first, target: other, stagePath, repeated: true};
    });
    return [first, ...others];
  });
}

// The path of the stage that contains an element, or of the group; null outside of stages.
export function stagePathOf(path) {
  return path?.match(/^(?:pre_stages\/pre_stage_\d+|post_stages\/post_stage_\d+|process_stages\/stage_\d+(?:\/stage_\d+_\d+)?)(?=\/|$)/)?.[0] ?? null;
}

// The path of a stage by its element name.
export function pathOfStage(tag) {
  if (tag.startsWith("pre_")) return `pre_stages/${tag}`;
  if (tag.startsWith("post_")) return `post_stages/${tag}`;
  const sub = tag.match(/^stage_(\d+)_\d+$/);
  return sub ? `process_stages/stage_${sub[1]}/${tag}` : `process_stages/${tag}`;
}

// The path of the first stage that a text names; null if there is none.
export function stageNamedIn(text) {
  const tag = text?.match(/\b(?:pre_|post_)?stage_\d+(?:_\d+)?\b/)?.[0];
  return tag ? pathOfStage(tag) : null;
}

export function summary(problems) {
  const listed = problems.filter(problem => !problem.repeated);
  const count = severity => listed.filter(problem => problem.severity === severity).length;
  const words = (number, word) => `${number} ${word}${number === 1 ? "" : "s"}`;
  const errors = count("error"), warnings = count("warning");
  if (!errors && !warnings) return "No problems";
  return [errors && words(errors, "error"), warnings && words(warnings, "warning")].filter(Boolean).join(", ");
}

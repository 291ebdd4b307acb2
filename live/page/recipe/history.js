// Undo and redo of texts. Changes of one group, such as the movement of a slider, are one step.

const STEPS_MAX = 300;
const SIZE_MAX = 32e6; // characters in all steps

export function createHistory(text) {
  let past = [], present = text, future = [], group = null;

  return {
    // Makes a text the present one. Changes with the same group, not null, become one step until seal() is called.
    push(text, newGroup = null) {
      if (text === present) return;
      if (newGroup === null || newGroup !== group) past.push(present);
      group = newGroup;
      present = text;
      future = [];
      let size = past.reduce((sum, each) => sum + each.length, 0);
      while (past.length > 1 && (past.length > STEPS_MAX || size > SIZE_MAX)) size -= past.shift().length;
    },
    seal() { group = null; },
    undo() { return step(past, future); },
    redo() { return step(future, past); },
    canUndo: () => past.length > 0,
    canRedo: () => future.length > 0,
  };

  // The text of the other side, or null if there is none.
  function step(from, to) {
    if (!from.length) return null;
    to.push(present);
    present = from.pop();
    group = null;
    return present;
  }
}

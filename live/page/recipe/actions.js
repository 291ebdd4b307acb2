// What can be done with stages: each is one step of the history, and a message where it is not possible.
import {addedLayer, addedStage, movedStage, withPeriods, withoutPeriods, withoutStage} from "./stages.js";
import {withScheme} from "./scheme.js";

// p is the pane; note(text) shows a message.
export function createActions(p, note) {
  // change(text) gives {text, path}; the stage at path is selected. Paths have moved, so faults and ramps are dropped.
  function act(change) {
    let result;
    try {
      result = change(p.model.text);
    } catch (error) {
      return note(`Not possible: ${error.message}.`);
    }
    p.faults.clear();
    p.forcedRamps.clear();
    p.selected = result.path ?? null;
    p.model.replace(result.text);
  }

  return {
    add: path => act(text => addedStage(text, path, {continued: true, name: "new stage"})),
    copy: path => act(text => addedStage(text, path)),
    addLayer: group => act(text => addedLayer(text, group)),
    move: (path, step) => act(text => movedStage(text, path, step)),
    remove: path => act(text => ({text: withoutStage(text, path)})),
    repeat: (first, last, periods) => act(text => withPeriods(text, first, last, periods)),
    chooseStaged: () => p.model.replace(withScheme(p.model.text, "staged")),
    dissolve: path => act(text => ({text: withoutPeriods(text, path), path})),
  };
}

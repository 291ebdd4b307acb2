// Shading and names of the stages in a chart.
"use strict";
const Stages = (() => {
  const SLOPE = 28 * Math.PI / 180;  // of the names
  const NAME_DISTANCE = 28, RAMP_DISTANCE = 50;  // pixels between names, also of ramps
  const SLIVER = 0.003;  // share of the visible range; thinner stages are not shaded
  const SHADED_MAX = 300;  // visible stages; more are not shaded

  // Shapes and annotations of a chart over `axis`, whose range is visible. frame: {width, margin} of the chart in pixels,
  // and the distance `shift` of the names from the uppermost panel.
  function marks(stages, axis, [low, high], { width, margin, shift }, colour) {
    const inner = width - margin.l - margin.r, pixels = inner / (high - low);
    const visible = stages.filter((stage) => stage[axis][1] > low && stage[axis][0] < high);
    const shapes = [], annotations = [];
    // Alternate layers, without slivers such as pauses: these would give two neighbouring layers the same shade.
    const bands = visible.filter((stage) => stage[axis][1] - stage[axis][0] > SLIVER * (high - low));
    if (bands.length <= SHADED_MAX) {
      for (const stage of bands.filter((_, index) => index % 2)) {
        shapes.push({ type: "rect", xref: "x", yref: "paper", x0: stage[axis][0], x1: stage[axis][1], y0: 0, y1: 1,
          fillcolor: colour("shade"), line: { width: 0 }, layer: "below" });
      }
    }
    const room = (margin.t - shift - 12) / Math.sin(SLOPE), named = [];
    const ends = (stage) => [Math.max(stage[axis][0], low), Math.min(stage[axis][1], high)];
    const size = (stage) => ends(stage)[1] - ends(stage)[0];
    const ranked = visible.slice().sort((a, b) => b.rank - a.rank || size(b) - size(a) || a.number - b.number);
    for (const stage of ranked) {
      if (named.length > inner / NAME_DISTANCE) break;
      const middle = 0.5 * (ends(stage)[0] + ends(stage)[1]), place = (middle - low) * pixels;
      const distance = stage.rank ? NAME_DISTANCE : RAMP_DISTANCE;
      if (size(stage) * pixels < (stage.rank ? 1 : 6) || named.some((at) => Math.abs(at - place) < distance)) continue;
      const right = (width - margin.l - place - 10) / Math.cos(SLOPE);
      const text = Texts.shortened(stage.name, 11, Math.min(room, right));
      if (!text) continue;
      named.push(place);
      annotations.push({ x: middle, xref: "x", y: 1, yref: "paper", yshift: shift, yanchor: "bottom", xanchor: "left", textangle: -28,
        showarrow: false, font: { size: 11, color: colour("ink") }, text: Texts.plain(text), name: "stage" });
    }
    return { shapes, annotations };
  }

  return { marks };
})();

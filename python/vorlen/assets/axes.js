// Numbers along axes: interpolation, the extent of a curve, distances of the numbers of an axis.
"use strict";
const Axes = (() => {
  // Value of `to` where `from` has `value`, by linear interpolation. Both rise.
  function convert(value, from, to) {
    let low = 0, high = from.length - 1;
    if (!(value > from[low])) return to[low];
    if (!(value < from[high])) return to[high];
    while (high - low > 1) {
      const middle = (low + high) >> 1;
      if (from[middle] <= value) low = middle; else high = middle;
    }
    const span = from[high] - from[low];
    return span > 0 ? to[low] + (to[high] - to[low]) * (value - from[low]) / span : to[low];
  }

  // The values, each at least as large as all before it.
  function rising(values) {
    let highest = -Infinity;
    return values.map((value) => value === null ? null : (highest = Math.max(highest, value)));
  }

  // The position of x among rising values, as an index and the share of the way to the next; null if it is outside. Where
  // values fall because material evaporated, the last position counts.
  function positionOf(x, values) {
    for (let i = values.length - 1; i > 0; i--) {
      const from = values[i - 1], to = values[i];
      if (from !== null && to !== null && from <= x && x <= to && from < to) return [i - 1, (x - from) / (to - from)];
    }
    return null;
  }

  // The smallest and the largest y of a curve within a range of x, without its outermost 0.2 %, where other stages end.
  function extent(x, y, range) {
    const edge = 0.002 * (range[1] - range[0]), from = range[0] + edge, to = range[1] - edge;
    let [low, high] = [Infinity, -Infinity];
    const see = (value) => { low = Math.min(low, value); high = Math.max(high, value); };
    for (let i = 0; i < x.length; i++) {
      if (x[i] === null || y[i] === null) continue;
      if (x[i] >= from && x[i] <= to) see(y[i]);
      if (i === 0 || x[i - 1] === null || y[i - 1] === null) continue;
      for (const border of [from, to]) {  // between two points
        const share = (border - x[i - 1]) / (x[i] - x[i - 1]);
        if (share > 0 && share < 1) see(y[i - 1] + share * (y[i] - y[i - 1]));
      }
    }
    return [low, high];
  }

  // Distance of the numbers of an axis: 1, 2 or 5 times a power of ten; at least three numbers unless these would touch.
  function tickStep([low, high], pixels) {
    const span = high - low, largest = Math.max(Math.abs(low), Math.abs(high));
    const steps = [];
    for (let power = Math.floor(Math.log10(span)) + 1; steps.length < 12; power--) steps.push(...[5, 2, 1].map((n) => n * 10 ** power));
    const count = (step) => Math.floor(high / step) - Math.ceil(low / step) + 1;
    const needed = (step, room) => Texts.width(Number((Math.round(largest / step) * step).toPrecision(12)).toString(), 13) + room;
    const fits = (step, room) => step * pixels / span >= needed(step, room);
    const chosen = steps.filter((step) => fits(step, 40)).pop() || steps[0];
    if (count(chosen) >= 3) return chosen;
    return steps.find((step) => count(step) >= 3 && fits(step, 4)) || chosen;
  }

  return { convert, rising, positionOf, extent, tickStep };
})();

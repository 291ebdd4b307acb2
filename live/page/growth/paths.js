// A curve as the text of an SVG path. Of the points within one pixel column only the first, lowest, highest and last are
// kept, so the length of the text depends on the width of the picture and not on the number of rows.

// place, height: {a, b}, pixel = a * value + b; of a logarithmic axis value is the decimal logarithm. range: [low, high] of
// what is visible; one point beyond each end is kept.
export function pathOf(xs, ys, place, height, range, isLog) {
  const out = [];
  let open = false; // a point of this piece of the curve is written
  let column = NaN, first = 0, last = 0, low = 0, high = 0, lowAt = 0, highAt = 0, count = 0, firstX = 0, lastX = 0;
  const write = (x, y) => {
    out.push(open ? "L" : "M", Math.round(x * 10) / 10, ",", Math.round(y * 10) / 10);
    open = true;
  };
  const flush = () => {
    if (!count) return;
    write(firstX, first);
    if (count > 2) {
      const [one, other] = lowAt < highAt ? [low, high] : [high, low];
      if (one !== first) write(firstX, one);
      if (other !== last && other !== one) write(lastX, other);
    }
    if (count > 1) write(lastX, last);
    count = 0;
  };
  for (let k = 0; k < xs.length; ++k) {
    const value = isLog ? Math.log10(ys[k]) : ys[k];
    const isHidden = (xs[k] < range[0] && !(xs[k + 1] >= range[0]) && !(xs[k - 1] >= range[0])) ||
      (xs[k] > range[1] && !(xs[k - 1] <= range[1]) && !(xs[k + 1] <= range[1]));
    if (!Number.isFinite(value) || isHidden) {
      flush();
      open = false;
      column = NaN;
      continue;
    }
    const x = place.a * xs[k] + place.b, y = height.a * value + height.b;
    if (Math.floor(x) !== column) {
      flush();
      column = Math.floor(x);
      [first, low, high, lowAt, highAt, firstX] = [y, y, y, k, k, x];
    }
    if (y < low) [low, lowAt] = [y, k];
    if (y > high) [high, highAt] = [y, k];
    [last, lastX] = [y, x];
    ++count;
  }
  flush();
  return out.join("");
}

// [low, high] of the values of curves whose place is within a range; null if there are none.
export function visibleRange(curves, axis, range) {
  let low = Infinity, high = -Infinity;
  for (const { x, y } of curves) {
    const xs = x[axis];
    for (let k = 0; k < xs.length; ++k) {
      if (xs[k] < range[0] || xs[k] > range[1]) continue;
      if (y[k] < low) low = y[k];
      if (y[k] > high) high = y[k];
    }
  }
  return low <= high ? [low, high] : null;
}

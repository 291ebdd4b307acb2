// Groups of layers that are grown several times in the same order, such as the periods of quantum wells or of a mirror.
// The rules are those of python/vorlen/_runs/repeats.py; python/tests/test_live_growth.py compares the two.

const PERIOD_MAX = 100; // layers of the longest period that is found
const THICKNESS_SHARE = 0.02, THICKNESS_LEAST = 0.02; // nm
const FRACTION_SLACK = 0.005;

// items: [{label, thickness, x: [In, Ga, Al]}]. Gives [{first, size, periods}]; the groups cover all items in order.
export function repeats(items) {
  const count = items.length;
  const covered = new Int32Array(count).fill(1); // by the group from an item that covers most items
  const sizes = new Int32Array(count).fill(1); // its period, the shortest of equals
  for (let size = 1; size <= Math.min(PERIOD_MAX, count >> 1); ++size) {
    let run = 0; // consecutive items from here on that equal the item a period later
    for (let place = count - size - 1; place >= 0; --place) {
      run = alike(items[place], items[place + size]) ? run + 1 : 0;
      const reach = run >= size ? (Math.floor(run / size) + 1) * size : 0;
      if (reach > covered[place]) {
        covered[place] = reach;
        sizes[place] = size;
      }
    }
  }
  const groups = [];
  for (let place = 0; place < count; ) {
    let size = sizes[place], reach = covered[place];
    // A longer repetition may start within this one.
    if (reach > 1 && covered.subarray(place, place + reach).some((other) => other > reach)) size = reach = 1;
    let periods = 1; // compared with the first one, against a slow drift
    while (periods < reach / size && samePeriod(items, place, place + periods * size, size)) ++periods;
    if (periods > 1) groups.push({ first: place, size, periods });
    else for (let item = 0; item < size; ++item) groups.push({ first: place + item, size: 1, periods: 1 });
    place += size * periods;
  }
  return groups;
}

function samePeriod(items, first, here, size) {
  for (let item = 0; item < size; ++item) {
    if (!alike(items[first + item], items[here + item])) return false;
  }
  return true;
}

function alike(one, other) {
  const slack = Math.max(THICKNESS_SHARE * Math.abs(one.thickness), THICKNESS_LEAST);
  return one.label === other.label && Math.abs(one.thickness - other.thickness) <= slack &&
    one.x.every((value, metal) => Math.abs(value - other.x[metal]) <= FRACTION_SLACK);
}

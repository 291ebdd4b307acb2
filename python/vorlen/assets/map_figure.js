// The figure of a process map: lines of equal value with their numbers, the region of the targets, the runs.
"use strict";
const MapFigure = (() => {
  const HEIGHT = 620, NARROW = 480;  // pixels
  const EDGE = { wide: 0.03, narrow: 0.08 };  // of the range of an axis
  const CROWDED = 4;  // lines on a narrow screen; of more only each second one has a number
  const STAR = 0.06;  // of both ranges: numbers stay this far from the star of the recipe, which they would hide
  const PLACES = 60;  // along a line that its number can have

  // Pieces of lines as one line with gaps.
  function joined(pieces) {
    const x = [], y = [];
    for (const piece of pieces) {
      if (x.length) { x.push(null); y.push(null); }
      x.push(...piece.x);
      y.push(...piece.y);
    }
    return { x, y };
  }

  // Where the number of a line is: about at a share of its longest piece, other for each quantity, and away from the edges
  // of the map; null if the whole piece is near an edge, where the numbers of the axes are.
  function labelled(map, line, share, edge) {
    const piece = line.pieces.reduce((longest, other) => other.x.length > longest.x.length ? other : longest);
    const isInside = (value, [low, high]) => Math.abs(value - (low + high) / 2) < (0.5 - edge) * (high - low);
    const isNear = (value, other, [low, high]) => Math.abs(value - other) < STAR * (high - low);
    const isAtStar = (x, y) => map.present !== null && isNear(x, map.present[0], map.x.range)
      && isNear(y, map.present[1], map.y.range);
    const last = piece.x.length - 1, inside = [];
    for (let step = 0; step <= PLACES; step++) {
      const at = Math.min(Math.floor(step / PLACES * last), last - 1), part = step / PLACES * last - at;
      const [x, y] = [piece.x, piece.y].map((values) => values[at] + part * (values[at + 1] - values[at]));
      if (isInside(x, map.x.range) && isInside(y, map.y.range) && !isAtStar(x, y)) inside.push([x, y]);
    }
    return inside.length ? inside[Math.round(share * (inside.length - 1))] : null;
  }

  // The figure for Charts.chart(). map: as map_page.py makes it
  function build(map, colour, width, limit) {
    const layout = Charts.baseLayout(map.x.title, colour, width);
    const axis = Charts.yAxis(colour);
    const box = { showgrid: false, fixedrange: true, mirror: true };
    Object.assign(layout, {
      height: limit ? Math.min(limit, HEIGHT) : width < NARROW ? 460 : HEIGHT, hovermode: "closest", hoverdistance: 12,
      dragmode: false, showlegend: true,
      legend: { orientation: "h", x: 0, y: 1.01, yanchor: "bottom", font: { size: 12 } },
    });
    Object.assign(layout.xaxis, box, { range: map.x.range });
    layout.yaxis = Object.assign(axis, box, { title: { text: map.y.title, standoff: 6 }, range: map.y.range, nticks: 8,
      automargin: true });
    const data = [];
    if (map.region.length) {
      data.push(Object.assign(joined(map.region), { type: "scatter", mode: "lines", name: "all targets hold", fill: "toself",
        fillcolor: colour("aluminium") + "40", line: { color: colour("aluminium"), width: 1.5 }, hoverinfo: "skip" }));
    }
    map.curves.forEach((curve, number) => {
      const all = joined(curve.lines.flatMap((line) => line.pieces));
      data.push(Object.assign(all, { type: "scatter", mode: "lines", name: curve.name, hoverinfo: "skip",
        line: { color: colour(curve.colour), width: 2, dash: curve.dashed ? "dash" : "solid" } }));
      const each = width < NARROW && curve.lines.length > CROWDED ? 2 : 1;
      for (const line of curve.lines.filter((_, place) => place % each === 0)) {
        const place = labelled(map, line, number % 2 ? 0.3 : 0.65, width < NARROW ? EDGE.narrow : EDGE.wide);
        if (!place) continue;
        layout.annotations.push({ x: place[0], y: place[1], text: line.text, showarrow: false,
          font: { size: 12, color: colour(curve.colour) }, bgcolor: colour("paper"), borderpad: 1 });
      }
    });
    const chosen = (ok) => map.runs.ok.flatMap((own, number) => own === ok ? [number] : []);
    for (const [ok, name, symbol] of [[true, "run", "circle"], [false, "run without a result", "x"]]) {
      const numbers = chosen(ok);
      if (!numbers.length) continue;
      data.push({ type: "scatter", mode: "markers", name, x: numbers.map((at) => map.runs.x[at]),
        y: numbers.map((at) => map.runs.y[at]), text: numbers.map((at) => map.runs.texts[at].map(Texts.plain).join("<br>")),
        hovertemplate: "%{text}<extra></extra>", cliponaxis: false,
        marker: { symbol, size: ok ? 4 : 9, color: colour(ok ? "strong" : "alarm") } });
    }
    if (map.present) {
      data.push({ type: "scatter", mode: "markers", name: "recipe", x: [map.present[0]], y: [map.present[1]], hoverinfo: "skip",
        cliponaxis: false, marker: { symbol: "star", size: 14, color: colour("ink") } });
    }
    return { data, layout };
  }

  return { build };
})();

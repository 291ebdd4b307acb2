// What has grown, as a table of layers.
export function createGrowthPane(node) {
  const table = document.createElement("table");
  node.append(table);
  return {
    show(outcome) {
      table.replaceChildren();
      for (const layer of outcome.layers) {
        const row = table.insertRow();
        for (const value of [layer.number, layer.name, layer.thickness.toPrecision(4)]) row.insertCell().textContent = value;
      }
    },
    busy() {},
    keep() {},
    state: () => null,
    restore() {},
  };
}

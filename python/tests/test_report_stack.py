"""The picture of the layers of a report. No browser."""

from __future__ import annotations

import re

import vorlen
from support import result, row
from vorlen._report_stack import layer_stack


def test_names_stand_beside_the_layers_where_there_is_room() -> None:
    # 400 pixels for 20.2 nm: the middles of b and c are 2 pixels apart, those of the others 100.
    layers = [("a", 10.0, 10.0), ("b", 1.0, 0.1), ("c", 1.0, 0.1), ("d", 10.0, 10.0)]
    rows = [row(time=t, z=z, x_ga=1.0) for t, z in ((0, 0), (10, 10), (11, 10.1), (12, 10.2), (22, 20.2))]
    picture = layer_stack(vorlen.Run(result(layers, rows).encode())._layers)
    assert re.findall(r'class="stack-name">(\w+) ', picture) == ["a", "b", "d"]
    assert re.findall(r"<title>(\d)\. (\w), ([\d.]+) nm", picture) == [
        ("1", "a", "10"), ("2", "b", "0.1"), ("3", "c", "0.1"), ("4", "d", "10")
    ]

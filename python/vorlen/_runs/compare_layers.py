"""Which layers of two runs correspond, and how they differ: the answer of `vorlen diff`, so that both agree."""

from __future__ import annotations

import json
import subprocess
from typing import Any

from .._base.system import memory_file, run_program
from .._base.tool import find_tool
from .run import Run

TIMEOUT = 300  # s
EXIT_TROUBLE = 2

Pair = tuple[int | None, int | None]  # positions of layers, from 0; None: only in the other run


def compared_layers(first: Run, other: Run) -> dict[str, Any]:
    """The object that `vorlen diff --json` prints.

    Raises RuntimeError if the command is missing or fails.
    """
    tool = find_tool()
    if tool is None:
        raise RuntimeError("the command vorlen, which compares layers, was not found; set VORLEN to its path")
    with memory_file(first.content) as a, memory_file(other.content) as b:
        try:
            answer = run_program([tool, "diff", "--json", a.path, b.path], [a, b], TIMEOUT)
            if answer.returncode < EXIT_TROUBLE:
                return dict(json.loads(answer.stdout))
            reason = answer.stderr.strip()
        except (OSError, ValueError, subprocess.TimeoutExpired) as error:
            reason = str(error)
    raise RuntimeError(f"the layers were not compared by {tool} diff: {reason}")


def matching_layers(first: Run, other: Run) -> list[Pair]:
    """Pairs of layers that correspond, in order, each layer once. Layers of the same names do so one by one."""
    layers = [run._layers[["name", "kind"]].to_numpy().tolist() for run in (first, other)]
    if layers[0] == layers[1]:
        return [(place, place) for place in range(len(layers[0]))]
    return pairs_of(compared_layers(first, other))


def pairs_of(comparison: dict[str, Any]) -> list[Pair]:
    """The pairs of layers in an object of compared_layers()."""
    return [
        (pair["a"] and pair["a"]["number"] - 1, pair["b"] and pair["b"]["number"] - 1) for pair in comparison["layers"]
    ]

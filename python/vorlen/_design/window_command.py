"""The command line of process windows: vorlen window RECIPE --targets TARGETS --spread NAME=SIZE -o PAGE"""

from __future__ import annotations

import argparse
import json
import math
import sys
from pathlib import Path
from typing import Any

import pandas as pd

from .._base.files import check_place
from .._pages.page import check_pages
from .._runs.run import SimulationError
from .measured_command import (
    EXIT_STATUS, add_run_options, interrupted, make_plan_file, run_options, warn_about_recipe,
)
from .window import GRID, Window, make_window, points_of, read_window, window_plan

EPILOG = f"""\
For example:
  vorlen window led.xml --targets targets.yaml --spread T="2 K" --spread TMIn="2 %" -o window.html

A spread is one standard deviation, absolute or relative. T, P, tau and flows such as TMIn vary in all stages together;
a path, such as process_stages/stage_4/stage_4_3/T, varies separately. Targets are a YAML file with tolerances:

  layers: [{{layer: InGaN well, thickness: 3 +- 0.1 nm, In: 18 % +- 0.5 %}}]

{EXIT_STATUS}"""


def add_command(commands: Any) -> None:
    """Adds `window` to the subcommands."""
    parser = commands.add_parser(
        "window",
        help="how often a recipe meets its targets if the reactor varies",
        description="Runs a recipe many times with random deviations and counts in how many runs all targets hold.",
        epilog=EPILOG,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("recipe", type=Path, metavar="RECIPE", help="recipe to vary")
    parser.add_argument("--targets", type=Path, required=True, metavar="TARGETS", help="YAML file with the targets")
    parser.add_argument(
        "--spread", type=_spread, action="append", required=True, dest="spreads", metavar="NAME=SIZE",
        help='one standard deviation of a value, such as T="2 K" or TMIn="2 %%"',
    )
    parser.add_argument("-o", "--output", type=Path, metavar="PAGE", help="page for a browser (default: none)")
    parser.add_argument(
        "--samples", type=_integer("the number of runs", 1), default=400, metavar="N",
        help="number of random runs; default: 400",
    )
    parser.add_argument(
        "--seed", type=_integer("the seed", 0), default=0, metavar="N",
        help="of the random numbers; the same one gives the same runs; default: 0",
    )
    parser.add_argument(
        "--grid", type=_integer("the number of points", 0), metavar="N",
        help=f"points per side of the map on the page, 0 for no map; default: {GRID}, without a page 0",
    )
    parser.add_argument("--json", action="store_true", help="print the result as JSON")
    add_run_options(parser)
    parser.set_defaults(function=_window, usage_error=parser.error)


def _spread(text: str) -> tuple[str, str]:
    name, equals, size = (part.strip() for part in text.partition("="))
    if not name or not equals or not size:
        raise argparse.ArgumentTypeError(f'expected NAME=SIZE, such as T="2 K", got {text!r}')
    return name, size


def _integer(what: str, least: int) -> Any:
    """A converter of options to integers of at least this size."""

    def convert(text: str) -> int:
        if not text.isdecimal() or int(text) < least:
            raise argparse.ArgumentTypeError(f"{what} must be an integer of at least {least}, got {text!r}")
        return int(text)

    return convert


def _window(options: argparse.Namespace) -> int:
    names = [name for name, _ in options.spreads]
    if len(set(names)) < len(names):
        options.usage_error(f"--spread {max(names, key=names.count)} is given twice")
    given = (options.recipe, options.targets, dict(options.spreads), options.samples, options.seed)
    if options.output is not None:
        check_place(options.output, [options.recipe, options.targets])  # before the work
        if options.plan is None:
            check_pages()
    if options.plan is not None:
        base, _, drifts = read_window(*given)
        return make_plan_file(
            options, base, window_plan(drifts, points_of(len(drifts), options.samples, options.seed)), "zip"
        )
    warn_about_recipe(options.recipe, "window")
    grid = options.grid if options.grid is not None else GRID if options.output is not None else 0
    try:
        made = make_window(*given, grid, run_options(options))
    except KeyboardInterrupt as interrupt:
        return interrupted("window", interrupt)
    except SimulationError as error:
        raise RuntimeError(f"{options.recipe} fails without deviations: {error.text}") from error
    page = None if options.output is None else made.report(options.output)
    if options.json:
        print(json.dumps(window_json(made), indent=1, allow_nan=False))
    else:
        _print("\n".join(made.sentences))
        for warning in made.warnings:
            print(f"vorlen window: {warning}", file=sys.stderr)
        if page is not None:
            print(f"page in {page}")
    return 1 if {"missing", "lost", "error"} & set(made.table.status) else 0


def _print(text: str) -> None:
    """Prints a text; characters that the terminal's encoding lacks become question marks."""
    encoding = sys.stdout.encoding or "utf-8"
    print(text.encode(encoding, "replace").decode(encoding), flush=True)


def window_json(made: Window) -> dict[str, Any]:
    """A window as --json prints it; null for values that are unknown."""
    return {
        "yield": _known(made.yield_), "interval": list(made.interval), "runs": len(made.table),
        "statuses": {str(name): int(count) for name, count in made.table.status.value_counts().items()},
        "targets": _records(made.targets), "sensitivities": _records(made.sensitivities),
        "sentences": made.sentences, "warnings": made.warnings,
    }


def _records(table: pd.DataFrame) -> list[dict[str, Any]]:
    return [{str(name): _known(value) for name, value in row.items()} for row in table.to_dict("records")]


def _known(value: Any) -> Any:
    return None if isinstance(value, float) and not math.isfinite(value) else value

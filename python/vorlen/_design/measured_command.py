"""What the command lines of windows and maps share: options of the runs, plans for clusters, interrupts."""

from __future__ import annotations

import argparse
import os
import sys
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any

from .._base.files import read_file
from .._base.interrupts import status_of
from .._recipe.check import check_text
from .._recipe.recipe import Recipe
from .._recipe.scheme import STAGED
from .._sweep.plan_file import write_plan
from .command import positive
from .measured import RunOptions, done_text

EXIT_STATUS = """\
Exit status: 0; 1 for a failure, or if runs are missing (the page is written); 2 for a usage error; 130 after Ctrl-C,
143 after SIGTERM."""


def add_run_options(parser: argparse.ArgumentParser) -> None:
    """The options of all runs, and --plan."""
    parser.add_argument(
        "--out", type=Path, metavar="FOLDER",
        help="folder that keeps the runs, which are not repeated (default: NAME.runs beside the recipe NAME.xml)",
    )
    parser.add_argument(
        "-j", "--workers", type=positive("the number of workers", int), metavar="N",
        help="concurrent runs; default: one per processor",
    )
    parser.add_argument(
        "--timeout", type=positive("the timeout", float), default=60.0, metavar="S",
        help="time limit of one run, s; default: 60",
    )
    parser.add_argument(
        "--time-limit", type=positive("the time limit", float), metavar="S", help="start no runs after this time, s"
    )
    parser.add_argument(
        "--plan", type=Path, metavar="PLAN",
        help="run nothing; write a plan for vorlen sweep, which does the runs in parts, as on a cluster. The command "
        "without --plan then uses them",
    )
    parser.add_argument("--quiet", action="store_true", help="no progress bar")


def run_options(options: argparse.Namespace) -> RunOptions:
    """The options of runs as given, with the folder by default. The recipe is checked by warn_about_recipe."""
    return RunOptions(
        timeout=options.timeout, time_limit=options.time_limit, out=runs_folder(options), workers=options.workers,
        progress=not options.quiet, check=False,
    )


def runs_folder(options: argparse.Namespace) -> Path:
    given: Path | None = options.out
    recipe: Path = options.recipe
    return recipe.with_name(f"{recipe.stem}.runs") if given is None else given


def warn_about_recipe(recipe: Path, name: str) -> None:
    """Prints the warnings of `vorlen check` for a command."""
    text = check_text(read_file(recipe), recipe, STAGED)
    if text:
        print(f"vorlen {name}: {text}", file=sys.stderr)


def make_plan_file(
    options: argparse.Namespace, base: Recipe, parameters: Mapping[str, Sequence[Any]], mode: str
) -> int:
    """Writes the plan of the runs and prints their number. Returns the exit status."""
    folder = os.path.relpath(runs_folder(options), options.plan.absolute().parent)
    write_plan(options.plan, base, parameters, mode=mode, timeout=options.timeout, out=folder)
    lists = list(parameters.values())
    count = len(lists[0]) if mode == "zip" else len(lists[0]) * len(lists[1])
    print(f"{count} runs in {options.plan}")
    return 0


def interrupted(name: str, interrupt: KeyboardInterrupt) -> int:
    """Says what is done. Returns the exit status."""
    again = "To continue, give the same command again"
    print(f"vorlen {name}: interrupted{done_text(interrupt)}. {again}", file=sys.stderr)
    return status_of(interrupt)

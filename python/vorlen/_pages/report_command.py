"""The command line of reports: vorlen report RESULT [--recipe R] [-o PAGE] [--live] [--observe WHAT]"""

from __future__ import annotations

import argparse
import errno
import os
from pathlib import Path
from typing import Any

from .._base.files import read_file
from .._recipe.source import RecipeSource
from .._runs.run import Run, read_run
from .._runs.status import check_recipe, failed_path, read_matching_status, read_status, recipe_of_status
from .report import report


def add_command(commands: Any) -> None:
    """Adds `report` to the subcommands."""
    command = commands.add_parser("report", help="write a report of a result file: one page for a browser")
    command.add_argument("result", metavar="RESULT", help="result file")
    command.add_argument("--recipe", metavar="RECIPE", help="its recipe (default: the one named in the status file)")
    command.add_argument("-o", "--output", metavar="PAGE", help="page to write (default: the result's name with .html)")
    command.add_argument("--live", action="store_true", help="also write PAGE-live.html, in which the recipe can be changed")
    command.add_argument(
        "--observe", metavar="WHAT", help="also show what can be measured, some of xrd,curvature,reflectance,emission"
    )
    command.set_defaults(function=_report)


def _report(options: argparse.Namespace) -> int:
    result = Path(options.result)
    stem = result.name.removesuffix(".txt").removesuffix(".result")
    page = Path(options.output) if options.output is not None else result.with_name(stem + ".html")
    given = None if options.recipe is None else RecipeSource.of(Path(options.recipe))
    observe = None if options.observe is None else [word.strip() for word in options.observe.split(",")]
    print(report(run_of_result(result, given), page, live=options.live, observe=observe))
    return 0


def run_of_result(result: Path, given: RecipeSource | None = None) -> Run:
    """The run of a result file with its recipe: the one given, or the one named in the status file.

    If the run failed, the rows up to the failure, if there are any. Raises as read_run(), and FileNotFoundError.
    """
    if not result.exists() and failed_path(result).is_file():
        result = failed_path(result)
    if result.exists():
        status = read_matching_status(result, read_file(result))
        return read_run(result, given or recipe_of_status(status, result))
    status = read_status(result)
    if not status.get("text"):
        raise FileNotFoundError(errno.ENOENT, os.strerror(errno.ENOENT), str(result))
    # The recipe was rejected before the first row: there is only a status file.
    source = given or recipe_of_status(status, result)
    check_recipe(status, source, result)
    return Run(b"", result, source, status["text"], scheme=status.get("scheme"))

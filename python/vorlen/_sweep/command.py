"""The command line of sweeps: vorlen sweep PLAN or vorlen sweep RECIPE --set PATH=VALUES, whole or in parts."""

from __future__ import annotations

import argparse
import math
import sys
from dataclasses import replace
from pathlib import Path
from typing import Any

from .._base.interrupts import status_of
from .._recipe.kinds import SCHEMES
from .check import sweep_text
from .folder import check_same_sweep, holds_sweep, locked_folder, read_folder
from .plan import MODES, Plan, PlanError
from .plan_file import read_plan
from .plan_options import Setting, looks_like_recipe, plan_of_options, split_setting
from .row import RECORDED, empty_row
from .run_rows import run_rows
from .table import collect_rows, count_text, make_table, ranges, write_table

REMEDY = "Name another folder with -o, or replace the sweep with --no-resume"


def _row_range(text: str) -> tuple[int, int]:
    first, colon, last = text.partition(":")
    if not colon or not first.isdecimal() or not last.isdecimal() or int(first) >= int(last):
        raise argparse.ArgumentTypeError(f"invalid range of rows {text!r}; for example, 0:50 means the first fifty")
    return int(first), int(last)


def _workers(text: str) -> int:
    if not text.isdecimal() or int(text) < 1:
        raise argparse.ArgumentTypeError(f"the number of workers must be a positive integer, got {text!r}")
    return int(text)


def _seconds(text: str) -> float:
    try:
        seconds = float(text)
    except ValueError:
        seconds = 0.0
    if not 0.0 < seconds < math.inf:
        raise argparse.ArgumentTypeError(f"the timeout must be a positive, finite number of seconds, got {text!r}")
    return seconds


def setting(text: str) -> Setting:
    """A converter of options PATH=VALUES."""
    try:
        return split_setting(text)
    except ValueError as error:
        raise argparse.ArgumentTypeError(str(error)) from error


def add_command(commands: Any) -> None:
    """Adds `sweep` to the subcommands."""
    parser = commands.add_parser(
        "sweep",
        help="run a recipe with many values",
        usage="vorlen sweep RECIPE --set PATH=VALUES [--set PATH=VALUES]... [-o FOLDER] [option]...\n"
        "       vorlen sweep RECIPE --table FILE [-o FOLDER] [option]...\n"
        "       vorlen sweep PLAN [option]...",
        description="Runs a recipe with many values: every combination of those given with --set, the lines of a "
        "table, or the rows of a plan. Rows that are done are not run again. For example: "
        "vorlen sweep mqw.xml --set process_stages/stage_1/T=1000:1050:5 -o temperatures",
        epilog="Exit status: 0 if the outcome of every requested row is recorded: ok, failed, timeout or crashed; 1 if "
        "rows are missing, were lost or had errors with their files, if the plan is invalid or if another sweep is "
        "running in the folder; 2 for a usage error; 130 after Ctrl-C, 143 after SIGTERM. Parts of one sweep can run at "
        "the same time.",
    )
    parser.add_argument(
        "source", type=Path, metavar="RECIPE|PLAN", help="with --set or --table a recipe, otherwise a plan, a JSON file"
    )
    given = parser.add_mutually_exclusive_group()
    given.add_argument(
        "--set",
        type=setting,
        action="append",
        default=[],
        dest="settings",
        metavar="PATH=VALUES",
        help="values of a path in the recipe, separated by commas; START:END:STEP is a range that includes END; a unit "
        "after the last value, as in 750:760:5 degC, is that of all. "
        "A single value is used in all rows. A value of a ramp sets its start and its end, which are PATH/val and "
        "PATH/end",
    )
    given.add_argument(
        "--table", type=Path, metavar="FILE", help="comma-separated values: a column for each path, a line for each row"
    )
    parser.add_argument(
        "--mode", choices=MODES, help="grid: every combination, the last --set varies fastest (default); zip: the n-th "
        "values together",
    )
    what = parser.add_mutually_exclusive_group()
    what.add_argument("--rows", type=_row_range, metavar="A:B", help="run rows A to B - 1, counted from 0")
    what.add_argument("--merge", action="store_true", help="run nothing; make the table from the rows that are done")
    what.add_argument("--count", action="store_true", help="print the number of rows")
    parser.add_argument(
        "-o",
        "--out",
        type=Path,
        metavar="FOLDER",
        help="folder of the sweep, instead of the plan's or NAME.sweep beside the recipe NAME.xml",
    )
    parser.add_argument("--workers", type=_workers, metavar="N", help="concurrent runs; default: one per processor")
    parser.add_argument("--timeout", type=_seconds, metavar="S", help="time limit of one run, s, instead of the plan's")
    parser.add_argument(
        "--scheme",
        choices=SCHEMES,
        help="integration scheme, instead of the recipe's; use the same for all parts and for --merge",
    )
    parser.add_argument("--no-resume", action="store_true", help="run all rows, including those that are done")
    parser.add_argument("--quiet", action="store_true", help="no progress bar")
    parser.set_defaults(function=_sweep, usage_error=parser.error)


def _given_plan(options: argparse.Namespace) -> tuple[Plan, Path]:
    """The plan and the folder of its sweep, without the options that change them."""
    source: Path = options.source
    if options.settings or options.table:
        if options.table and options.mode:
            options.usage_error("--mode is for --set; the lines of a table are the rows")
        return (
            plan_of_options(source, options.settings, options.table, options.mode),
            source.with_name(source.stem + ".sweep"),
        )
    if options.mode:
        options.usage_error("--mode is for --set; a plan states its own")
    if looks_like_recipe(source):
        raise PlanError(f"{source} is a recipe; give the values to vary with --set PATH=VALUES")
    return read_plan(source)


def _sweep(options: argparse.Namespace) -> int:
    plan, folder = _given_plan(options)
    plan = plan.under(options.scheme)
    folder = options.out or folder
    if options.count:
        print(len(plan.rows()))
        return 0
    if options.merge:
        return _merge(plan, folder)
    is_recipe = options.settings or options.table
    text = sweep_text(plan, options.source if is_recipe else f"the recipe of {options.source}")
    if text:
        print(f"vorlen sweep: {text}", file=sys.stderr)
    if options.timeout is not None:
        plan = replace(plan, timeout=options.timeout)
    return _run(plan, folder, options)


def _merge(plan: Plan, folder: Path) -> int:
    if not holds_sweep(folder):
        raise PlanError(f"{folder} does not hold a sweep: no row of the plan was run")
    check_same_sweep(plan, folder, "Name the folder of this sweep with -o")
    if read_folder(folder).recipe != plan.recipe:
        raise PlanError(f"the rows in {folder} were run with another --scheme; give --merge the same one")
    rows = collect_rows(plan, folder)
    print(count_text(rows))
    return _write(plan, folder, rows)


def _run(plan: Plan, folder: Path, options: argparse.Namespace) -> int:
    count = len(plan.rows())
    first, last = options.rows or (0, count)
    if first >= count:
        raise PlanError(f"row {first} does not exist: the plan has {count} rows, counted from 0")
    numbers = range(first, min(last, count))
    resume = not options.no_resume
    rows = [empty_row("missing") for _ in range(count)]
    try:
        with locked_folder(plan, folder, numbers, whole=options.rows is None, resume=resume, remedy=REMEDY):
            run_rows(
                plan, folder, numbers, rows, workers=options.workers, resume=resume, progress=not options.quiet
            )
            requested = [rows[number] for number in numbers]
            print(count_text(requested), flush=True)
            if options.rows is None:
                return _write(plan, folder, rows)
    except KeyboardInterrupt as interrupt:
        counts = count_text([rows[number] for number in numbers])
        print(f"vorlen sweep: interrupted; {counts}. To continue, give the same command again", file=sys.stderr)
        return status_of(interrupt)
    return _report(rows, numbers)


def _write(plan: Plan, folder: Path, rows: list[dict[str, Any]]) -> int:
    table = write_table(make_table(plan.rows(), rows), folder)
    print(f"table in {table}")
    return _report(rows, range(len(rows)))


def _report(rows: list[dict[str, Any]], numbers: range) -> int:
    """Names the rows that are not recorded. Returns the exit status."""
    lacking = [number for number in numbers if rows[number]["status"] not in RECORDED]
    if not lacking:
        return 0
    missing = [number for number in lacking if rows[number]["status"] == "missing"]
    if missing:
        print(f"vorlen sweep: rows {ranges(missing)} are missing", file=sys.stderr)
    if len(missing) < len(lacking):
        others = [number for number in lacking if number not in set(missing)]
        text = rows[others[0]]["text"]
        print(f"vorlen sweep: rows {ranges(others)} are not finished. Row {others[0]}: {text}", file=sys.stderr)
    return 1

"""The command line of sweeps: vorlen sweep PLAN, as a whole or in parts for batch systems."""

from __future__ import annotations

import argparse
import sys
from dataclasses import replace
from pathlib import Path
from typing import Any

from ._plan import PlanError, prepare_folder, read_plan
from ._scheme import SCHEMES
from ._table import collect_rows, count_text, make_table, ranges, write_table
from ._sweep import run_rows


def _row_range(text: str) -> tuple[int, int]:
    first, colon, last = text.partition(":")
    if not colon or not first.isdigit() or not last.isdigit() or int(first) >= int(last):
        raise argparse.ArgumentTypeError(f"invalid range of rows {text!r}; for example, 0:50 means the first fifty")
    return int(first), int(last)


def _workers(text: str) -> int:
    if not text.isdigit() or int(text) < 1:
        raise argparse.ArgumentTypeError(f"the number of workers must be a positive integer, got {text!r}")
    return int(text)


def _seconds(text: str) -> float:
    try:
        seconds = float(text)
    except ValueError:
        seconds = 0.0
    if not seconds > 0.0:
        raise argparse.ArgumentTypeError(f"the timeout must be a positive number of seconds, got {text!r}")
    return seconds


def add_command(commands: Any) -> None:
    """Adds `sweep` to the subcommands."""
    parser = commands.add_parser(
        "sweep",
        help="run the rows of a plan, or some of them",
        description="Runs the rows of a plan, or some of them. Rows that are done are not run again.",
        epilog="Exit status: 0 if every requested row has been run, even if it failed; 1 if rows are missing or "
        "the plan is invalid; 2 for a usage error.",
    )
    parser.add_argument("plan", type=Path, help="plan of the sweep, a JSON file")
    what = parser.add_mutually_exclusive_group()
    what.add_argument("--rows", type=_row_range, metavar="A:B", help="run rows A to B - 1, counted from 0")
    what.add_argument("--merge", action="store_true", help="run nothing; make the table from the rows that are done")
    what.add_argument("--count", action="store_true", help="print the number of rows")
    parser.add_argument("--out", type=Path, help="folder of the sweep, instead of the plan's")
    parser.add_argument("--workers", type=_workers, metavar="N", help="concurrent runs; default: one per processor")
    parser.add_argument("--timeout", type=_seconds, metavar="S", help="time limit of one run, s, instead of the plan's")
    parser.add_argument(
        "--scheme",
        choices=SCHEMES,
        help="integration scheme, instead of the recipe's; use the same for all parts and for --merge",
    )
    parser.add_argument("--no-resume", action="store_true", help="run all rows, including those that are done")
    parser.add_argument("--quiet", action="store_true", help="no progress bar")
    parser.set_defaults(function=_sweep)


def _sweep(options: argparse.Namespace) -> int:
    plan, folder = read_plan(options.plan)
    plan = plan.under(options.scheme)
    folder = options.out or folder
    inputs = plan.rows()
    if options.count:
        print(len(inputs))
        return 0
    if options.timeout is not None:
        plan = replace(plan, timeout=options.timeout)
    if not options.merge:
        first, last = options.rows or (0, len(inputs))
        if first >= len(inputs):
            raise PlanError(f"row {first} does not exist: the plan has {len(inputs)} rows, counted from 0")
        prepare_folder(plan, folder, resume=not options.no_resume)
        numbers = range(first, min(last, len(inputs)))
        rows = run_rows(
            plan, folder, numbers, options.workers, resume=not options.no_resume, progress=not options.quiet
        )
        print(count_text(rows))
        if options.rows:
            return 0
    rows = collect_rows(plan, folder)
    table = write_table(make_table(inputs, rows), folder)
    if options.merge:
        print(count_text(rows))
    print(f"table in {table}")
    missing = [number for number, row in enumerate(rows) if row["status"] == "missing"]
    if missing:
        print(f"vorlen sweep: rows {ranges(missing)} are missing", file=sys.stderr)
        return 1
    return 0

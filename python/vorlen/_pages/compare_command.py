"""The command line of comparison pages: vorlen compare A B [C ...] [-o PAGE]"""

from __future__ import annotations

import argparse
from pathlib import Path
from typing import Any

from .compare import compare
from .report_command import run_of_result


def add_command(commands: Any) -> None:
    """Adds `compare` to the subcommands."""
    command = commands.add_parser("compare", help="compare result files: one page for a browser")
    command.add_argument(
        "results", metavar="RESULT", nargs="+", help="two or more result files; the others are compared with the first"
    )
    command.add_argument("-o", "--output", metavar="PAGE", default="comparison.html", help="page (default: %(default)s)")
    command.add_argument(
        "--label", metavar="NAME", action="append", help="name of a run on the page; once for each result, in order"
    )
    command.set_defaults(function=_compare)


def _compare(options: argparse.Namespace) -> int:
    if len(options.results) < 2:
        raise ValueError("compare needs at least two result files, got 1")
    if options.label is not None and len(options.label) != len(options.results):
        raise ValueError(f"--label must be given once for each result: {len(options.results)}, got {len(options.label)}")
    runs = [run_of_result(Path(result)) for result in options.results]
    print(compare(runs, Path(options.output), labels=options.label))
    return 0

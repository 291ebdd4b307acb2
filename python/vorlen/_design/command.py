"""The command line of designs: vorlen design RECIPE --targets TARGETS -o DESIGNED"""

from __future__ import annotations

import argparse
import sys
from pathlib import Path
from typing import Any, TextIO

from .._base.arguments import check_number
from .._base.files import check_place, read_file
from .._base.interrupts import status_of
from .._pages.page import check_pages
from .._recipe.check import check_text
from .._recipe.scheme import STAGED
from .._runs.run import SimulationError
from .design import Design, DesignInterrupted, design, design_text, runs_text

EPILOG = """\
Targets are a YAML file:

  layers:
    - {layer: n-GaN,      thickness: 2 um,              by: tau}
    - {layer: InGaN well, thickness: 3.0 nm, In: 0.15,  by: [tau, TMIn]}
  limits: {TMIn: 0.02 .. 0.6 sccm, T: 980 .. 1060 K}
  prefer: {V/III: high}

Quantities: thickness, rate, In, Ga, Al (mean; "In middle", "In final"), strain, dislocations, V-defects: none,
lower interface, upper interface. Knobs: tau, T, P, TMIn, TMGa, TEGa, TMAl, N2, NH3, H2, periods.

Exit status: 0 if all targets are reached; 1 if some are out of reach (the best recipe is written), or for a failure;
2 for a usage error; 130 after Ctrl-C, 143 after SIGTERM."""


def positive(what: str, kind: type) -> Any:
    """A converter of options to positive numbers."""

    def convert(text: str) -> Any:
        try:
            value = kind(text)
            check_number(value, what, 0)
        except (ValueError, TypeError):
            raise argparse.ArgumentTypeError(f"{what} must be positive, got {text!r}") from None
        return value

    return convert


def add_command(commands: Any) -> None:
    """Adds `design` to the subcommands."""
    parser = commands.add_parser(
        "design",
        help="change a recipe so that its layers reach targets",
        description="Changes durations, flows and other knobs of a recipe so that its layers reach targets.",
        epilog=EPILOG,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("recipe", type=Path, metavar="RECIPE", help="recipe to start from")
    parser.add_argument("--targets", type=Path, required=True, metavar="TARGETS", help="YAML file with the targets")
    parser.add_argument(
        "-o", "--output", type=Path, metavar="DESIGNED", help="recipe to write (default: RECIPE's name with _designed)"
    )
    parser.add_argument("--report", type=Path, metavar="PAGE", help="write a page for a browser")
    parser.add_argument("--out", type=Path, metavar="FOLDER", help="keep the runs there; they are not repeated")
    parser.add_argument("--force", action="store_true", help="replace an existing recipe")
    parser.add_argument(
        "--workers", type=positive("the number of workers", int), metavar="N",
        help="concurrent runs; default: one per processor",
    )
    parser.add_argument(
        "--max-runs", type=positive("the number of runs", int), default=300, metavar="N",
        help="largest number of runs; default: 300",
    )
    parser.add_argument(
        "--time-limit", type=positive("the time limit", float), metavar="S", help="start no runs after this time, s"
    )
    parser.add_argument(
        "--timeout", type=positive("the timeout", float), default=60.0, metavar="S",
        help="time limit of one run, s; default: 60",
    )
    parser.add_argument("--quiet", action="store_true", help="no progress line")
    parser.set_defaults(function=_design)


def _print(text: str, stream: TextIO) -> None:
    """Prints a text; characters that the terminal's encoding lacks become question marks."""
    encoding = stream.encoding or "utf-8"
    print(text.encode(encoding, "replace").decode(encoding), file=stream, flush=True)


def _design(options: argparse.Namespace) -> int:
    recipe: Path = options.recipe
    output: Path = options.output or recipe.with_name(f"{recipe.stem}_designed.xml")
    inputs = [recipe, options.targets]
    for place in filter(None, (output, options.report)):
        check_place(place, inputs)  # before the work
    if options.report is not None:
        check_pages(charts=False)
    if options.report is not None and options.report.resolve() == output.resolve():
        raise ValueError(f"{output} can't be both the recipe and the page")
    if output.exists() and not options.force:
        raise FileExistsError(f"{output} exists; give another name with -o, or --force to replace it")
    text = check_text(read_file(recipe), recipe, STAGED)
    if text:
        _print(f"vorlen design: {text}", sys.stderr)
    try:
        made = design(
            recipe, options.targets, max_runs=options.max_runs, time_limit=options.time_limit, timeout=options.timeout,
            out=options.out, workers=options.workers, progress=not options.quiet, check=False,
        )
    except DesignInterrupted as interrupt:
        _save(interrupt.design, output, options.report)
        _print(f"vorlen design: {output} is the best so far; repeat the command with --force", sys.stderr)
        cause = interrupt.__cause__
        return status_of(cause if isinstance(cause, KeyboardInterrupt) else interrupt)
    except KeyboardInterrupt as interrupt:
        return status_of(interrupt)
    except SimulationError as error:
        raise RuntimeError(f"{recipe} fails, and with other values of the knobs too: {error.text}") from error
    _save(made, output, options.report)
    return 0 if made.success else 1


def _save(made: Design, output: Path, page: Path | None) -> None:
    made.recipe.save(output)
    if page is not None:
        made.report(page)
    _print(design_text(made), sys.stdout)
    for warning in made.warnings:
        _print(f"vorlen design: {warning}", sys.stderr)
    _print(f"recipe in {output}, {runs_text(made.runs)}", sys.stdout)
    if page is not None:
        _print(f"report in {page}", sys.stdout)

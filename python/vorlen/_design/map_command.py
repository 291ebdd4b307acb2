"""The command line of process maps: vorlen map RECIPE --x PATH=VALUES --y PATH=VALUES -o PAGE"""

from __future__ import annotations

import argparse
import sys
from pathlib import Path
from typing import Any

from .._base.files import check_place, read_file
from .._base.interrupts import status_of
from .._recipe.check import check_text
from .._recipe.scheme import STAGED
from .._runs.run import SimulationError
from .._sweep.command import setting
from .._sweep.plan_options import plan_of_options
from .command import positive
from .map import SHOWN, process_map

EPILOG = """\
For example:
  vorlen map led.xml --x process_stages/stage_4/stage_4_3/T=1000:1050:10 \\
    --y process_stages/stage_4/stage_4_3/gas_species/Q/TMIn=0.05:0.3:0.05 -o map.html

Quantities: thickness, rate, In, Ga, Al ("In middle", "In final"), strain, dislocations, V-defects, lower interface,
upper interface; or columns such as x_in.

Exit status: 0; 1 for a failure; 2 for a usage error; 130 after Ctrl-C, 143 after SIGTERM."""


def add_command(commands: Any) -> None:
    """Adds `map` to the subcommands."""
    parser = commands.add_parser(
        "map",
        help="run a recipe on a grid of two values: one page with a map",
        description="Runs a recipe on a grid of two of its values and draws lines of equal composition and thickness.",
        epilog=EPILOG,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    parser.add_argument("recipe", type=Path, metavar="RECIPE", help="recipe to vary")
    for axis, name in (("x", "horizontal"), ("y", "vertical")):
        parser.add_argument(
            f"--{axis}", type=setting, required=True, metavar="PATH=VALUES",
            help=f"{name} axis: a path in the recipe and its values, as for vorlen sweep --set: a range "
            "START:END:STEP or a list with commas",
        )
    parser.add_argument(
        "--show", default=",".join(SHOWN), metavar="LIST", help="quantities, separated by commas (default: %(default)s)"
    )
    parser.add_argument(
        "--layer", metavar="LAYER", help="name or path of the layer to show (default: the wells of the active region)"
    )
    parser.add_argument(
        "--targets", type=Path, metavar="TARGETS", help="YAML file with targets; the region where they hold is shaded"
    )
    parser.add_argument(
        "-o", "--output", type=Path, default=Path("map.html"), metavar="PAGE", help="page (default: %(default)s)"
    )
    parser.add_argument("--out", type=Path, metavar="FOLDER", help="keep the runs there; they are not repeated")
    parser.add_argument(
        "--workers", type=positive("the number of workers", int), metavar="N",
        help="concurrent runs; default: one per processor",
    )
    parser.add_argument(
        "--timeout", type=positive("the timeout", float), default=60.0, metavar="S",
        help="time limit of one run, s; default: 60",
    )
    parser.add_argument("--quiet", action="store_true", help="no progress bar")
    parser.set_defaults(function=_map)


def _map(options: argparse.Namespace) -> int:
    recipe: Path = options.recipe
    inputs = [recipe, *([options.targets] if options.targets else [])]
    check_place(options.output, inputs)  # before the work
    plan = plan_of_options(recipe, [options.x, options.y], None, None)
    text = check_text(read_file(recipe), recipe, STAGED)
    if text:
        print(f"vorlen map: {text}", file=sys.stderr)
    try:
        made = process_map(
            recipe, plan.parameters, show=[name.strip() for name in options.show.split(",") if name.strip()],
            layer=options.layer, targets=options.targets, timeout=options.timeout, out=options.out,
            workers=options.workers, progress=not options.quiet, check=False,
        )
    except KeyboardInterrupt as interrupt:
        return status_of(interrupt)
    except SimulationError as error:
        raise RuntimeError(f"no map of {recipe}: {error.text}") from error
    print(made.report(options.output))
    return 0

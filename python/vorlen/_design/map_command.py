"""The command line of process maps: vorlen map RECIPE --x PATH=VALUES --y PATH=VALUES -o PAGE"""

from __future__ import annotations

import argparse
import sys
from pathlib import Path
from typing import Any

from .._base.files import check_place
from .._pages.page import check_pages
from .._recipe.scheme import STAGED
from .._runs.run import SimulationError
from .._sweep.command import setting
from .._sweep.plan_options import plan_of_options
from .._sweep.plan_values import given_recipe
from .map import SHOWN, make_map
from .measured_command import EXIT_STATUS, add_run_options, interrupted, make_plan_file, run_options, warn_about_recipe

EPILOG = f"""\
For example:
  vorlen map led.xml --x process_stages/stage_4/stage_4_3/T=1000:1050:10 \\
    --y process_stages/stage_4/stage_4_3/gas_species/Q/TMIn=0.05:0.3:0.05 -o map.html

Quantities: thickness, rate, In, Ga, Al ("In middle", "In final"), strain, dislocations, V-defects, lower interface,
upper interface; or columns such as x_in.

{EXIT_STATUS}"""


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
    add_run_options(parser)
    parser.set_defaults(function=_map)


def _map(options: argparse.Namespace) -> int:
    recipe: Path = options.recipe
    inputs = [recipe, *([options.targets] if options.targets else [])]
    check_place(options.output, inputs)  # before the work
    if options.plan is None:
        check_pages()
    plan = plan_of_options(recipe, [options.x, options.y], None, None)
    if options.plan is not None:
        return make_plan_file(options, given_recipe(recipe, STAGED), plan.parameters, "grid")
    warn_about_recipe(recipe, "map")
    show = [name.strip() for name in options.show.split(",") if name.strip()]
    try:
        made = make_map(recipe, plan.parameters, show, options.layer, options.targets, run_options(options))
    except KeyboardInterrupt as interrupt:
        return interrupted("map", interrupt)
    except SimulationError as error:
        raise RuntimeError(f"no map of {recipe}: {error.text}") from error
    for warning in made.warnings:
        print(f"vorlen map: {warning}", file=sys.stderr)
    print(made.report(options.output))
    return 1 if {"missing", "lost", "error"} & set(made.table.status) else 0

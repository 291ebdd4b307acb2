"""The command line of what can be measured: vorlen observe RESULT [--xrd [HKL]] [--measured FILE ...] [-o PAGE]"""

from __future__ import annotations

import argparse
import re
from pathlib import Path
from typing import Any

from .._observe import measured
from .._observe.curvature import checked_thickness
from .._observe.curve import Curve
from .._observe.emission import settings_of
from .._observe.substrates import SUBSTRATES
from .._recipe.source import RecipeSource
from .._runs.agreement import agreement_of, checked_curves, checked_offset, shifts_of
from .observed import OBSERVABLES, observe, observed_page
from .page import write_page
from .report_command import run_of_result

ARGUMENTS = {"xrd": "hkl", "curvature": "substrate", "reflectance": "wavelength"}  # what the value of an option means


def add_command(commands: Any) -> None:
    """Adds `observe` to the subcommands."""
    command = commands.add_parser("observe", help="show what can be measured on the wafer of a result: one page for a browser")
    command.add_argument("result", metavar="RESULT", help="result file")
    command.add_argument("--recipe", metavar="RECIPE", help="its recipe (default: the one named in the status file)")
    command.add_argument("--xrd", metavar="HKL", nargs="?", const="", help="X-ray diffraction, reflection such as 002 or 1,0,-1,5")
    command.add_argument(
        "--curvature", metavar="SUBSTRATE", nargs="?", const="",
        help=f"curvature of the wafer during growth on {', '.join(SUBSTRATES)} (default: sapphire)",
    )
    command.add_argument("--reflectance", metavar="NM", nargs="?", const="", help="reflectance during growth at a wavelength, nm")
    command.add_argument("--emission", action="store_true", help="wavelengths at which the wells emit")
    command.add_argument("--thickness", metavar="UM", help="thickness of the substrate, um (default: 430)")
    command.add_argument("--screening", metavar="SHARE", help="share of the field in the wells that is screened, 0 to 1 (default: 0)")
    command.add_argument(
        "--measured", metavar="FILE", nargs="+", action="extend", default=[],
        help="measured curves to draw with the simulated ones; KIND=FILE for files without headings",
    )
    command.add_argument(
        "--not-calibrated", action="store_true", help="adjust the zero of measured curvatures and the factor of reflectances"
    )
    command.add_argument(
        "--angle-offset", metavar=("LOW", "HIGH"), nargs=2, help="offset of measured angles 2theta to search for, deg"
    )
    command.add_argument("--time-offset", metavar=("LOW", "HIGH"), nargs=2, help="offset of measured times to search for, s")
    command.add_argument("-o", "--output", metavar="PAGE", help="page to write (default: the result's name with .observe.html)")
    command.set_defaults(function=_observe)


def _observe(options: argparse.Namespace) -> int:
    result = Path(options.result)
    stem = result.name.removesuffix(".txt").removesuffix(".result")
    path = Path(options.output) if options.output is not None else result.with_name(f"{stem}.observe.html")
    settings = settings_given(options)
    wanted = [kind for kind in OBSERVABLES if getattr(options, kind) not in (None, False)]
    angles = checked_offset("--angle-offset", options.angle_offset, "deg")
    times = checked_offset("--time-offset", options.time_offset, "s")
    curves = [_read(word, settings, not options.not_calibrated) for word in options.measured]
    if curves:
        checked_curves(curves)
    run = run_of_result(result, None if options.recipe is None else RecipeSource.of(Path(options.recipe)))
    if not run.content or run._profile.empty:
        raise ValueError(f"{result} has no rows: nothing was simulated")
    every = not wanted and not curves

    def text() -> str:
        agreements = [agreement_of(run, curve, shifts_of(curve, angles, times)) for curve in curves]
        chosen = {kind: settings[kind] for kind in (OBSERVABLES if every else wanted)}
        found = observe(run, chosen, agreements, lenient=every)
        if every and not found.curves and found.wells is None:
            raise ValueError("; ".join(found.problems))
        return observed_page(run, found=found)

    print(write_page(path, text, inputs=[*run._own_files, *(curve.path for curve in curves)]))
    return 0


def settings_given(options: argparse.Namespace) -> dict[str, dict[str, Any]]:
    """The arguments of each observable that are given as options, whether it is chosen or not. Raises ValueError."""
    settings: dict[str, dict[str, Any]] = {kind: {} for kind in OBSERVABLES}
    for kind, argument in ARGUMENTS.items():
        value = getattr(options, kind)
        if value:
            settings[kind][argument] = miller_indices(value) if kind == "xrd" else value
    if options.thickness is not None:
        settings["curvature"]["thickness"] = checked_thickness(options.thickness)
    if options.screening is not None:
        settings["emission"]["screening"] = settings_of(screening=options.screening).screening
    settings["reflectance"] |= settings["curvature"]  # of the same wafer
    return settings


def miller_indices(text: str) -> tuple[int, int, int]:
    """002, -105, "0 0 2", -1,0,5, or four indices hkil as in 0002. Raises ValueError."""
    words = re.split(r"[\s,]+", text.strip()) if re.search(r"[\s,]", text.strip()) else re.findall(r"-?\d", text)
    plain = "".join(words) == re.sub(r"[\s,]+", "", text)
    if plain and all(re.fullmatch(r"-?\d{1,2}", word) for word in words):
        indices = [int(word) for word in words]
        if len(indices) == 4 and indices[0] + indices[1] + indices[2] == 0:
            del indices[2]
        if len(indices) == 3:
            return indices[0], indices[1], indices[2]
    raise ValueError(f"--xrd must be a reflection such as 002, 004, 105 or 1,0,-1,5, got {text!r}")


def _read(word: str, settings: dict[str, dict[str, Any]], calibrated: bool) -> Curve:
    """A measured file with the settings of its kind."""
    kind, _, path = word.partition("=")
    if path and kind in OBSERVABLES:
        return measured.read(path, kind, calibrated=calibrated, **settings[kind])
    curve = measured.read(word, calibrated=calibrated)
    curve.settings |= settings[curve.kind]
    return curve

"""One simulation: run() calls the library, Run holds its result.

The values of layers are defined in docs/result-format.md; this package and the command-line tool compute the same.
"""

from __future__ import annotations

import datetime
import functools
import hashlib
import json
import os
import socket
import stat
import tempfile
import time
import uuid
from dataclasses import dataclass, field
from pathlib import Path
from typing import TYPE_CHECKING, Any

import numpy as np
import pandas as pd

from . import xml_bytes
from ._library import simulate
from ._result_check import (
    Stage,
    end_text,
    is_text_of_integration,
    looks_physical,
    remedy_text,
    stages_of_layers,
    stages_of_recipe,
    unphysical_text,
)
from ._scheme import check_scheme, scheme_of, with_scheme
from ._version import __version__
from .recipe import Recipe, RecipeError
from .result_file import (
    COLUMN_NAMES,
    TIME_TOLERANCE,
    ResultFileError,
    bytes_of_rows,
    has_rows,
    parse_layers,
    parse_profile,
    reaches_the_end,
)

if TYPE_CHECKING:
    from matplotlib.figure import Figure

SMALLEST_MISMATCH = 1e-6  # angstrom; below it the degree of relaxation is undefined

# name, unit, meaning of the columns of Run.layers
LAYER_COLUMNS = (
    ("name", "", "name in the recipe"),
    ("kind", "", "pre, active (simulated) or post"),
    ("begin", "s", "time at which the layer begins"),
    ("end", "s", "time at which it ends"),
    ("duration", "s", "duration"),
    ("thickness", "nm", "thickness"),
    ("mean_rate", "nm/s", "thickness by duration"),
    ("x_in", "1", "indium, mean over the thickness"),
    ("x_ga", "1", "gallium, mean over the thickness"),
    ("x_al", "1", "aluminium, mean over the thickness"),
    ("x_in_end", "1", "indium at the end"),
    ("x_ga_end", "1", "gallium at the end"),
    ("x_al_end", "1", "aluminium at the end"),
    ("eps_xx_t", "1", "in-plane strain of the surface at the end of the layer"),
    ("eps_xx_z", "1", "in-plane strain of the top of the layer in the finished structure"),
    ("rho_td_t", "cm^-2", "threading dislocations at the surface at the end of the layer"),
    ("rho_td_z", "cm^-2", "threading dislocations at the top of the layer in the finished structure"),
    ("v_defects_t", "cm^-2", "V-defects at the end of the layer"),
    ("relaxation", "1", "degree of relaxation of the top of the layer in the finished structure"),
)


class SimulationError(RuntimeError):
    """A run failed.

    text    the library's text, explained in docs/messages.md; if the integration ended early or rows are unphysical,
            also the time, the stage and what to do
    recipe  the recipe passed to run()
    run     the rows up to the failure, as a Run; None if there are none
    """

    def __init__(self, text: str, recipe: Any = None, run: Run | None = None) -> None:
        super().__init__(text)
        self.text = text
        self.recipe = recipe
        self.run = run

    def __reduce__(self) -> tuple[Any, ...]:
        return SimulationError, (self.text, self.recipe, self.run)


@dataclass(repr=False, eq=False)
class Run:
    """The result of one simulation. The table is parsed when it is first used."""

    content: bytes = field(repr=False)  # of the result file
    path: Path | None = None  # the result file, if it was saved
    recipe_source: RecipeSource = field(default_factory=lambda: RecipeSource())
    text: str = ""  # why the run failed; empty if it ended normally or the reason is unknown
    wall_time: float | None = None  # of the call of the library, s
    scheme: str | None = None  # of the integration; None: unknown

    @functools.cached_property
    def profile(self) -> pd.DataFrame:
        """All rows; attrs["units"] and attrs["meanings"] describe the columns."""
        return parse_profile(self.content, self._name)

    @functools.cached_property
    def layers(self) -> pd.DataFrame:
        """One row per layer, numbered from 1. attrs["units"] and attrs["meanings"] describe the columns."""
        return _layer_values(parse_layers(self.content, self._name), self.profile)

    @functools.cached_property
    def complete(self) -> bool:
        """True if the table reaches the end of the last layer."""
        return reaches_the_end(self.content, self._name)

    @functools.cached_property
    def unphysical(self) -> str:
        """One line on unphysical rows (NaN, infinity, a fraction far outside of 0 to 1). Empty if there are none."""
        return unphysical_text(self.profile, self._stages)

    @property
    def failed(self) -> bool:
        """True if the library reported a failure, rows are unphysical, or the table ends before the last layer does."""
        return bool(self.text) or not self.complete or bool(self.unphysical)

    @property
    def sha256(self) -> str:
        """SHA-256 hash of the result file."""
        return hashlib.sha256(self.content).hexdigest()

    @property
    def _name(self) -> str:
        return str(self.path or "result")

    @functools.cached_property
    def recipe(self) -> Recipe | None:
        """The recipe; None if it is unknown or not well-formed."""
        if self.recipe_source.content is None:
            return None
        try:
            return Recipe(self.recipe_source.content, self.recipe_source.path)
        except RecipeError:
            return None

    @functools.cached_property
    def interfaces(self) -> pd.DataFrame:
        """One row per interface with a change of composition, and its 10-90 % width; see vorlen.interfaces."""
        from .interfaces import interfaces

        return interfaces(self)

    @property
    def warnings(self) -> list[str]:
        """Warnings about the values; usually empty."""
        return [self.unphysical] if self.unphysical else []

    def _stages(self) -> list[Stage]:
        """The stages as named in texts: from the recipe, or from the layers if it is unknown."""
        stages = stages_of_recipe(self.recipe) if self.recipe is not None else []
        return stages if len(stages) == len(self.layers) else stages_of_layers(self.layers)

    @property
    def end(self) -> pd.Series:
        """The last row: the surface at the end of the process."""
        return self.profile.iloc[-1]

    def to_csv(self, path: str | os.PathLike[str], what: str = "profile") -> None:
        """Writes "profile" or "layers" as comma-separated values with all digits."""
        self._table(what).to_csv(path, index=what == "layers")

    def to_netcdf(self, path: str | os.PathLike[str]) -> None:
        """Writes profile and layers as one netCDF-4 file, with units and meanings. Needs xarray and netCDF4."""
        from .export import write_netcdf

        write_netcdf(self, Path(path))

    def _table(self, what: str) -> pd.DataFrame:
        if what not in ("profile", "layers"):
            raise ValueError(f'what must be "profile" or "layers", got {what!r}')
        return self.profile if what == "profile" else self.layers

    def plot(self, kind: str = "time", **options: Any) -> Figure:
        """A figure of the run; see vorlen.plot.plot_run for the kinds and options. Needs matplotlib."""
        from .plot import plot_run

        return plot_run(self, kind, **options)

    def __repr__(self) -> str:
        state = f"failed: {self.text or self.unphysical or 'incomplete'}" if self.failed else "complete"
        place = f", {self.path}" if self.path else ""
        return f"<Run, {len(self.profile)} rows, {state}{place}>"


def _kinds(active: np.ndarray, layer_count: int) -> list[str]:
    """Kind of each layer (pre, active or post) from the kinds of the rows: pre- and post-stages have two rows each.

    A failed run has no rows of post-stages; they count as active stages that were not reached.
    """
    simulated = np.flatnonzero(active)
    pre = min(simulated[0] // 2 if len(simulated) else len(active) // 2, layer_count)
    post = (len(active) - 1 - simulated[-1]) // 2 if len(simulated) else 0
    post = min(post, layer_count - pre)
    return ["pre"] * pre + ["active"] * (layer_count - pre - post) + ["post"] * post


def _mean_composition(time: np.ndarray, z: np.ndarray, x: np.ndarray, begin: float, end: float) -> np.ndarray | None:
    """Mean of x over the height grown between two times. x has one column per metal.

    The integral of x dz by the trapezoid rule over each pair of consecutive rows, clipped to begin and end, x and z
    linear in time between rows. None if nothing grew. NaN if the mean is not finite: an infinite height, or almost as
    much evaporated as grew.
    """
    begin, end = max(begin, time[0]), min(end, time[-1])
    times = np.concatenate(([begin], time[(time > begin) & (time < end)], [end]))
    if times[-1] <= times[0]:
        return None
    heights = np.interp(times, time, z)
    with np.errstate(invalid="ignore"):  # infinity - infinity
        grown = heights[-1] - heights[0]
    if not grown > 0.0:
        return None
    columns = [np.interp(times, time, column) for column in x.T]
    with np.errstate(all="ignore"):
        steps = np.diff(heights)
        means = np.array([np.sum(0.5 * (column[1:] + column[:-1]) * steps) / grown for column in columns])
    return np.where(np.isfinite(means), means, np.nan)


def _relaxation(row: dict[str, float], a_sub: float) -> float:
    """(a - a_sub) / (a0 - a_sub) in the finished structure, where a0 is the layer's unstrained lattice constant."""
    a0 = row["a_eff_z"] / (1.0 + row["eps_xx_z"])
    if abs(a0 - a_sub) < SMALLEST_MISMATCH:
        return np.nan
    return (row["a_eff_z"] - a_sub) / (a0 - a_sub)


def _layer_values(layer_list: pd.DataFrame, profile: pd.DataFrame) -> pd.DataFrame:
    """Run.layers from the lines of the layers and the rows."""
    names = [name for name, _, _ in LAYER_COLUMNS]
    active = profile["active"].to_numpy()
    numbers = {name: profile[name].to_numpy() for name in COLUMN_NAMES}
    kinds = _kinds(active, len(layer_list))
    active_rows = np.flatnonzero(active)
    pre_count = kinds.count("pre")
    post_begin = active_rows[-1] + 1 if len(active_rows) else 2 * pre_count
    substrate_row = 2 * pre_count - 1 if pre_count else (active_rows[0] if len(active_rows) else None)
    metals = np.column_stack([numbers["x_in"], numbers["x_ga"], numbers["x_al"]])

    records = []
    clock = numbers["time"][0] if len(profile) else np.nan
    for index, (name, duration, thickness) in enumerate(layer_list.itertuples(index=False)):
        kind = kinds[index]
        begin, end = clock, clock + duration
        clock = end
        slack = TIME_TOLERANCE * abs(end)
        if kind == "active":
            time = numbers["time"][active_rows]
            candidates = active_rows[(time > begin + slack) & (time <= end + slack)]
            mean = (
                _mean_composition(time, numbers["z"][active_rows], metals[active_rows], begin, end)
                if len(active_rows)
                else None
            )
        else:
            first = 2 * index if kind == "pre" else post_begin + 2 * (index - len(kinds) + kinds.count("post"))
            candidates = np.arange(first, min(first + 2, len(profile)))
            mean = metals[candidates].mean(axis=0) if len(candidates) == 2 else None
        record: dict[str, Any] = dict.fromkeys(names, np.nan)
        record.update(name=name, kind=kind, begin=begin, end=end, duration=duration, thickness=thickness)
        if duration != 0.0:
            record["mean_rate"] = thickness / duration
        if mean is not None:
            record.update(zip(("x_in", "x_ga", "x_al"), mean))
        if len(candidates):
            row = {column: float(numbers[column][candidates[-1]]) for column in COLUMN_NAMES}
            for column in ("x_in", "x_ga", "x_al"):
                record[f"{column}_end"] = row[column]
            for column in ("eps_xx_t", "eps_xx_z", "rho_td_t", "rho_td_z"):
                record[column] = row[column]
            record["v_defects_t"] = row["rho_vd0_t"] / 2.0
            record["relaxation"] = _relaxation(row, float(numbers["a_eff_z"][substrate_row]))
        records.append(record)
    table = pd.DataFrame(records, columns=names, index=layer_list.index)
    table.attrs["units"] = {name: unit for name, unit, _ in LAYER_COLUMNS}
    table.attrs["meanings"] = {name: meaning for name, _, meaning in LAYER_COLUMNS}
    return table


def read(path: str | os.PathLike[str], recipe: str | os.PathLike[str] | Recipe | None = None) -> Run:
    """Reads a result file, including that of a failed run.

    recipe  the recipe of the run, needed for temperatures and stages in figures and reports
    Raises ResultFileError, with the line number, if the file is not a valid result file. Text and duration of the run
    are read from its status file, if there is one that matches.
    """
    path = Path(path)
    content = path.read_bytes()
    if not content:
        raise ResultFileError(f"{path} is empty: the run ended before its first row")
    status = read_status(path)
    if status and status.get("result_sha256") != hashlib.sha256(content).hexdigest():
        status = {}
    source = RecipeSource() if recipe is None else RecipeSource.of(recipe)
    if recipe is not None and source.content is None:
        raise FileNotFoundError(f"recipe not found: {source.path}")
    result = Run(
        content, path, source, str(status.get("text") or ""), status.get("wall_time_s"), status.get("scheme")
    )
    _ = result.profile  # reports any fault of the file now
    return result


def run(
    recipe: str | os.PathLike[str] | Recipe,
    result: str | os.PathLike[str] | None = None,
    scheme: str | None = None,
) -> Run:
    """Simulates one recipe.

    recipe  a path, a Recipe, or the XML itself
    result  path of the result file; None: it is not saved. An existing file is replaced when the new one is complete.
            A status file (NAME.status.json) is written to the same folder
    scheme  integration scheme, "continuous" or "staged"; None: the scheme of the recipe
    Raises SimulationError with the library's text if the run fails, and if a row is unphysical: NaN, infinite, or with
    a fraction outside of [-0.001, 1.001]. The rows up to the failure are in the error's run and are saved to
    NAME.failed.txt; an existing result stays. If the recipe can't be read, the files of earlier runs stay as they are.
    Other Python threads run during the call.
    """
    check_scheme(scheme)
    source = RecipeSource.of(recipe)
    simulated_source = source.under(scheme)
    scheme = scheme_of(simulated_source.content)
    target = None if result is None else Path(result)
    if target is not None:
        _check_target(target, source)
    with tempfile.TemporaryDirectory(prefix="vorlen-") as folder:
        # Written to the target's folder, so that renaming it stays within one file system.
        output = _temporary_beside(target) if target else Path(folder, "result.txt")
        kept = None
        stranded = False  # the rows could not be renamed and keep their temporary name
        try:
            begin = time.perf_counter()
            file = simulated_source.file_for_library(Path(folder))
            status, text = simulate(file, output)
            wall_time = time.perf_counter() - begin
            text = text.replace(str(output), str(target)) if target else text
            text = text.replace(str(file), str(source.path or "recipe.xml"))
            content, cut = _whole_lines(output)
            simulated = Run(content, None, source, text, wall_time, scheme) if has_rows(content) else None
            if status == 0 and (simulated is None or cut or not simulated.complete):
                status, text = 1, f"{target or 'the result'}: the file ends before the run does. Is the disk full?"
                text += "\nNo row could be written" if simulated is None else ""
            text = _text_with_rows(text, simulated, scheme)
            status = 1 if text else status
            if simulated is not None:
                simulated.text = text
            # Without a recipe nothing was run, so the files of an earlier run stay.
            if target and (source.content is not None or simulated is not None):
                kept = target if status == 0 or simulated is None else failed_path(target)
                if simulated is not None:
                    stranded = True
                    _put_in_place(output, kept)
                    stranded = False
                    simulated.path = kept
                if kept == target and failed_path(target).is_file():
                    failed_path(target).unlink()  # of an earlier run
        finally:
            if target and not stranded:
                output.unlink(missing_ok=True)
    if target and kept and source.content is not None:
        written = content if simulated else b""
        try:
            write_status(target, kept, status, text, wall_time, source, written, scheme)
        except OSError:
            if status == 0:
                raise  # otherwise report the failure of the run, not that of its status file, as on a full disk
    if status != 0:
        raise SimulationError(text, recipe, simulated)
    assert simulated is not None
    return simulated


def _text_with_rows(text: str, simulated: Run | None, scheme: str) -> str:
    """The text of a run, with what its rows show about a failure; empty if it did not fail.

    text  the library's text, empty if the run ended normally
    """
    if text and not is_text_of_integration(text):
        return text
    if simulated and looks_physical(bytes_of_rows(simulated.content)):
        simulated.unphysical = ""  # saves parsing
    lines = [text] if text else []
    if text:
        profile, stages = (simulated.profile, simulated._stages()) if simulated else (None, [])
        lines.append(end_text(profile, stages))
    if simulated and simulated.unphysical:
        lines.append(simulated.unphysical)
    return "\n".join([*lines, remedy_text(scheme)]) if lines else ""


def _whole_lines(path: Path) -> tuple[bytes, bool]:
    """The file's content, and whether its last line was truncated, as on a full disk: such a line is removed."""
    content = path.read_bytes() if path.exists() else b""
    size = content.rfind(b"\n") + 1
    if size == len(content):
        return content, False
    os.truncate(path, size)
    return content[:size], True


def _temporary_beside(target: Path) -> Path:
    """A name for a file in the folder of target, or of the target of a link."""
    name = target.name if len(os.fsencode(target.name)) <= 200 else "vorlen"  # names have 255 bytes at most
    return target.resolve().with_name(f".{name}.{uuid.uuid4().hex}")


def _put_in_place(temporary: Path, place: Path) -> None:
    """Renames; a link at place stays, and so do the permissions of an existing file. The rows are never lost."""
    place = place.resolve()
    try:
        if place.exists():
            temporary.chmod(stat.S_IMODE(place.stat().st_mode))
        os.replace(temporary, place)
    except OSError as error:
        raise OSError(error.errno, f"{error.strerror}; the rows are in {temporary}", str(place)) from error


@dataclass(frozen=True)
class RecipeSource:
    """A recipe as it was given: a file, a text, or both if a Recipe was loaded from a file."""

    path: Path | None = None
    content: bytes | None = None  # None: no recipe, or it can't be read
    on_disk: bool = False  # path holds content

    @staticmethod
    def of(recipe: str | os.PathLike[str] | Recipe) -> RecipeSource:
        if isinstance(recipe, Recipe):
            return RecipeSource(recipe.path, recipe.to_bytes())
        if isinstance(recipe, str) and recipe.lstrip("\ufeff \t\r\n").startswith("<"):
            return RecipeSource(None, xml_bytes.encode(recipe))
        path = Path(recipe)
        try:
            return RecipeSource(path, path.read_bytes(), on_disk=True)
        except OSError:
            return RecipeSource(path, None, on_disk=True)  # the library reports what is wrong with it

    def under(self, scheme: str | None) -> RecipeSource:
        """The recipe with this integration scheme; the same object if it has it already."""
        if scheme is None or self.content is None:
            return self
        content = with_scheme(self.content, scheme, str(self.path or "recipe"))
        return self if content == self.content else RecipeSource(self.path, content)

    def file_for_library(self, folder: Path) -> Path:
        """A file with the recipe, written to folder if there is none."""
        if self.on_disk and self.path is not None:
            return self.path
        path = folder / "recipe.xml"
        path.write_bytes(self.content or b"")
        return path


def _check_target(target: Path, source: RecipeSource) -> None:
    """Rejects a result path that would overwrite something else, before anything is computed."""
    for path in (target, status_path(target), failed_path(target)):
        if source.path is not None and source.path.exists() and path.exists() and path.samefile(source.path):
            raise ValueError(f"the result would overwrite the recipe {source.path}")
    if target.name.endswith(".failed.txt"):
        raise ValueError(f"{target}: names ending in .failed.txt are for the rows of failed runs; choose another one")
    if target.is_dir():
        raise IsADirectoryError(f"{target} is a folder; give the path of a file for the result")
    if target.exists() and not target.is_file():
        raise ValueError(f"{target} is not a regular file")
    if target.exists() and not os.access(target, os.W_OK):
        raise PermissionError(f"{target} is not writable")
    if not target.parent.is_dir():
        raise FileNotFoundError(f"folder not found: {target.parent}, for the result {target.name}")


def _sibling(result: str | os.PathLike[str], ending: str) -> Path:
    path = Path(result)
    name = path.name
    for suffix in (".result.txt", ".failed.txt", ".txt"):
        if name.endswith(suffix):
            name = name.removesuffix(suffix)
            break
    return path.with_name(name + ending)


def status_path(result: str | os.PathLike[str]) -> Path:
    """The status file of a result file: NAME.result.txt, NAME.failed.txt or NAME.txt has NAME.status.json."""
    return _sibling(result, ".status.json")


def failed_path(result: str | os.PathLike[str]) -> Path:
    """Path of the file with the rows of a failed run."""
    return _sibling(result, ".failed.txt")


def read_status(result: str | os.PathLike[str]) -> dict[str, Any]:
    """The content of the status file of a result; empty if it is missing or can't be read."""
    try:
        status = json.loads(status_path(result).read_text("utf-8"))
    except (OSError, ValueError):
        return {}
    return status if isinstance(status, dict) else {}


def write_status(
    target: Path,
    kept: Path,
    status: int,
    text: str,
    wall_time: float,
    source: RecipeSource,
    content: bytes,
    scheme: str,
) -> None:
    """Writes the status file of target. kept is the file with the rows, content its content."""
    record = {
        "result": status,
        "text": text,
        "wall_time_s": wall_time,
        "version": __version__,
        "recipe": None if source.path is None else str(source.path),
        "recipe_sha256": None if source.content is None else hashlib.sha256(source.content).hexdigest(),
        "scheme": scheme,
        "result_file": str(kept),
        "result_sha256": hashlib.sha256(content).hexdigest() if content else None,
        "host": socket.gethostname(),
        "finished": datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
    }
    path = status_path(target)
    part = path.with_name(f".{path.name}.{uuid.uuid4().hex}")
    try:
        part.write_text(json.dumps(record, indent=2, ensure_ascii=False) + "\n", "utf-8", "surrogateescape")
        os.replace(part, path)
    finally:
        part.unlink(missing_ok=True)

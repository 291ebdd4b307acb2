"""One simulation: run() calls the library and puts the files of the result in place."""

from __future__ import annotations

import errno
import os
import re
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path

from .._base.arguments import check_flags
from .._base.files import (
    as_path,
    check_place,
    locked_part,
    part_of,
    put_in_place,
    replace_file,
)
from .._base.library import simulate
from .._base.system import memory_file
from .._base.termination import exit_on_sigterm, removed_on_sigterm
from .._base.types import PathLike
from .._recipe.check import warn_about
from .._recipe.scheme import check_scheme, scheme_of
from .._recipe.source import RecipeLike, RecipeSource
from .._recipe.xml_bytes import RecipeError
from .result_check import end_text, is_text_of_integration, looks_physical, remedy_text
from .result_file import bytes_of_rows, has_rows
from .run import Run, SimulationError
from .status import check_siblings, failed_path, status_path, write_status


def run(
    recipe: RecipeLike, result: PathLike | None = None, *, scheme: str | None = None, check: bool = True
) -> Run:
    """Simulates one recipe. Other Python threads run during the call.

    Parameters
    ----------
    recipe : path, str, bytes or Recipe
        A path, the XML itself or a Recipe.
    result : path, optional
        The result file; None: it is not saved. An existing file is replaced when the new one is complete. A status file
        (NAME.status.json) is written to the same folder.
    scheme : str, optional
        Integration scheme, "continuous" or "staged"; None: the scheme of the recipe.
    check : bool, optional
        True: if `vorlen check` has warnings about the recipe, issue a RecipeWarning with the first three before the
        run. That takes a few milliseconds.

    Returns
    -------
    Run
        The result.

    Raises
    ------
    BusyError
        Before the run, if another run is writing the same result or one with the same status file.
    FileExistsError
        Before the run, if it would replace the status file or the failed rows of another result.
    LibraryNotFoundError
        If the shared library is missing.
    OSError
        If the recipe can't be read or the result can't be written; the latter is checked before the run.
    RecipeError
        If the library rejects the recipe and it is not well-formed XML.
    SimulationError
        If the run fails, or a row is unphysical: NaN, infinite, or with a fraction outside of [-0.001, 1.001]. The rows
        up to the failure are in the error's run and are saved to NAME.failed.txt; an existing result stays.
    TypeError
        If an argument has another type.
    ValueError
        If the scheme is unknown, or the result would overwrite the recipe, is not a regular file, or has the name of
        another file of a run (NAME.failed.txt, NAME.status.json, NAME.part).
    """
    check_flags(check=check)
    check_scheme(scheme)
    source = RecipeSource.of(recipe)
    if check:
        warn_about(source.content, source.path, scheme)
    outcome = _run_without_file(source, scheme) if result is None else _run_to_file(source, result, scheme)
    if outcome.status == 0 and outcome.run is not None:
        return outcome.run
    if outcome.run is None and not source.is_well_formed:
        raise RecipeError(outcome.text)
    raise SimulationError(outcome.text, recipe, outcome.run, source)


@dataclass
class _Outcome:
    """How a run ended."""

    status: int  # 0 or 1, as in the status file
    text: str  # of the failure
    run: Run | None  # the rows, if there are any
    wall_time: float  # of the library's call, s
    scheme: str

    @property
    def content(self) -> bytes:
        """The content of the result file; empty if there are no rows."""
        return b"" if self.run is None else self.run.content


def _run_without_file(source: RecipeSource, scheme: str | None) -> _Outcome:
    with memory_file() as file:
        return _simulate(source, file.path, "the result", scheme)


def _run_to_file(source: RecipeSource, result: PathLike, scheme: str | None) -> _Outcome:
    target = as_path(result, "result")
    place = _check_target(target, source)
    with exit_on_sigterm(), locked_part(place) as part:
        check_siblings(target, source)
        outcome = _simulate(source, part, str(target), scheme)
        failed = failed_path(target)
        kept = failed if outcome.status != 0 and outcome.run is not None else target
        if outcome.run is not None:
            _put_rows_in_place(part, kept, outcome.content)
            outcome.run.path = kept
        if kept == target:
            failed.unlink(missing_ok=True)  # of an earlier run
        try:
            write_status(
                target, kept, outcome.status, outcome.text, outcome.wall_time, source, outcome.content, outcome.scheme
            )
        except OSError as error:
            if outcome.status == 0:  # otherwise report the failure of the run, not that of its status file
                text = f"{error.strerror}; the result itself is in place"
                raise OSError(error.errno, text, error.filename) from error
    return outcome


def _check_target(target: Path, source: RecipeSource) -> Path:
    """The file that a result will be in. Raises if the result, its status file or failed rows can't be written."""
    own = [target, status_path(target), failed_path(target)]
    if source.path is not None and source.path.exists():
        for path in (*own, part_of(Path(os.path.realpath(target)))):
            if path.exists() and path.samefile(source.path):
                raise ValueError(f"the result would overwrite the recipe {source.path}")
    places = [check_place(path) for path in own]
    return places[0]


def _put_rows_in_place(part: Path, kept: Path, content: bytes) -> None:
    """Renames the temporary. If that is impossible, the rows are saved elsewhere and the OSError names the file."""
    try:
        place = check_place(kept)
        try:
            put_in_place(part, place)
        except OSError as error:
            if error.errno != errno.EXDEV:  # kept is a link to another file system
                raise
            replace_file(place, content)
    except (OSError, ValueError) as error:
        with tempfile.NamedTemporaryFile(prefix=f"{kept.name}.", suffix=".txt", delete=False) as rescued:
            rescued.write(content)
        raise OSError(f"{kept} can't be put in place: {error}; the rows are in {rescued.name}") from error


def _simulate(source: RecipeSource, output: Path, name: str, scheme: str | None) -> _Outcome:
    """Runs the library with this output file. name is what texts call that file."""
    simulated_source = source.under(scheme)
    scheme = scheme_of(simulated_source.content)
    with memory_file(simulated_source.content or b"") as file:  # a recipe that changes meanwhile has no influence
        with removed_on_sigterm(output):
            begin = time.perf_counter()
            status, text = simulate(file.path, output)
        wall_time = time.perf_counter() - begin
        text = _renamed(text, file.path, str(source.path or "recipe.xml"))
    text = _renamed(text, output, name)
    content, cut = _whole_lines(output)
    rows = Run(content, None, source, text, wall_time, scheme) if has_rows(content) else None
    if status == 0 and (rows is None or cut or not rows.complete):
        text = f"{name}: the file ends before the run does. Is the disk full?"
        text += "\nNo row could be written" if rows is None else ""
    text = _text_with_rows(text, rows, scheme)
    if rows is not None:
        rows.text = text
    return _Outcome(1 if text or status else 0, text, rows, wall_time, scheme)


def _renamed(text: str, path: Path, name: str) -> str:
    """The text with another name of a file."""
    return re.sub(rf"{re.escape(str(path))}(?!\d)", lambda _: name, text)


def _text_with_rows(text: str, rows: Run | None, scheme: str) -> str:
    """The text of a run, with what its rows show about a failure; empty if it did not fail.

    text  the library's text, empty if the run ended normally
    """
    if text and not is_text_of_integration(text):
        return text
    if rows and looks_physical(bytes_of_rows(rows.content)):
        rows.unphysical = ""  # saves parsing
    lines = [text] if text else []
    if text:
        profile, stages = (rows._profile, rows._stages()) if rows else (None, [])
        lines.append(end_text(profile, stages))
    if rows and rows.unphysical:
        lines.append(rows.unphysical)
    return "\n".join([*lines, remedy_text(scheme)]) if lines else ""


def _whole_lines(path: Path) -> tuple[bytes, bool]:
    """The file's content, and whether its last line was truncated, as on a full disk: such a line is removed."""
    content = path.read_bytes() if path.exists() else b""
    size = content.rfind(b"\n") + 1
    if size == len(content):
        return content, False
    os.truncate(path, size)
    return content[:size], True

"""One simulation: run() calls the library and puts the files of the result in place."""

from __future__ import annotations

import os
import stat
import tempfile
import time
import uuid
from pathlib import Path

from ._library import simulate
from ._result_check import end_text, is_text_of_integration, looks_physical, remedy_text
from ._result_file import bytes_of_rows, has_rows
from ._run import Run, SimulationError
from ._scheme import check_scheme, scheme_of
from ._source import RecipeLike, RecipeSource
from ._status import failed_path, status_path, write_status


def run(
    recipe: RecipeLike,
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

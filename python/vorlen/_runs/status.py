"""The files beside a result: its status file and the rows of a failed run. Described in docs/result-format.md.

The status file says what was run and how it ended, and has the hashes of recipe and result. Paths in it are relative to
its folder if the file is in or below that folder. One that is damaged counts as none. The command-line tool reads and
writes the same files; tools/run/simulation.cpp has the same rules for files that belong to another result.
"""

from __future__ import annotations

import datetime
import hashlib
import json
import math
import os
import socket
from collections.abc import Iterable
from pathlib import Path
from typing import Any

from .._base.files import BusyError, is_part_locked, read_file, replace_file, valid_text
from .._base.types import PathLike
from .._base.version import __version__
from .._recipe.source import RecipeSource

STATUS_ENDING, FAILED_ENDING, PART_ENDING = ".status.json", ".failed.txt", ".part"
_TEXTS = ("text", "version", "result_file", "host", "finished")
_TEXTS_OR_NULL = ("recipe", "recipe_sha256", "result_sha256")
_REMEDY = "move it away, or choose another output"


def _stem(result: PathLike) -> str:
    name = Path(result).name
    for ending in (".result.txt", FAILED_ENDING, ".txt"):
        if name.endswith(ending) and name != ending:
            return name.removesuffix(ending)
    return name


def status_path(result: PathLike) -> Path:
    """The status file of a result file: NAME.result.txt, NAME.failed.txt or NAME.txt has NAME.status.json."""
    return Path(result).with_name(_stem(result) + STATUS_ENDING)


def failed_path(result: PathLike) -> Path:
    """Path of the file with the rows of a failed run."""
    return Path(result).with_name(_stem(result) + FAILED_ENDING)


def _is_valid(status: Any) -> bool:
    """True if a status file has all keys with values of the right types. Those of older versions have no scheme."""
    if not isinstance(status, dict):
        return False
    optional = {key: status.get(key, 0) for key in _TEXTS_OR_NULL} | {"scheme": status.get("scheme")}
    texts = [status.get(key) for key in _TEXTS] + [text for text in optional.values() if text is not None]
    duration = status.get("wall_time_s")
    return (
        all(isinstance(text, str) and "\0" not in text for text in texts)
        and type(status.get("result")) is int
        and isinstance(duration, (int, float))
        and math.isfinite(duration)
    )


def read_status(result: PathLike) -> dict[str, Any]:
    """The content of the status file of a result; empty if it is missing, damaged or can't be read."""
    try:
        status: dict[str, Any] = json.loads(read_file(status_path(result)))
        return status if _is_valid(status) else {}
    except (OSError, ValueError, RecursionError, OverflowError):
        return {}


def read_matching_status(result: PathLike, content: bytes) -> dict[str, Any]:
    """The content of the status file of a result with this content; empty if it describes another content."""
    status = read_status(result)
    return status if status.get("result_sha256") == hashlib.sha256(content).hexdigest() else {}


def recipe_of_status(status: dict[str, Any], result: PathLike) -> RecipeSource:
    """The recipe named in the status file of a result, if it has not changed since the run.

    It is also searched in the folder of the result. If it is not found, the answer has no content, but its problem.
    """
    if not status.get("recipe"):
        return RecipeSource()
    folder = status_path(result).parent
    path = folder / status["recipe"]
    found = False
    for place in (path, folder / path.name):
        try:
            source = RecipeSource(place, read_file(place))
        except (OSError, ValueError):
            continue
        found = True
        if source.sha256 == status.get("recipe_sha256"):
            return source
    return RecipeSource(path, None, f"The recipe {path} {'has changed since the run' if found else 'was not found'}.")


def check_recipe(status: dict[str, Any], source: RecipeSource, result: Path) -> None:
    """Raises ValueError if the status file of a result says that it was computed from another recipe than source."""
    used = status.get("recipe_sha256")
    if source.sha256 and used and source.sha256 != used:
        raise ValueError(
            f"{result} was computed from {status['recipe'] or 'another recipe'} (SHA-256 {used}), not from "
            f"{source.path or 'the recipe given'} (SHA-256 {source.sha256})"
        )


def _path_in_status(path: PathLike, status_file: Path) -> str:
    """A path as a status file has it."""
    absolute, folder = _with_resolved_folder(path), status_file.parent.resolve()
    shown = absolute.relative_to(folder) if absolute.is_relative_to(folder) else absolute
    return os.fsencode(shown.as_posix()).decode("utf-8", "replace")  # JSON has no other bytes


def _with_resolved_folder(path: PathLike) -> Path:
    """The absolute path without links in its folder; a link at its end stays."""
    return Path(path).parent.resolve() / Path(path).name


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
    path = status_path(target)
    record = {
        "result": status,
        "text": text,
        "wall_time_s": wall_time,
        "version": __version__,
        "recipe": None if source.path is None else _path_in_status(source.path, path),
        "recipe_sha256": source.sha256,
        "scheme": scheme,
        "result_file": _path_in_status(kept, path),
        "result_sha256": hashlib.sha256(content).hexdigest() if content else None,
        "host": socket.gethostname(),
        "finished": datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
    }
    replace_file(path, valid_text(json.dumps(record, indent=2, ensure_ascii=False) + "\n").encode())


def check_siblings(target: Path, source: RecipeSource) -> None:
    """Raises FileExistsError if a run with this result would replace the status file or failed rows of another one."""
    ending = next((end for end in (FAILED_ENDING, STATUS_ENDING, PART_ENDING) if _ends_with(target, end)), None)
    if ending is not None:
        raise ValueError(f"{target}: names ending in {ending} are for other files of a run; choose another output")
    _check_twins(target)
    status_file, failed = status_path(target), failed_path(target)
    status = read_status(target)
    names_rows = _names_file(status, status_file, failed)
    if os.path.lexists(status_file):
        if not status:
            raise FileExistsError(f"{status_file} is not a status file: {_REMEDY}")
        if not names_rows and not _names_file(status, status_file, target):
            owner = status["result_file"]
            raise FileExistsError(f"{status_file} is the status file of {owner}, not of {target}: {_REMEDY}")
    if os.path.lexists(failed):
        if not names_rows:
            raise FileExistsError(f"{failed} is not known to be of a failed run of {target}: {_REMEDY}")
        # The rows do not show to which of several results they belong: those of the same recipe are replaced.
        path = None if source.path is None else _path_in_status(source.path, status_file)
        if path != status["recipe"] and source.sha256 != status["recipe_sha256"]:
            owner = status["recipe"] or "another recipe"
            raise FileExistsError(f"{failed} has the rows of {owner}: {_REMEDY}")


def _ends_with(target: Path, ending: str) -> bool:
    return target.name.endswith(ending) or target.resolve().name.endswith(ending)


def _check_twins(target: Path) -> None:
    """Raises BusyError while a run writes another result with the same status file: NAME, NAME.txt, NAME.result.txt."""
    names: Iterable[str] = (_stem(target) + ending for ending in ("", ".txt", ".result.txt"))
    for twin in (target.with_name(name) for name in names):
        if twin.resolve() != target.resolve() and is_part_locked(twin.resolve()):
            raise BusyError(f"another run is writing {twin}, which has the same {status_path(target).name}")


def _names_file(status: dict[str, Any], status_file: Path, path: Path) -> bool:
    """True if the status names the file at path, or one that was renamed to it together with the status file."""
    if not status:
        return False
    named = status_file.parent / status["result_file"]
    if status["result_file"] == _path_in_status(path, status_file):
        return True
    if named.exists():
        return path.exists() and named.samefile(path)
    try:
        return bool(status["result_sha256"] == hashlib.sha256(read_file(path)).hexdigest())
    except (OSError, ValueError):
        return False

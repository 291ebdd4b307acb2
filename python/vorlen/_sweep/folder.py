"""The folder of a sweep: plan.json, recipe.xml and table.csv, the rows in rows/, and the locks.

A sweep holds a lock on the file .lock as long as it runs: an exclusive one as a whole, a shared one as a part. A part
also locks its rows: it holds an exclusive lock on the file .rows.FIRST-END.lock, and finds the others by their names.
Locks are taken, and the plan compared and written, under an exclusive lock on .plan.lock, which is only held for that.
"""

from __future__ import annotations

import contextlib
import glob
import json
import os
import re
from collections.abc import Collection, Iterator
from pathlib import Path

from .._base.files import BusyError, is_locked, lock_file, replace_file
from .._recipe.scheme import STAGED
from .plan import ROWS_FOLDER, Plan, PlanError, sha256
from .plan_file import plan_content, read_plan

PLAN_NAME, RECIPE_NAME, TABLE_NAME = "plan.json", "recipe.xml", "table.csv"
REMEDY = "Pass another folder as out"  # if the folder holds another sweep
LOCK_NAME, PLAN_LOCK_NAME = ".lock", ".plan.lock"
_OF_A_ROW = re.compile(r"\.(\d{6,})\.")  # temporaries
_OF_A_PART = re.compile(r"\.rows\.(\d+)-(\d+)\.lock")


def prepare_folder(plan: Plan, folder: Path, resume: bool, remedy: str = REMEDY) -> None:
    """Creates the folder of a sweep, with its plan and recipe.

    remedy  what to do if the folder holds another sweep, for the text of the error
    Raises PlanError if the folder holds something else, or, with resume, a different sweep. Rows may be added after the
    old ones, and the scheme may change: then all rows are run again. The table of another plan is removed.
    """
    _check_place(plan, folder)
    if resume:
        check_same_sweep(plan, folder, remedy)
    (folder / ROWS_FOLDER).mkdir(parents=True, exist_ok=True)
    content = plan_content(plan, RECIPE_NAME, ".", recipe_sha256=sha256(plan.recipe))
    for path, new in ((folder / RECIPE_NAME, plan.recipe), (folder / PLAN_NAME, content)):
        if not path.exists() or path.read_bytes() != new:
            replace_file(path, new)
            remove_table(folder)


@contextlib.contextmanager
def locked_folder(
    plan: Plan, folder: Path, numbers: range, *, whole: bool, resume: bool, remedy: str = REMEDY
) -> Iterator[None]:
    """Prepares the folder and holds its lock: exclusively, or, for a part of the rows, with parts that have other rows.

    numbers  the rows that will be run. What killed runs have left of them is removed
    remedy   as for prepare_folder
    Raises BusyError if another sweep is running there, or a part with some of these rows; otherwise as prepare_folder.
    """
    _check_place(plan, folder)  # before a file is created
    folder.mkdir(parents=True, exist_ok=True)
    busy = f"another sweep is running in {folder}"
    with contextlib.ExitStack() as held:
        try:
            with lock_file(folder / PLAN_LOCK_NAME, exclusive=True, wait=True):
                if whole:
                    held.enter_context(lock_file(folder / LOCK_NAME, exclusive=True))
                    _check_rows_are_free(folder, numbers)  # and removes what killed parts have left
                    prepare_folder(plan, folder, resume, remedy)
                    for name in (PLAN_NAME, RECIPE_NAME, TABLE_NAME):
                        for part in folder.glob(f".{glob.escape(name)}.*.part"):
                            part.unlink(missing_ok=True)
                else:
                    if not _has_this_plan(plan, folder):
                        busy += " with another plan"
                        with lock_file(folder / LOCK_NAME, exclusive=True):
                            prepare_folder(plan, folder, resume, remedy)
                    held.enter_context(lock_file(folder / LOCK_NAME, exclusive=False))
                    _check_rows_are_free(folder, numbers)
                    held.enter_context(_locked_rows(folder, numbers))
        except BlockingIOError:
            raise BusyError(busy) from None
        remove_row_litter(folder, numbers)
        yield


def _check_rows_are_free(folder: Path, numbers: range) -> None:
    """Raises BusyError if a part runs some of these rows. Removes the locks of parts that were killed.

    Needs the lock on .plan.lock: then no other part is about to lock its rows.
    """
    for path in folder.iterdir():
        if match := _OF_A_PART.fullmatch(path.name):
            if not is_locked(path):
                path.unlink(missing_ok=True)
                continue
            first, end = max(int(match[1]), numbers.start), min(int(match[2]), numbers.stop)
            if first < end:
                raise BusyError(f"another sweep is running the rows {first}:{end} in {folder}")


@contextlib.contextmanager
def _locked_rows(folder: Path, numbers: range) -> Iterator[None]:
    path = folder / f".rows.{numbers.start}-{numbers.stop}.lock"
    with lock_file(path, exclusive=True):
        try:
            yield
        finally:
            path.unlink(missing_ok=True)  # while it is locked: a part that comes later makes its own file


def _check_place(plan: Plan, folder: Path) -> None:
    """Raises an error if the folder can't be that of a sweep. It need not exist."""
    present = next(place for place in (folder, *folder.absolute().parents) if place.exists())
    if not present.is_dir():
        raise NotADirectoryError(f"{present} is not a folder")
    for place in (present, folder / ROWS_FOLDER):
        if place.exists() and not os.access(place, os.W_OK | os.X_OK):
            raise PermissionError(f"no right to write to the folder {place}")
    if not holds_sweep(folder):
        recipe, rows = folder / RECIPE_NAME, folder / ROWS_FOLDER
        foreign = [path for path in (folder / PLAN_NAME, folder / TABLE_NAME) if path.exists()]
        foreign += [recipe] if recipe.exists() and recipe.read_bytes() != plan.recipe else []
        foreign += [rows] if rows.exists() and (not rows.is_dir() or any(rows.iterdir())) else []
        if foreign:
            raise PlanError(f"{foreign[0]} is not of a sweep and would be overwritten. Choose another folder")


def holds_sweep(folder: Path) -> bool:
    """True if the plan in the folder is one that a sweep has written."""
    try:
        content = json.loads((folder / PLAN_NAME).read_text("utf-8"))
    except (OSError, ValueError):
        return False
    if not isinstance(content, dict):
        return False
    return (content.get("recipe"), content.get("out")) == (RECIPE_NAME, ".") and "recipe_sha256" in content


def remove_table(folder: Path) -> None:
    """Removes the table of a sweep whose rows change. In a folder that is not of a sweep it is the user's."""
    if (folder / TABLE_NAME).exists() and holds_sweep(folder):
        (folder / TABLE_NAME).unlink(missing_ok=True)


def read_folder(folder: Path) -> Plan:
    """The plan of the sweep in a folder."""
    if not holds_sweep(folder):
        raise PlanError(f"{folder} does not hold a sweep")
    return read_plan(folder / PLAN_NAME)[0]


def check_same_sweep(plan: Plan, folder: Path, remedy: str) -> None:
    """Raises PlanError if the folder holds a sweep with a different recipe or rows; the scheme may differ."""
    if not holds_sweep(folder):
        return
    _restore_recipe(plan, folder)
    old = read_folder(folder)
    old_rows = old.rows()
    if old.under(STAGED).recipe != plan.under(STAGED).recipe or plan.rows()[: len(old_rows)] != old_rows:
        raise PlanError(f"{folder} holds a sweep with a different recipe or different rows. {remedy}")


def _restore_recipe(plan: Plan, folder: Path) -> None:
    """Writes the recipe of the sweep again if it was damaged and plan has it."""
    path = folder / RECIPE_NAME
    recorded = json.loads((folder / PLAN_NAME).read_text("utf-8"))["recipe_sha256"]
    if recorded == sha256(plan.recipe) and (not path.exists() or path.read_bytes() != plan.recipe):
        replace_file(path, plan.recipe)


def _has_this_plan(plan: Plan, folder: Path) -> bool:
    if not holds_sweep(folder) or not (folder / ROWS_FOLDER).is_dir():
        return False
    _restore_recipe(plan, folder)
    try:
        old = read_folder(folder)
    except PlanError:
        return False
    return old.recipe == plan.recipe and old.rows() == plan.rows()


def remove_row_litter(folder: Path, numbers: Collection[int]) -> None:
    """Removes temporaries of these rows, to which nobody writes now."""
    for path in (folder / ROWS_FOLDER).iterdir():
        match = _OF_A_ROW.match(path.name)
        if match and int(match[1]) in numbers:
            path.unlink(missing_ok=True)

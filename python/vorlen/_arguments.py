"""Checks of arguments that sweeps, fits and sensitivities have in common."""

from __future__ import annotations

import math
import numbers
from typing import Any


def is_number(value: object) -> bool:
    """True for a finite real number; a bool is not one."""
    number = _as_double(value)
    return number is not None and math.isfinite(number)


def check_number(value: object, rule: str, low: float = -math.inf, high: float = math.inf) -> None:
    """Raises TypeError unless value is a number, ValueError unless it is above low and below high.

    rule  says what value must be, for the text of the error
    """
    number = _as_double(value)
    if number is None:
        raise TypeError(f"{rule}, got {value!r}")
    if not low < number < high:
        raise ValueError(f"{rule}, got {value!r}")


def _as_double(value: object) -> float | None:
    """None for what is not a real number; infinity for an integer beyond the range of a double."""
    if isinstance(value, bool) or not isinstance(value, numbers.Real):
        return None
    try:
        return float(value)
    except OverflowError:
        return math.inf


def check_timeout(timeout: object) -> None:
    """Raises TypeError or ValueError unless timeout is None or a positive, finite number."""
    if timeout is not None:
        check_number(timeout, "timeout must be a positive, finite number of seconds, or None for no limit", 0.0)


def check_flags(**flags: object) -> None:
    """Raises TypeError for what is not a truth value."""
    for name, value in flags.items():
        if not isinstance(value, bool):
            raise TypeError(f"{name} must be True or False, got {value!r}")


def given_executor(workers: Any, executor: Any, out: object) -> Any:
    """The executor, or that of a Dask client; None: worker processes of this machine.

    Raises TypeError or ValueError unless at most one of workers and executor is given, workers is a positive integer,
    and an executor has a folder.
    """
    if workers is not None:
        if isinstance(workers, bool) or not hasattr(workers, "__index__"):
            raise TypeError(f"workers must be a positive integer or None, got {workers!r}")
        if executor is not None:
            raise ValueError("give either workers or executor, not both: an executor has its own workers")
        if workers.__index__() < 1:
            raise ValueError(f"workers must be 1 or more, got {workers}")
    if executor is None:
        return None
    if not isinstance(executor, type):
        if callable(getattr(executor, "get_executor", None)):  # a Dask client, whose submit() is not the usual one
            executor = executor.get_executor()
        if callable(getattr(executor, "submit", None)):
            if out is None:
                raise ValueError("an executor needs out, a folder that its processes have access to")
            return executor
    raise TypeError(
        f"executor must be a Dask client or have submit() as executors of concurrent.futures do, got {executor!r}"
    )

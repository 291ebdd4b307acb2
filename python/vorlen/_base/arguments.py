"""Checks of arguments that functions have in common, and messages about misspelt names of arguments."""

from __future__ import annotations

import difflib
import functools
import inspect
import math
import numbers
from collections.abc import Callable, Mapping
from typing import Any, ParamSpec, TypeVar

P = ParamSpec("P")
R = TypeVar("R")


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


def with_suggestions(others: Mapping[str, str]) -> Callable[[Callable[P, R]], Callable[P, R]]:
    """A decorator: the TypeError for an unknown argument of a method suggests the one that is probably meant.

    others  other names of arguments, with the right ones; those that the method does not have are not suggested
    """

    def decorated(function: Callable[P, R]) -> Callable[P, R]:
        known = list(inspect.signature(function).parameters)[1:]  # without self or cls
        right = {name.lower(): name for name in known}
        other = {word.lower(): name for word, name in others.items() if name in known and word.lower() not in right}

        @functools.wraps(function)
        def called(*given: P.args, **named: P.kwargs) -> R:
            for name in named:
                if name not in known:
                    word = name.lower()
                    near = [word] if word in other else difflib.get_close_matches(word, right, 1)
                    near = near or difflib.get_close_matches(word, other, 1, 0.8)
                    hint = f"did you mean {(right | other)[near[0]]}?" if near else f"it has {', '.join(known)}"
                    raise TypeError(f"{function.__name__}() has no argument {name!r}; {hint}")
            return function(*given, **named)

        function.__qualname__ = function.__name__  # in Python's own texts about arguments
        return called

    return decorated

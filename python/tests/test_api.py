"""The docstrings of the public functions are complete, and docs/api.md shows them as they are."""

from __future__ import annotations

import builtins
import dataclasses
import importlib.util
import inspect
import sys
from collections.abc import Callable
from pathlib import Path
from types import ModuleType
from typing import Any

import pytest

import vorlen
from support import ROOT


def load_script() -> ModuleType:
    """scripts/api_page.py as a module."""
    specification = importlib.util.spec_from_file_location("api_page", ROOT / "scripts" / "api_page.py")
    assert specification is not None and specification.loader is not None
    module = importlib.util.module_from_spec(specification)
    sys.modules[specification.name] = module
    specification.loader.exec_module(module)
    return module


api_page = load_script()


def public_functions() -> dict[str, Callable[..., Any]]:
    """Functions, methods, and classes that callers construct, by their names."""
    found: dict[str, Callable[..., Any]] = {}
    for name, one in api_page.public_names().items():
        if inspect.isfunction(one):
            found[name] = one
        if not inspect.isclass(one):
            continue
        if name in api_page.CONSTRUCTED:
            found[name] = one
        for part, _ in api_page.members(one):
            if not api_page.is_property(one, part):
                found[f"{name}.{part}"] = getattr(one, part)
    return found


FUNCTIONS = public_functions()


def parameters_of(function: Callable[..., Any]) -> list[str]:
    """The parameters that a caller passes."""
    names = list(inspect.signature(function).parameters)
    return names[1:] if names[:1] == ["self"] else names


def test_the_stored_page_is_that_of_the_docstrings() -> None:
    stored = (ROOT / "docs" / "api.md").read_text("utf-8")
    assert stored == api_page.page(), "run scripts/api_page.py"


def test_the_page_is_linked_from_the_manual() -> None:
    for page in ("index.md", "python.md"):
        assert "](api.md)" in (ROOT / "docs" / page).read_text("utf-8"), page
    assert ": api.md" in (ROOT / "mkdocs.yml").read_text("utf-8")


@pytest.mark.parametrize("name", FUNCTIONS)
def test_a_docstring_names_the_parameters_of_the_signature_in_order(name: str) -> None:
    parsed = api_page.parse(FUNCTIONS[name].__doc__ or "")
    assert parsed.text
    entries = parsed.lists.get("Parameters", [])
    assert [part for entry in entries for part in entry.name.split(", ")] == parameters_of(FUNCTIONS[name])
    for entry in entries:
        assert entry.kind and entry.text, entry.name


@pytest.mark.parametrize("name", FUNCTIONS)
def test_a_docstring_says_what_is_returned_and_raised(name: str) -> None:
    function = FUNCTIONS[name]
    parsed = api_page.parse(function.__doc__ or "")
    returned = inspect.signature(function).return_annotation
    assert ("Returns" in parsed.lists) is (not inspect.isclass(function) and returned not in (None, "None"))
    if parameters_of(function):
        assert parsed.lists.get("Raises")
    for entry in parsed.lists.get("Raises", []):
        error = getattr(vorlen, entry.name) if entry.name in vorlen.__all__ else getattr(builtins, entry.name, None)
        assert inspect.isclass(error) and issubclass(error, BaseException), f"{entry.name} is not public"
        assert entry.text, entry.name


@pytest.mark.parametrize("name", [name for name in vorlen.__all__ if inspect.isclass(getattr(vorlen, name))])
def test_the_docstrings_of_a_class_describe_its_attributes_and_properties(name: str) -> None:
    one = getattr(vorlen, name)
    parsed = api_page.parse(one.__doc__ or "")
    assert parsed.text
    for part, member in api_page.members(one):
        assert api_page.parse(member.__doc__ or "").text, part
    attributes = [entry.name for entry in parsed.lists.get("Attributes", [])]
    if dataclasses.is_dataclass(one):
        assert attributes == [field.name for field in dataclasses.fields(one) if not field.name.startswith("_")]
    elif "__init__" in vars(one) and name not in api_page.CONSTRUCTED:
        assert attributes
    for entry in parsed.lists.get("Attributes", []):
        assert entry.kind and entry.text, entry.name


def grow(time: float, rate: float = 1.0) -> float:
    """Grows a layer.

    At a constant rate.

    Parameters
    ----------
    time : float
        Duration, s.

        From the start of the stage.
    rate : float, optional
        Growth rate, nm/s.

    Returns
    -------
    float
        Thickness, nm.

    Raises
    ------
    ValueError
        If time is negative.

    Notes
    -----
    Nothing evaporates.
    """
    return time * rate


def test_the_sections_of_a_docstring_are_found() -> None:
    parsed = api_page.parse(grow.__doc__)
    assert parsed.text == "Grows a layer.\n\nAt a constant rate."
    assert parsed.lists == {
        "Parameters": [
            ("time", "float", "Duration, s.\n\nFrom the start of the stage."),
            ("rate", "float, optional", "Growth rate, nm/s."),
        ],
        "Returns": [("float", "", "Thickness, nm.")],
        "Raises": [("ValueError", "", "If time is negative.")],
    }
    assert parsed.others == {"Notes": "Nothing evaporates."}
    with pytest.raises(ValueError, match="unknown section 'Paramters'"):
        api_page.parse("Grows.\n\nParamters\n---------\ntime : float\n    Duration.")


def test_a_function_is_shown_with_its_signature_and_every_section(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(vorlen, "grow", grow, raising=False)
    monkeypatch.setattr(vorlen, "__all__", ["grow"])
    page = api_page.page()
    assert page.startswith(api_page.HEAD)
    assert page[len(api_page.HEAD) :].startswith(
        """
## Functions

### grow

```text
vorlen.grow(time, rate=1.0)
```

Grows a layer.

At a constant rate.

**Parameters**

- `time` (float): Duration, s.

  From the start of the stage.
- `rate` (float, optional): Growth rate, nm/s.

**Returns**

- `float`: Thickness, nm.

**Raises**

- `ValueError`: If time is negative.

**Notes**

Nothing evaporates.

## Classes
"""
    )


def test_the_script_writes_the_page(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(sys, "argv", ["api_page.py", str(tmp_path / "api.md")])
    api_page.main()
    assert (tmp_path / "api.md").read_text("utf-8") == api_page.page()

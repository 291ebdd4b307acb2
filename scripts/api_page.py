#!/usr/bin/env python3
"""Writes docs/api.md, the page of the Python package's functions and classes: scripts/api_page.py [OUTPUT]

The page consists of the docstrings of everything in vorlen.__all__ and of the public methods and properties of its
classes. They have numpydoc form: a summary, text, and sections with an underlined title. The sections Parameters,
Returns, Raises and Attributes are lists of entries `NAME : TYPE` with an indented description; an entry of Returns or
Raises is a type alone. The docstring of a class documents its constructor, or its attributes.
"""

from __future__ import annotations

import inspect
import re
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any, NamedTuple

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "python"))

import vorlen  # noqa: E402

CONSTRUCTED = ("Recipe",)  # classes that callers construct; functions return objects of the others
LISTS = ("Parameters", "Returns", "Raises", "Attributes")
TITLES = (*LISTS, "Notes", "Examples")
HEAD = """# Python interface

Functions and classes of the package `vorlen`, from its docstrings: `help(vorlen.run)` shows the same. [Python
package](python.md), [Sweeps](sweeps.md) and [Fitting](fitting.md) explain them with examples.

<!-- Written by scripts/api_page.py: change the docstrings and run it. -->
"""


class Entry(NamedTuple):
    """One entry of a list: `name : kind`, and its description."""

    name: str
    kind: str
    text: str


class Docstring(NamedTuple):
    """A docstring: the text before the first section, the lists of entries, the other sections."""

    text: str
    lists: dict[str, list[Entry]]
    others: dict[str, str]


def parse(docstring: str) -> Docstring:
    """The parts of a docstring. Raises ValueError for a section with an unknown title."""
    lines = inspect.cleandoc(docstring).splitlines()
    parts: dict[str, list[str]] = {"": []}
    title = ""
    for line, following in zip(lines, [*lines[1:], ""]):
        if line and re.fullmatch("-{3,}", following):
            title = line
            if title not in TITLES:
                raise ValueError(f"unknown section {title!r}; known are {', '.join(TITLES)}")
            parts[title] = []
        elif not (title and re.fullmatch("-{3,}", line)):
            parts[title].append(line)
    texts = {title: "\n".join(lines).strip("\n") for title, lines in parts.items()}
    lists = {title: _entries(text) for title, text in texts.items() if title in LISTS}
    return Docstring(texts.pop(""), lists, {title: text for title, text in texts.items() if title not in LISTS})


def _entries(text: str) -> list[Entry]:
    found = []
    for block in re.split(r"\n(?=\S)", text):
        head, _, description = block.partition("\n")
        name, _, kind = head.partition(" : ")
        found.append(Entry(name.strip(), kind.strip(), inspect.cleandoc(description)))
    return found


def members(kind: type) -> Iterator[tuple[str, Any]]:
    """The public methods and properties of a class and of its bases in this package, in the order of their sources."""
    own = [one for one in kind.__mro__ if one.__module__.split(".")[0] == vorlen.__name__]
    for name, member in [pair for one in own for pair in vars(one).items()]:
        function = getattr(member, "func", getattr(member, "__func__", member))  # of cached properties, class methods
        if not name.startswith("_") and (inspect.isfunction(function) or isinstance(member, property)):
            yield name, member if isinstance(member, property) else function


def is_property(kind: type, name: str) -> bool:
    """True if a member is read without a call."""
    return not callable(getattr(kind, name, None))


def signature(name: str, function: Any, *, method: bool = False) -> str:
    """How a function is called, with defaults and without types."""
    parameters = list(inspect.signature(function).parameters.values())[1 if method else 0 :]
    bare = [parameter.replace(annotation=inspect.Parameter.empty) for parameter in parameters]
    return f"{name}{inspect.Signature(bare)}"


def _section(docstring: str) -> list[str]:
    """A docstring in Markdown."""
    parsed = parse(docstring)
    lines = [parsed.text, ""]
    for title, entries in parsed.lists.items():
        lines += [f"**{title}**", ""]
        for name, kind, text in entries:
            body = text.replace("\n", "\n  ").replace("\n  \n", "\n\n")
            lines.append(f"- `{name}`{f' ({kind})' if kind else ''}{f': {body}' if body else ''}")
        lines.append("")
    for title, text in parsed.others.items():
        lines += [f"**{title}**", "", text, ""]
    return lines


def public_names() -> dict[str, Any]:
    """What is public, by name in alphabetical order; functions of a public module as measured.read."""
    found = {}
    for name in vorlen.__all__:
        one = getattr(vorlen, name)
        found |= {f"{name}.{part}": getattr(one, part) for part in one.__all__} if inspect.ismodule(one) else {name: one}
    return dict(sorted(found.items(), key=lambda item: item[0].lower()))


def page() -> str:
    """The text of docs/api.md."""
    public = public_names()
    errors = {name: one for name, one in public.items() if inspect.isclass(one) and issubclass(one, Exception)}
    classes = {name: one for name, one in public.items() if inspect.isclass(one) and name not in errors}
    lines = [HEAD, "## Functions", ""]
    for name, function in public.items():
        if inspect.isfunction(function):
            lines += [f"### {name}", "", "```text", signature(f"vorlen.{name}", function), "```", ""]
            lines += _section(function.__doc__ or "")
    lines += ["## Classes", ""]
    for name, kind in classes.items():
        lines += [f"### {name}", ""]
        if name in CONSTRUCTED:
            lines += ["```text", signature(f"vorlen.{name}", kind), "```", ""]
        lines += _section(kind.__doc__ or "")
        for part, member in members(kind):
            heading = f"{name}.{part}"
            lines += [f"#### {heading}", ""]
            if not is_property(kind, part):
                static = isinstance(inspect.getattr_static(kind, part), staticmethod)
                lines += ["```text", signature(heading, member, method=not static), "```", ""]
            lines += _section(member.__doc__ or "")
    lines += ["## Exceptions", ""]
    for name, kind in errors.items():
        above = kind.__bases__[0].__name__
        lines += [f"### {name}", "", f"A kind of `{above}`.", "", *_section(kind.__doc__ or "")]
    lines += ["## Version", "", f"`vorlen.__version__` is the version, such as `{vorlen.__version__}`."]
    return re.sub(r"\n{3,}", "\n\n", "\n".join(lines)).rstrip("\n") + "\n"


def main() -> None:
    output = Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "docs" / "api.md"
    output.write_text(page(), "utf-8")


if __name__ == "__main__":
    main()

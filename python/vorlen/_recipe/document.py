"""The XML of a recipe with an index of its elements, and elements by path.

A document never changes: an edit gives a new one.
"""

from __future__ import annotations

import difflib
import re
from collections.abc import Iterator
from dataclasses import dataclass

from . import xml_bytes
from .elements import ROOT
from .kinds import OPTIONAL, known_element
from .xml_bytes import Edit, Element, RecipeError


def split_path(path: str) -> list[str]:
    """The parts of a path, without the root. They are separated by slashes, or by colons as in messages."""
    if not isinstance(path, str):
        raise TypeError(f"a path in a recipe must be a text, got {type(path).__name__}")
    parts = [part for part in re.split(r"[/:]", path) if part]
    return parts[1:] if parts[:1] == [ROOT] else parts


MOST_NAMED = 3  # stages of one name in a message


@dataclass(frozen=True)
class Place:
    """Where a path leads to."""

    path: str  # of the element, in its usual spelling
    element: Element
    attribute: str | None  # None: the element as a whole

    @property
    def attributes(self) -> set[str]:
        """The attributes that it includes."""
        return set(self.element.attributes) if self.attribute is None else {self.attribute}

    @property
    def kind(self) -> str:
        """The kind of the known element; empty for an element that the library does not read."""
        known = known_element(self.path)
        return known.kind if known is not None else ""

    @property
    def short_name(self) -> str:
        """The path with the attribute, without the group of kinetic constants."""
        return "/".join([self.path, *([self.attribute] if self.attribute else [])]).removeprefix("chemistry/")

    def overlaps(self, other: Place) -> bool:
        """True if setting one changes the value of the other."""
        return self.path == other.path and not self.attributes.isdisjoint(other.attributes)


@dataclass(frozen=True)
class Document:
    """The bytes of a recipe and the index of its elements."""

    content: bytes
    root: Element
    name: str  # in messages

    @staticmethod
    def of(content: bytes, name: str) -> Document:
        """Raises RecipeError if the XML is not well-formed or not a recipe."""
        root = xml_bytes.index(content, name)
        if root.tag != ROOT:
            raise RecipeError(f"{name}: the root element is {root.tag}, not {ROOT}")
        return Document(content, root, name)

    def edited(self, edits: list[Edit]) -> Document:
        """The document after edits that don't overlap."""
        return Document.of(xml_bytes.apply(self.content, edits), self.name) if edits else self

    def element(self, path: str) -> Element:
        """The element at path, which may be a group. Raises KeyError."""
        element = self.root
        for part in split_path(path):
            below = element.child(part)
            if below is None:
                raise KeyError(self.unknown(path))
            element = below
        return element

    def attribute(self, path: str, attribute: str = "val") -> str | None:
        """The text of an attribute; None if it, or its element, is missing."""
        return self.root.attribute("/".join(split_path(path)), attribute)

    def find(self, path: str) -> Place:
        """The element at path, and its attribute if the path's last part is one. Raises KeyError."""
        parts = split_path(path)
        element, attribute = self.root, None
        for position, part in enumerate(parts):
            below = element.child(part)
            if below is None and position == len(parts) - 1 and part.lstrip("@") in element.attributes:
                attribute = part.lstrip("@")
                parts.pop()
            elif below is None:
                raise KeyError(self.unknown(path))
            else:
                element = below
        if not parts or not element.attributes:
            raise KeyError(self.unknown(path) if not element.children else f"{path} is a group and has no value itself")
        return Place("/".join(parts), element, attribute)

    def paths(self) -> list[str]:
        """Paths of all elements with values, in file order."""
        return list(_walk(self.root, ""))

    def unknown(self, path: str) -> str:
        """A text that the path does not exist, with similar paths."""
        wanted = "/".join(split_path(path))
        if wanted in OPTIONAL:
            return f"{self.name} has no {path}; it is optional, and setting a value adds it"
        paths = self.paths()
        if stage := _named_stage(self, wanted, paths):
            return f"{self.name} has no {path}; {stage}"
        last = wanted.rsplit("/", 1)[-1]
        near = [known for known in paths if known.endswith("/" + last)]
        near = difflib.get_close_matches(wanted, near, 3, 0.0) or difflib.get_close_matches(wanted, paths, 3, 0.6)
        hint = f"; similar paths: {', '.join(near)}" if near else ""
        return f"{self.name} has no {path}{hint}"


def _named_stage(document: Document, wanted: str, paths: list[str]) -> str:
    """Which stage a path with the name of one means, as a text; empty if it has no such name.

    paths  of the document
    """
    tags = {tag.lower() for path in paths for tag in path.split("/")}
    stages: dict[str, list[str]] = {}  # by name
    for path in paths:
        name = document.attribute(path) if path.endswith("/name") else None
        spelt = "/".join(split_path(name or "")).lower()  # as a part of a path: it may have slashes and colons
        if spelt and spelt not in tags and f"/{spelt}/" in f"/{wanted.lower()}/":
            stages.setdefault(spelt, []).append(path.removesuffix("/name"))
    if not stages:
        return ""
    spelt, found = max(stages.items(), key=lambda item: len(item[0]))
    text = f"{document.attribute(f'{found[0]}/name')} is {' and '.join(found[:MOST_NAMED])}"
    if len(found) > MOST_NAMED:
        return f"{text} and {len(found) - MOST_NAMED} more"
    rest = f"{wanted}/"[f"/{wanted.lower()}/".index(f"/{spelt}/") + len(spelt) :].strip("/")
    whole = f"{found[0]}/{rest}"
    return f"{text}; the path is {whole}" if len(found) == 1 and rest and whole in _known_paths(document) else text


def _known_paths(document: Document) -> set[str]:
    """The paths of all elements with values, and of their attributes."""
    paths = document.paths()
    return {*paths, *(f"{path}/{name}" for path in paths for name in document.element(path).attributes)}


def _walk(element: Element, prefix: str) -> Iterator[str]:
    seen = set()
    for child in element.children:
        if child.tag in seen:
            continue
        seen.add(child.tag)
        if child.attributes:
            yield prefix + child.tag
        yield from _walk(child, f"{prefix}{child.tag}/")

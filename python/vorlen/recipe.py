"""Recipes: load, look, change, save.

A Recipe is the bytes of an XML file and an index of its elements. A change replaces the bytes of the value it is about
and nothing else, so comments, order, indentation and line ends stay as they are. Paths are element names from the
root's children down, with slashes (or with colons, as in the library's messages):

    recipe["process_stages/stage_2/T"]               (1010.0, 1080.0), begin and end of a ramp
    recipe["process_stages/stage_2/tau"] = 40        a single value
    recipe["process_stages/stage_2/T"] = 1020        begin and end alike
    recipe["process_stages/stage_2/T/end"] = 1030    one attribute
    recipe["chemistry/Kd_In"]                        {"A": 1e13, "Ta": 23200.0, "Tn": 0.0}
    recipe["chemistry/Kd_In/A"] = 2e13               one attribute

Of two elements with the same name the first counts, as for the library.
"""

from __future__ import annotations

import difflib
import math
import numbers
import os
import re
import xml.parsers.expat
from collections.abc import Iterator, Mapping
from dataclasses import dataclass, field
from pathlib import Path
from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    import pandas as pd

ROOT = "NonstSurfChem"
_ATTRIBUTE = re.compile(rb"""([^\s=<>/"']+)\s*=\s*("[^"]*"|'[^']*')""")

Value = float | str | tuple[Any, Any] | dict[str, Any]


class RecipeError(ValueError):
    """A text is no recipe that can be worked with."""


@dataclass
class Element:
    """One element of the file, by its place. Offsets are in bytes."""

    tag: str
    attributes: dict[str, str]
    begin: int  # of the start tag
    tag_end: int = 0  # behind the start tag
    end_tag: int = 0  # of the end tag; where it is, for an element without one, tag_end
    end: int = 0  # behind the element
    children: list[Element] = field(default_factory=list)

    def child(self, tag: str) -> Element | None:
        """The first child of that name."""
        return next((child for child in self.children if child.tag == tag), None)


def _index(content: bytes, name: str) -> Element:
    """The elements of content. Raises RecipeError when it is not well-formed XML with the right root."""
    parser = xml.parsers.expat.ParserCreate(None if _is_utf8(content) or _names_encoding(content) else "iso-8859-1")
    stack: list[Element] = [Element("", {}, 0)]

    def start(tag: str, attributes: dict[str, str]) -> None:
        element = Element(tag, attributes, parser.CurrentByteIndex)
        stack[-1].children.append(element)
        stack.append(element)

    def end(_: str) -> None:
        element = stack.pop()
        element.end_tag = parser.CurrentByteIndex

    parser.StartElementHandler, parser.EndElementHandler = start, end
    try:
        parser.Parse(content, True)
    except xml.parsers.expat.ExpatError as error:
        raise RecipeError(f"{name}, line {error.lineno}: {xml.parsers.expat.ErrorString(error.code)}") from None
    except (LookupError, ValueError) as error:
        raise RecipeError(f"{name}: {error}") from None
    root = stack[0].children[0]
    if root.tag != ROOT:
        raise RecipeError(f"{name}: the root element is {root.tag}, not {ROOT}")
    _find_ends(content, root)
    return root


def _is_utf8(content: bytes) -> bool:
    try:
        content.decode("utf-8")
    except UnicodeDecodeError:
        return False
    return True


def _names_encoding(content: bytes) -> bool:
    return re.match(rb"\s*<\?xml[^>]*\sencoding\s*=", content) is not None


_START_TAG = re.compile(rb"""<[^\s/>"']+(?:[^"'>]|"[^"]*"|'[^']*')*>""")


def _find_ends(content: bytes, element: Element) -> None:
    """Fills in where start tags and elements end, for element and all below it."""
    pending = [element]
    while pending:
        element = pending.pop()
        match = _START_TAG.match(content, element.begin)
        assert match is not None
        element.tag_end = match.end()
        if content[element.tag_end - 2 : element.tag_end] == b"/>":
            element.end_tag = element.end = element.tag_end
        else:
            element.end = content.index(b">", element.end_tag) + 1
        pending.extend(element.children)


def _parse_value(text: str) -> float | str:
    try:
        value = float(text)
    except ValueError:
        return text
    return value if "_" not in text else text


def _format_value(value: object) -> str:
    """A value as it stands in the file: every digit of a number that matters, and no more."""
    if isinstance(value, str):
        return value
    if isinstance(value, bool) or not isinstance(value, numbers.Real):
        raise TypeError(f"a value of a recipe is a number or a text, not {type(value).__name__}")
    if isinstance(value, numbers.Integral):
        return str(int(value))
    number = float(value)
    if not math.isfinite(number):
        raise ValueError(f"{number} is no value for a recipe")
    return str(int(number)) if number.is_integer() and abs(number) < 1e15 and number != 0.0 else repr(number)


def _escape(text: str, quote: str) -> str:
    text = text.replace("&", "&amp;").replace("<", "&lt;")
    text = text.replace(quote, "&quot;" if quote == '"' else "&apos;")
    return re.sub(r"[\t\n\r]", lambda match: f"&#{ord(match[0])};", text)


class Recipe:
    """A recipe file in memory."""

    def __init__(self, source: str | bytes, path: str | os.PathLike[str] | None = None) -> None:
        """Takes the XML itself; Recipe.load takes a path. path is remembered for messages and status files."""
        self.path = None if path is None else Path(path)
        self._content = source.encode("utf-8") if isinstance(source, str) else bytes(source)
        self._root = _index(self._content, self._name)

    @classmethod
    def load(cls, path: str | os.PathLike[str]) -> Recipe:
        """Reads a recipe file."""
        return cls(Path(path).read_bytes(), path)

    def save(self, path: str | os.PathLike[str]) -> None:
        """Writes the recipe. An older file of that name stays in place until the new one is complete."""
        path = Path(path)
        part = path.with_name(f".{path.name}.{os.getpid()}.part")
        try:
            part.write_bytes(self._content)
            os.replace(part, path)
        finally:
            part.unlink(missing_ok=True)

    def copy(self) -> Recipe:
        """An independent copy."""
        return Recipe(self._content, self.path)

    def to_bytes(self) -> bytes:
        """The file's content."""
        return self._content

    def __str__(self) -> str:
        return self._content.decode("utf-8", "replace")

    def __repr__(self) -> str:
        return f"<Recipe {self._name}>"

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Recipe) and self._content == other._content

    __hash__ = None  # type: ignore[assignment]

    @property
    def _name(self) -> str:
        return "recipe" if self.path is None else str(self.path)

    # ---- values by path

    def __getitem__(self, path: str) -> Value:
        element, attribute = self._find(path)
        if attribute is not None:
            return _parse_value(element.attributes[attribute])
        values = {name: _parse_value(text) for name, text in element.attributes.items()}
        if set(values) == {"val"}:
            return values["val"]
        if set(values) == {"val", "end"}:
            return values["val"], values["end"]
        return values

    def __setitem__(self, path: str, value: object) -> None:
        element, attribute = self._find(path)
        known = element.attributes
        if attribute is not None:
            changes = {attribute: value}
        elif isinstance(value, Mapping):
            changes = dict(value)
        elif isinstance(value, (tuple, list)):
            if len(value) != 2 or not {"val", "end"} <= set(known):
                raise ValueError(f"{path} takes {self._form(element)}, not {value!r}")
            changes = dict(zip(("val", "end"), value))
        elif "val" in known:
            changes = {name: value for name in ("val", "end") if name in known}
        else:
            raise ValueError(f"{path} takes {self._form(element)}, not {value!r}")
        unknown = [name for name in changes if name not in known]
        if unknown:
            raise KeyError(f"{path} has no {', '.join(map(str, unknown))}; it has {', '.join(known)}")
        texts = {name: _format_value(new) for name, new in changes.items()}
        self._replace(self._attribute_edits(element, texts))

    def get(self, path: str, default: Any = None) -> Any:
        """The value at path, or default when there is no such path."""
        try:
            return self[path]
        except KeyError:
            return default

    def set(self, path: str, value: object) -> Recipe:
        """As recipe[path] = value, and returns the recipe, so that calls can be chained."""
        self[path] = value
        return self

    def __contains__(self, path: object) -> bool:
        try:
            self._find(str(path))
        except KeyError:
            return False
        return True

    def paths(self) -> list[str]:
        """Paths of all elements that hold values, in the order of the file."""
        return list(self._walk(self._root, ""))

    def __iter__(self) -> Iterator[str]:
        return iter(self.paths())

    def _walk(self, element: Element, prefix: str) -> Iterator[str]:
        seen = set()
        for child in element.children:
            if child.tag in seen:
                continue
            seen.add(child.tag)
            if child.attributes:
                yield prefix + child.tag
            yield from self._walk(child, f"{prefix}{child.tag}/")

    def _find(self, path: str) -> tuple[Element, str | None]:
        """The element at path, and the attribute if the path's last part is one."""
        parts = [part for part in re.split(r"[/:]", path) if part]
        if parts[:1] == [ROOT]:
            parts = parts[1:]
        element = self._root
        for position, part in enumerate(parts):
            below = element.child(part)
            if below is None and position == len(parts) - 1 and part.lstrip("@") in element.attributes:
                return element, part.lstrip("@")
            if below is None:
                raise KeyError(self._unknown(path))
            element = below
        if not parts or not element.attributes:
            raise KeyError(self._unknown(path) if not element.children else f"{path} is a group, it has no value itself")
        return element, None

    def _unknown(self, path: str) -> str:
        wanted = path.replace(":", "/").removeprefix(ROOT + "/")
        paths = self.paths()
        last = wanted.rsplit("/", 1)[-1]
        near = [known for known in paths if known.endswith("/" + last)]
        near = difflib.get_close_matches(wanted, near, 3, 0.0) or difflib.get_close_matches(wanted, paths, 3, 0.6)
        hint = f"; near it: {', '.join(near)}" if near else ""
        return f"{self._name} has no {path}{hint}"

    @staticmethod
    def _form(element: Element) -> str:
        if set(element.attributes) == {"val"}:
            return "a single value"
        if set(element.attributes) == {"val", "end"}:
            return "one value, or two for begin and end"
        return f"a mapping with {', '.join(element.attributes)}"

    # ---- edits of the bytes

    def _attribute_edits(self, element: Element, texts: Mapping[str, str]) -> list[tuple[int, int, bytes]]:
        """Edits that give attributes new texts. A text that stands there already is left alone."""
        edits = []
        for match in _ATTRIBUTE.finditer(self._content, element.begin + 1 + len(element.tag), element.tag_end):
            name = match[1].decode("utf-8", "replace")
            if name in texts and texts[name] != element.attributes[name]:
                quote = chr(match[2][0])
                text = quote + _escape(texts[name], quote) + quote
                edits.append((match.start(2), match.end(2), self._encode(text)))
        return edits

    def _encode(self, text: str) -> bytes:
        """Bytes of a new text in the encoding of the file."""
        declared = re.match(rb"""\s*<\?xml[^>]*\sencoding\s*=\s*["']([^"']+)""", self._content)
        encoding = "utf-8" if declared is None and _is_utf8(self._content) else "iso-8859-1"
        if declared is not None:
            encoding = declared[1].decode("ascii")
        return text.encode(encoding, "xmlcharrefreplace")

    def _replace(self, edits: list[tuple[int, int, bytes]]) -> None:
        """Carries out edits (begin, end, new bytes) that don't overlap. On an error nothing has changed."""
        content = self._content
        for begin, end, new in sorted(edits, reverse=True):
            content = content[:begin] + new + content[end:]
        self._root = _index(content, self._name)
        self._content = content

"""Values of a recipe by path: reading one, and the document with another one.

Only the bytes of the value change. A number may have a unit, and is written in that of the element. A text that already
means the same number stays as it is.
"""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any

from . import xml_bytes
from .document import Document, Place, split_path
from .elements import Element as Known
from .kinds import KNOWN, OPTIONAL, known_element, parse, text_of, unit_of
from .quantities import has_unit, number_in
from .xml_bytes import Element

Value = float | str | tuple[Any, Any] | dict[str, Any]
RAMP = ("val", "end")


def value_at(document: Document, path: str) -> Value:
    """The value at a path; a pair for a ramp, a dictionary for an element with other attributes. Raises KeyError."""
    place = document.find(path)
    texts = place.element.attributes
    values = {name: parse(text, _known(place, name)) for name, text in texts.items()}
    if place.attribute is not None:
        return values[place.attribute]
    if set(values) == {"val"}:
        return values["val"]
    if set(values) == set(RAMP):
        return values["val"], values["end"]
    return values


def with_value(document: Document, path: str, value: object) -> Document:
    """The document with a value at a path. Missing optional elements are added.

    Raises KeyError for an unknown path, ValueError or TypeError for a value that does not fit.
    """
    missing = _missing_optional(document, path)
    if missing is not None:
        return _with_optional(document, missing, value)
    return document.edited(_edits(document, document.find(path), path, value))


def with_values(document: Document, values: Mapping[str, object]) -> Document:
    """The document with a value at each path, set one after the other; raises as with_value.

    The document is parsed again only once, unless elements are added or a value is set twice.
    """
    edits: list[xml_bytes.Edit] = []
    places: list[Place] = []
    for path, value in values.items():
        is_missing = _missing_optional(document, path) is not None
        place = None if is_missing else document.find(path)
        if place is None or any(place.overlaps(other) for other in places):
            document, edits, places = document.edited(edits), [], []
            document = with_value(document, path, value)
        else:
            edits += _edits(document, place, path, value)
            places.append(place)
    return document.edited(edits)


def _edits(document: Document, place: Place, path: str, value: object) -> list[xml_bytes.Edit]:
    """Edits that set the value at a place, whose path messages name."""
    present = place.element.attributes
    texts = {}
    for name, new in _changes(place, path, value).items():
        if name not in present:
            raise KeyError(f"{path} has no {name}; it has {', '.join(present)}")
        known = _known(place, name)
        new = _without_unit(new, path, known, name)
        text = text_of(new, path, known)
        same = not isinstance(new, str) and parse(present[name], known) == new
        texts[name] = present[name] if same else text
    return xml_bytes.attribute_edits(document.content, place.element, texts)


def _known(place: Place, attribute: str) -> Known | None:
    """The known element at a place if it has that attribute."""
    known = known_element(place.path)
    return known if known is not None and attribute in known.attributes else None


def _without_unit(value: object, path: str, known: Known | None, attribute: str) -> object:
    """A value with a unit as the number in the unit of a known element; any other value as it is."""
    if known is None or known.kind not in ("real", "range", "arrhenius") or not has_unit(value):
        return value
    return number_in(value, path, unit_of(known, attribute))


def _changes(place: Place, path: str, value: object) -> dict[str, object]:
    """New values by attribute."""
    present = place.element.attributes
    if place.attribute is not None:
        return {place.attribute: value}
    if isinstance(value, Mapping):
        return dict(value)
    if isinstance(value, (tuple, list)):
        if len(value) == 2 and set(RAMP) <= set(present):
            return dict(zip(RAMP, value))
    elif "val" in present:
        return {name: value for name in RAMP if name in present}
    raise ValueError(f"{path} takes {_form(place.element)}, got {value!r}")


def _form(element: Element) -> str:
    if set(element.attributes) == {"val"}:
        return "a single value"
    if set(element.attributes) == set(RAMP):
        return "one value, or two for start and end"
    return f"a mapping with {', '.join(element.attributes)}"


def _missing_optional(document: Document, path: str) -> str | None:
    """The entry of OPTIONAL that this path refers to, if the recipe has no value there."""
    parts = split_path(path)
    if parts and parts[-1].lstrip("@") == "val":
        parts = parts[:-1]
    known = "/".join(parts)
    return known if known in OPTIONAL and document.attribute(known) is None else None


def _with_optional(document: Document, path: str, value: object) -> Document:
    """The document with a value at a path of OPTIONAL, with missing elements added."""
    if isinstance(value, Mapping) and set(value) == {"val"}:
        value = value["val"]
    if isinstance(value, (Mapping, tuple, list)):
        raise ValueError(f"{path} takes a single value, got {value!r}")
    text = text_of(value, path, KNOWN[path])
    element, tags = document.root, path.split("/")
    while tags and (below := element.child(tags[0])) is not None:
        element, tags = below, tags[1:]
    if tags:
        return document.edited(xml_bytes.added_child_edits(document.content, element, tags, text))
    return document.edited(xml_bytes.added_attribute_edits(document.content, element, "val", text))

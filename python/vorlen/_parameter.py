"""Which element of a recipe a path of a sweep means, its kind and its unit."""

from __future__ import annotations

import re
from dataclasses import dataclass

from ._elements import ELEMENTS, ROOT, Element

NUMERIC = ("integer", "real", "range", "arrhenius")  # kinds

_KNOWN = {element.path: element for element in ELEMENTS}
_SUB_STAGE = re.compile(r"^process_stages/stage_\d+/stage_\d+_\d+(?=/|$)")
_STAGE = re.compile(r"^((?:pre_|process_|post_)stages/(?:pre_|post_)?stage_)\d+(?=/|$)")


@dataclass(frozen=True)
class Parameter:
    """The element that a path means, or one attribute of it."""

    element: str  # path below the root, with slashes
    attribute: str  # "": the element's value, start and end of a ramp together
    known: Element | None  # None: an element that the library does not read

    @property
    def numeric(self) -> bool:
        return self.known is not None and self.known.kind in NUMERIC

    @property
    def integer(self) -> bool:
        return self.known is not None and self.known.kind == "integer"

    @property
    def unit(self) -> str:
        """The unit; "1" if dimensionless, "" if the value is not known to be a number."""
        if self.known is None or not self.numeric:
            return ""
        units = self.known.unit.split(", ")  # of an Arrhenius constant: one for each attribute
        if self.attribute and len(units) == len(self.known.attributes):
            return units[self.known.attributes.index(self.attribute)]
        return self.known.unit or "1"

    def replaces(self, other: Parameter) -> bool:
        """True if setting this one after the other one leaves nothing of the other's value."""
        return self.element == other.element and self.attribute in (other.attribute, "")


def _known(path: str) -> Element | None:
    return _KNOWN.get(_STAGE.sub(r"\1#", _SUB_STAGE.sub("process_stages/stage_#", path)))


def parameter_of(path: str) -> Parameter:
    """The parameter that a path means; the path may be separated by slashes or colons, and start with the root."""
    parts = [part for part in re.split(r"[/:]", path) if part]
    if parts[:1] == [ROOT]:
        parts = parts[1:]
    attribute = ""
    if parts and _known("/".join(parts)) is None:
        above = _known("/".join(parts[:-1]))
        last = parts[-1].lstrip("@")
        if above is not None and last in above.attributes:
            parts = parts[:-1]
            attribute = last if len(above.attributes) > 1 else ""
    element = "/".join(parts)
    return Parameter(element, attribute, _known(element))

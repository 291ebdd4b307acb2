"""The integration scheme of a recipe, "continuous" or "staged": reading it and changing it.

The first `scheme` element of the first `integration` element counts.
"""

from __future__ import annotations

from . import xml_bytes
from .elements import ROOT
from .kinds import KNOWN, SCHEMES
from .recipe import Recipe
from .xml_bytes import RecipeError

STAGED = "staged"
DEFAULT = KNOWN["integration/scheme"].default


def check_scheme(scheme: str | None) -> None:
    """Raises ValueError unless the scheme is known. None means the scheme of the recipe."""
    if scheme is not None and scheme not in SCHEMES:
        raise ValueError(f'scheme must be "continuous", "staged" or None, got {scheme!r}')


def scheme_of(content: bytes | None) -> str:
    """The scheme of a recipe: "continuous" if it states none or can't be read."""
    if content is None or b"integration" not in content:  # saves parsing
        return DEFAULT
    try:
        root = xml_bytes.index(content, "recipe")
    except RecipeError:
        return DEFAULT
    integration = root.child("integration")
    scheme = integration.child("scheme") if integration else None
    value = scheme.attributes.get("val", "").lower() if scheme else DEFAULT
    return value if value in SCHEMES else DEFAULT


def with_scheme(content: bytes, scheme: str, name: str = "recipe") -> bytes:
    """The recipe with this scheme; the same bytes if it has it already. Nothing else changes.

    Raises RecipeError if the XML is not well-formed; name is the recipe's name in its text.
    """
    root = xml_bytes.index(content, name)
    if root.tag != ROOT:
        return content  # the library reports it
    integration = root.child("integration")
    element = integration.child("scheme") if integration else None
    present = element.attributes.get("val", "") if element else DEFAULT
    return content if present.lower() == scheme else Recipe(content, name).with_scheme(scheme).to_bytes()

"""The scheme of the integration, "continuous" or "staged": that of a recipe, and a recipe under another one.

The first element scheme of the first element integration counts.
"""

from __future__ import annotations

from . import xml_bytes
from .recipe import ROOT, SCHEMES, Recipe, RecipeError

STAGED, DEFAULT = SCHEMES


def check_scheme(scheme: str | None) -> None:
    """Raises ValueError unless the scheme is known. None stands for that of the recipe."""
    if scheme is not None and scheme not in SCHEMES:
        raise ValueError(f'scheme must be "continuous", "staged" or None, got {scheme!r}')


def scheme_of(content: bytes | None) -> str:
    """The scheme that a recipe asks for: "continuous" if it asks for none, or can't be read."""
    if content is None or b"integration" not in content:  # spares the parsing
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
    """The bytes of a recipe that asks for that scheme. Nothing else changes, and nothing at all if it does already.

    Raises RecipeError for what is not well-formed; name is that of the recipe in its text.
    """
    root = xml_bytes.index(content, name)
    if root.tag != ROOT:
        return content  # the library has a text for it
    integration = root.child("integration")
    element = integration.child("scheme") if integration else None
    present = element.attributes.get("val", "") if element else DEFAULT
    return content if present.lower() == scheme else Recipe(content, name).with_scheme(scheme).to_bytes()

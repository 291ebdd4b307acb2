"""What differs between recipes: paths and values. Stages are compared by their names, so that an inserted one counts once."""

from __future__ import annotations

import difflib
from typing import Any, NamedTuple

from .._recipe.recipe import Recipe
from .._recipe.values import Value
from .._recipe.xml_bytes import RecipeError

GROUPS = ("pre_stages", "process_stages", "post_stages")


class RecipeDifference(NamedTuple):
    """One difference between two recipes."""

    path: str  # in the first recipe; in the other one if the first has no such element
    stage: str  # name of the stage; empty outside of stages
    first: str | None  # None: not in this recipe
    other: str | None


def recipe_differences(first: Recipe, other: Recipe) -> list[RecipeDifference]:
    """The differences in the order of the first recipe."""
    pairs, only_first, only_other = _stage_pairs(first, other)
    found = [RecipeDifference(path, _name(first, path), "present", None) for path in only_first]
    found += [RecipeDifference(path, _name(other, path), None, "present") for path in only_other]
    of_first = _values(first, dict(pairs), only_first)
    of_other = _values(other, {theirs: theirs for _, theirs in pairs}, only_other)
    own_paths = {theirs: ours for ours, theirs in pairs}
    for key, (path, value) in of_first.items():
        theirs = of_other.pop(key, (path, None))[1]
        if value != theirs:
            found.append(RecipeDifference(path, _stage_of(first, path), _text(value), _text(theirs)))
    for path, value in of_other.values():
        found.append(RecipeDifference(_moved(path, own_paths), _stage_of(other, path), None, _text(value)))
    return found


def _stage_of(recipe: Recipe, path: str) -> str:
    """Name of the innermost stage of a path."""
    while path := path.rpartition("/")[0]:
        if (name := recipe.get(f"{path}/name")) is not None:
            return str(name)
    return ""


def _stage_pairs(first: Recipe, other: Recipe) -> tuple[list[tuple[str, str]], list[str], list[str]]:
    """Stages with the same name and place among those of other names, as paths; and those of only one recipe."""
    pairs: list[tuple[str, str]] = []
    only_first: list[str] = []
    only_other: list[str] = []
    groups = [(group, group) for group in GROUPS]
    while groups:
        ours, theirs = groups.pop(0)
        stages = _stages(first, ours), _stages(other, theirs)
        names = [[_name(recipe, path) for path in paths] for recipe, paths in zip((first, other), stages)]
        matcher = difflib.SequenceMatcher(None, names[0], names[1], autojunk=False)
        for kind, a, a_end, b, b_end in matcher.get_opcodes():
            if kind == "equal" or (kind == "replace" and a_end - a == b_end - b):
                matched = list(zip(stages[0][a:a_end], stages[1][b:b_end]))
                pairs += matched
                groups += matched  # a periodic stage is a group
            else:
                only_first += stages[0][a:a_end]
                only_other += stages[1][b:b_end]
    return pairs, only_first, only_other


def _stages(recipe: Recipe, group: str) -> list[str]:
    try:
        return recipe.stages(group)
    except (KeyError, RecipeError, ValueError):
        return []


def _name(recipe: Recipe, stage: str) -> str:
    """The name of a stage; of a periodic stage those of its stages."""
    name = recipe.get(f"{stage}/name")
    if name is None:
        return " / ".join(_name(recipe, inner) for inner in _stages(recipe, stage))
    return str(name)


def _moved(path: str, places: dict[str, str]) -> str:
    """The path with its innermost stage replaced by the corresponding one."""
    stage = path
    while stage and stage not in places:
        stage = stage.rpartition("/")[0]
    return places[stage] + path[len(stage) :] if stage else path


def _values(recipe: Recipe, places: dict[str, str], left_out: list[str]) -> dict[str, tuple[str, Value]]:
    """Path and value of each element outside of the stages left out, by the path in the other recipe."""
    skipped = tuple(f"{stage}/" for stage in left_out)
    return {
        _moved(path, places): (path, recipe[path])
        for path in recipe.paths()
        if not path.startswith(skipped) and not path.endswith("_stages")  # numbers of stages
    }


def _text(value: Any) -> str | None:
    """A value as people write it: a ramp as "1080 to 1010"."""
    if isinstance(value, tuple):
        parts = [_text(part) or "" for part in value]
        return parts[0] if len(set(parts)) == 1 else " to ".join(parts)
    if isinstance(value, dict):
        return ", ".join(f"{key} {_text(part)}" for key, part in value.items())
    if isinstance(value, float):
        return f"{value:.10g}"
    return None if value is None else str(value)

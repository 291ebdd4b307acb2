"""The targets of a design: what the caller gives, checked against the recipe before anything runs."""

from __future__ import annotations

import contextlib
import difflib
import math
import os
import re
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from typing import Any, NoReturn

import pandas as pd

from .._recipe.quantities import number_in
from .._recipe.recipe import Recipe
from .._recipe.stages import PROCESS
from . import quantities as quantities_of
from .file import read_targets_file
from .knobs import KNOBS, PERIODS, Knob, make_knob, usual_knob
from .limits import as_range, check_celsius, checked_limits, named_limits
from .neighbours import Neighbour, neighbours_of
from .quantities import QUANTITIES, Quantity, Target

KEYS = ("layers", "limits", "prefer")
OTHER_KEYS = ("layer", "by", "limits")  # of an entry of layers
V_III = "V/III"
BOUNDS = {
    "at most": "at most", "at least": "at least", "<=": "at most", ">=": "at least", "<": "at most", ">": "at least",
    "\u2264": "at most", "\u2265": "at least",
}
EXAMPLE = "{layer: InGaN well, thickness: 3 nm, In: 0.15, by: [tau, TMIn]}"


@dataclass(frozen=True)
class Layer:
    """A layer that a target names: its stages, and the periodic stages that repeat them."""

    name: str
    stages: tuple[str, ...]
    periodic: tuple[str, ...]
    whole: bool  # it is a periodic stage


@dataclass(frozen=True)
class Spec:
    """What a design is to do.

    knobs        those of the groups, then those of hints
    preferences  name: 1 for high, -1 for low; a name is V/III or that of a knob
    hints        places of temperatures that stay, and are only tried if a target is out of reach
    neighbours   temperatures that follow knobs and hints
    """

    targets: list[Target]
    knobs: list[Knob]
    preferences: dict[str, int]
    groups: list[tuple[list[int], list[int]]]  # targets and knobs that belong together, by their places
    hints: range
    neighbours: list[Neighbour]

    def values_of(self, point: Sequence[float]) -> dict[str, Any]:
        """The value of each path in the recipe at a point."""
        found: dict[str, Any] = {}
        for neighbour in self.neighbours:
            found |= neighbour.values(self.knobs, point)
        for knob, variable in zip(self.knobs, point):
            own = knob.values(float(variable))
            found |= own if variable else {path: value for path, value in own.items() if path not in found}
        return found


def read_spec(recipe: Recipe, targets: Any) -> Spec:
    """The targets of a design for a recipe.

    targets  a mapping, or the path of a file
    Raises OSError if a file can't be read, TypeError or ValueError for mistakes.
    """
    targets, entries = _given(targets)
    limits = named_limits(targets.get("limits"), "limits")
    timeline = recipe.timeline()
    made: list[Target] = []
    knobs: dict[tuple[str, ...], Knob] = {}
    belongs: list[tuple[list[int], list[int]]] = []
    used: set[str] = set()
    for number, entry in enumerate(entries, 1):
        layer, wanted, by, own = _entry(recipe, timeline, entry, number)
        places = []
        for name in by:
            path_key, knob_name, paths = _knob_paths(recipe, timeline, layer, name)
            chosen = own.get(path_key, own.get(knob_name, limits.get(path_key, limits.get(knob_name))))
            used |= {path_key, knob_name}
            stage = _stage_of(paths[0]).removeprefix(f"{PROCESS}/") if "/" in name else ""
            limits_of_knob = checked_limits(chosen, knob_name, paths[0])
            if knob_name == "T" and limits_of_knob is not None:
                check_celsius(chosen, limits_of_knob, [recipe[path] for path in paths], stage or layer.name)
            knob = make_knob(recipe, layer.name, knob_name, paths, limits_of_knob, stage)
            twin = next((one for one in knobs.values() if set(one.paths) & set(paths)), None)
            if twin is not None and (twin.paths != knob.paths or twin.limits != knob.limits):
                raise ValueError(f"{knob.label} and {twin.label} share a stage, but not all stages or limits")
            knobs.setdefault(knob.paths, knob)
            places.append(list(knobs).index(knob.paths))
        unused = [name for name in own if name not in used]
        if unused:
            _unknown(f"limits of {layer.name}: knob", unused[0], by, "the entry has")
        _add(made, wanted)
        belongs.append((list(range(len(made) - len(wanted), len(made))), places))
    for name, pair in limits.items():
        if name in KNOBS:  # limits of the reactor may name knobs that no layer uses
            checked_limits(pair, name, f"{PROCESS}/stage_1/{KNOBS[name]}")
        elif name not in used:
            _unknown("limits: knob", name, list(KNOBS), "known are")
    found = list(knobs.values())
    followers = {one.stage for one in neighbours_of(recipe, found)}
    hints = _hints(recipe, made, found, followers, limits.get("T"))
    places_of_hints = range(len(found), len(found) + len(hints))
    preferences = _preferences(targets.get("prefer"))
    neighbours = neighbours_of(recipe, found, hints)
    groups = _joined(belongs, made, found, neighbours)
    return Spec(made, found + hints, preferences, groups, places_of_hints, neighbours)


def read_goals(recipe: Recipe, targets: Any) -> list[Target]:
    """The targets alone, without knobs and limits, which need not be given; otherwise as read_spec."""
    _, entries = _given(targets)
    timeline = recipe.timeline()
    made: list[Target] = []
    for number, entry in enumerate(entries, 1):
        _add(made, _layer_targets(recipe, timeline, entry, number)[1])
    return made


def _given(targets: Any) -> tuple[Mapping[str, Any], Sequence[Any]]:
    """The targets as a mapping, and its entries of layers."""
    if isinstance(targets, (str, os.PathLike)):
        targets = read_targets_file(targets)
    if not isinstance(targets, Mapping):
        raise TypeError(f"targets must be a mapping with the key layers, or a path, got {type(targets).__name__}")
    for key in targets:
        if key not in KEYS:
            _unknown("key", key, KEYS, "targets have")
    entries = targets.get("layers")
    if not isinstance(entries, Sequence) or isinstance(entries, str) or not entries:
        raise ValueError(f"targets need layers, a list with an entry for each layer, such as {EXAMPLE}")
    return targets, entries


def _add(made: list[Target], wanted: list[Target]) -> None:
    for target in wanted:
        for other in made:
            if (other.quantity, other.stages, other.whole) == (target.quantity, target.stages, target.whole):
                raise ValueError(f"{target.label} is given twice")
        made.append(target)


def _unknown(what: str, name: object, known: Sequence[str], owner: str) -> NoReturn:
    near = difflib.get_close_matches(str(name).lower(), [one.lower() for one in known], 1, 0.5)
    hint = next((f". Did you mean {one!r}?" for one in known if near and one.lower() == near[0]), "")
    raise ValueError(f"unknown {what} {name!r}; {owner} {', '.join(known)}{hint}")


# ---- entries


def _entry(
    recipe: Recipe, timeline: pd.DataFrame, entry: Any, number: int
) -> tuple[Layer, list[Target], list[str], dict[str, Any]]:
    """Layer, targets, names of knobs, and limits of one entry of layers."""
    layer, targets = _layer_targets(recipe, timeline, entry, number)
    by: Any = entry.get("by")
    by = [name.strip() for name in by.split(",") if name.strip()] if isinstance(by, str) else by
    if not isinstance(by, Sequence) or not by:
        raise ValueError(f"{layer.name} has no knobs; add by: with some of {', '.join(KNOBS)}, such as by: [tau, TMIn]")
    if not all(isinstance(name, str) for name in by):
        raise ValueError(f"{layer.name}: the knobs after by: must be texts, got {by!r}")
    own = named_limits(entry.get("limits"), f"limits of {layer.name}")
    return layer, targets, list(dict.fromkeys(by)), own


def _layer_targets(
    recipe: Recipe, timeline: pd.DataFrame, entry: Any, number: int
) -> tuple[Layer, list[Target]]:
    """Layer and targets of one entry of layers."""
    if not isinstance(entry, Mapping):
        raise ValueError(f"entry {number} of layers must be a mapping, such as {EXAMPLE}, got {entry!r}")
    if "layer" not in entry:
        raise ValueError(f"entry {number} of layers has no key layer, such as {EXAMPLE}")
    layer = find_layer(recipe, timeline, entry["layer"])
    targets = [_target(layer, key, value) for key, value in entry.items() if key not in OTHER_KEYS]
    if not targets:
        raise ValueError(f"{layer.name} has no target; known are {', '.join(QUANTITIES)}")
    return layer, targets


def find_layer(recipe: Recipe, timeline: pd.DataFrame, given: object) -> Layer:
    """The layer that a caller means: by name, by number in the result, or by the path of a stage."""
    if isinstance(given, bool) or not isinstance(given, (str, int)):
        raise ValueError(f"a layer must be a name, a number or the path of a stage, got {given!r}")
    text = str(given).strip()
    if isinstance(given, str):
        named = timeline[timeline.name == text]
        if named.empty:
            named = timeline[timeline.name.str.lower() == text.lower()]
            if named.name.nunique() > 1:
                meant = " and ".join(repr(name) for name in named.name.unique())
                raise ValueError(f"the layer {text!r} is ambiguous: it can be {meant}")
        if not named.empty:
            return _layer_of(str(named.name.iloc[0]), named)
    if re.fullmatch(r"\d+", text):
        number = int(text)
        if number not in timeline.index:
            raise ValueError(f"layer {number} does not exist: the recipe has {len(timeline)} layers, counted from 1")
        path = timeline.path[number]
        return _layer_of(f"layer {number} ({timeline.name[number]})", timeline[timeline.path == path])
    for path in (text, f"{PROCESS}/{text}"):
        staged = timeline[timeline.path == path]
        if not staged.empty:
            return _layer_of(text, staged)
        inside = timeline[timeline.path.str.startswith(f"{path}/") & (timeline.kind == "active")]
        if path != PROCESS and not inside.empty:
            return Layer(text, tuple(dict.fromkeys(inside.path)), (path,), True)
    tagged = timeline[timeline.stage == text]
    if not tagged.empty:
        return _layer_of(text, tagged)
    names = list(dict.fromkeys(timeline.name[timeline.kind == "active"]))
    near = difflib.get_close_matches(text.lower(), [name.lower() for name in names], 3, 0.6)
    likely = [name for name in names if name.lower() in near or text.lower() in name.lower()]
    hint = f"did you mean {' or '.join(map(repr, likely[:3]))}?" if likely else f"the layers are {', '.join(names)}"
    raise ValueError(f"the recipe has no layer {text!r}; {hint}")


def _layer_of(name: str, rows: pd.DataFrame) -> Layer:
    active = rows[rows.kind == "active"]
    if active.empty:
        raise ValueError(f"{name} is a {rows.kind.iloc[0]}-stage: it is not simulated, so it can't have targets")
    stages = tuple(dict.fromkeys(active.path))
    periodic = dict.fromkeys(path.rpartition("/")[0] for path in stages if path.count("/") == 2)
    return Layer(name, stages, tuple(periodic), False)


def find_quantity(key: object, what: str, others: Sequence[str] = ()) -> Quantity:
    """The quantity of a name or a column. Raises ValueError if it is unknown.

    what    what messages call it
    others  other names that are possible there
    """
    text = " ".join(re.split(r"[\s,_]+", str(key).strip()))
    names = {name.lower(): name for name in QUANTITIES} | {
        alias.lower().replace("_", " "): name for alias, name in quantities_of.ALIASES.items()
    }
    if text.lower() not in names:
        _unknown(what, key, [*QUANTITIES, *others], "known are")
    return QUANTITIES[names[text.lower()]]


def _target(layer: Layer, key: object, given: Any) -> Target:
    if given is None:
        _check_comma(layer, str(key))
    quantity = find_quantity(key, f"target of {layer.name}:", OTHER_KEYS)
    label = f"{quantity.name} of {layer.name}"
    if layer.whole and quantity.name not in ("thickness", "rate"):
        raise ValueError(f"{label}: a whole periodic stage can only have a thickness or a rate; name a layer in it")
    if quantity.name == "V-defects":
        if given not in ("none", "no", 0, "0", None) or given is True:
            raise ValueError(f"{label} can only be none, got {given!r}")
        return Target(layer.name, layer.stages, False, quantity, 0.0, "at most")
    match = re.match(rf"\s*({'|'.join(map(re.escape, BOUNDS))})\s*", given) if isinstance(given, str) else None
    bound, given = (BOUNDS[match[1]], given[match.end() :]) if match else ("", given)
    given, plus_minus = _tolerance_apart(given, label)
    ends = as_range(given) if isinstance(given, str) else None
    if ends is not None:
        low, high = (number_in(end, label, quantity.unit) for end in ends)
        unit = f" {quantity.unit}" if quantity.unit else ""
        written = f"{(low + high) / 2:.6g} +- {abs(high - low) / 2:.3g}{unit}"
        raise ValueError(f"{label} is one value with a tolerance: write {written}, got {given!r}")
    if bound and plus_minus:
        raise ValueError(f"{label} is a bound, which has no tolerance, got +- {plus_minus}")
    value = float(number_in(given, label, quantity.unit))
    if quantity.scale == "log" and not value > 0.0:
        raise ValueError(f"{label} must be above 0, got {value:g}")
    if quantity.scale == "logit" and not 0.0 <= value <= 1.0:
        hint = f"; write {value:g} % for per cent" if 1.0 < value <= 100.0 else ""
        raise ValueError(f"{label} must be a fraction from 0 to 1, got {value:g}{hint}")
    if quantity.name == "strain" and not abs(value) < 0.2:
        raise ValueError(f"{label} must be between -0.2 and 0.2, got {value:g}; write 1 % for 0.01")
    allowed = _tolerance(plus_minus, label, quantity, value) if plus_minus else None
    return Target(layer.name, layer.stages, layer.whole, quantity, value, bound, allowed)


def _check_comma(layer: Layer, key: str) -> None:
    """Raises ValueError for what YAML makes of commas within braces: the text after them is a key without a value."""
    if re.match(r"[\d\s]", key):
        raise ValueError(f"{layer.name}: unknown target {key!r}; the decimal separator is the point, as in 3.0 nm")
    if usual_knob(key) is not None:
        raise ValueError(f"{layer.name}: unknown target {key!r}; several knobs need brackets, as in by: [tau, {key}]")


def _tolerance_apart(given: Any, label: str) -> tuple[Any, str]:
    """The value and the text of its tolerance in "3.0 +- 0.1 nm": a unit of one of them is that of both."""
    if not isinstance(given, str):
        return given, ""
    value, sign, tolerance = (part.strip() for part in re.sub(r"\+/-|\+-|\u00b1", "\u00b1", given).partition("\u00b1"))
    if not sign:
        return given, ""
    if not value or not tolerance:
        raise ValueError(f"{label}: expected a value and a tolerance, such as 3.0 +- 0.1 nm, got {given!r}")
    units = [re.sub(r"^[-+]?[\d.]+(?:[eE][-+]?\d+)?\s*", "", part) for part in (value, tolerance)]
    if units[1] and not units[0] and units[1] != "%":
        value = f"{value} {units[1]}"
    elif units[0] and not units[1]:
        tolerance = f"{tolerance} {units[0]}"
    return value, tolerance


def _tolerance(text: str, label: str, quantity: Quantity, value: float) -> float:
    """In the unit of the quantity. Per cent of quantities with a unit are those of the value."""
    what = f"the tolerance of {label}"
    share = text.endswith("%") and quantity.unit != ""
    allowed = float(number_in(text, what, "" if share else quantity.unit))
    if not allowed > 0.0:
        raise ValueError(f"{what} must be above 0, got {text}")
    return allowed * abs(value) if share else allowed


# ---- knobs and limits


def _knob_paths(recipe: Recipe, timeline: pd.DataFrame, layer: Layer, name: str) -> tuple[str, str, list[str]]:
    """What limits call a knob, its usual name, and its paths in the recipe."""
    if "/" in name:
        return name, *_knob_at(recipe, timeline, name)
    usual = usual_knob(name)
    if usual is None:
        _unknown(f"knob of {layer.name}:", name, list(KNOBS), "known are")
    if usual == PERIODS:
        if not layer.periodic:
            raise ValueError(f"{layer.name} is not in a periodic stage, so it has no periods")
        return usual, usual, [f"{path}/{KNOBS[usual]}" for path in layer.periodic]
    if layer.whole:
        raise ValueError(
            f"{layer.name} is a periodic stage: its knob is periods, or the path of a value in one of its stages"
        )
    paths = [f"{stage}/{KNOBS[usual]}" for stage in layer.stages]
    for path in paths:
        if path not in recipe:
            raise ValueError(f"the recipe has no {path}, the {usual} of {layer.name}")
    return usual, usual, paths


def _knob_at(recipe: Recipe, timeline: pd.DataFrame, path: str) -> tuple[str, list[str]]:
    """The name of the knob at a path in the recipe, and the path."""
    stages = [*timeline.path[timeline.kind == "active"], *{one.rpartition("/")[0] for one in timeline.path}]
    for stage in dict.fromkeys(stages):
        names = (stage, stage.removeprefix(f"{PROCESS}/"), stage.rpartition("/")[2])
        for name, below in KNOBS.items():
            if path in [f"{one}/{end}" for one in names for end in (below, name)] and f"{stage}/{below}" in recipe:
                return name, [f"{stage}/{below}"]
    raise ValueError(f"{path} is not a knob; a path of a knob is that of a stage with one of {', '.join(KNOBS)}")


def _preferences(given: Any) -> dict[str, int]:
    if given is None:
        return {}
    if not isinstance(given, Mapping):
        raise ValueError(f"prefer must be a mapping such as {{V/III: high}}, got {given!r}")
    found = {}
    for name, direction in given.items():
        usual = V_III if str(name).upper() in (V_III, "V-III", "VIII") else usual_knob(str(name))
        if usual is None:
            _unknown("preference", name, [V_III, *KNOBS], "known are")
        if direction not in ("high", "low"):
            raise ValueError(f"prefer {usual}: expected high or low, got {direction!r}")
        found[usual] = 1 if direction == "high" else -1
    return found


def _joined(
    belongs: list[tuple[list[int], list[int]]], targets: list[Target], knobs: list[Knob], neighbours: list[Neighbour]
) -> list[tuple[list[int], list[int]]]:
    """Entries that share a stage or a knob, as one group: the knobs of a group affect mainly its targets."""
    wanted = {stage for target in targets for stage in target.stages}
    groups: list[tuple[set[int], set[int], set[str]]] = []
    for target_places, knob_places in belongs:
        stages = {stage for place in target_places for stage in targets[place].stages}
        stages |= {_stage_of(path) for place in knob_places for path in knobs[place].paths}
        stages |= {one.stage for one in neighbours if one.stage in wanted and set(one.knobs) & set(knob_places)}
        merged = (set(target_places), set(knob_places), stages)
        for other in [group for group in groups if group[2] & stages or group[1] & merged[1]]:
            merged = (merged[0] | other[0], merged[1] | other[1], merged[2] | other[2])
            groups.remove(other)
        groups.append(merged)
    return [(sorted(some), sorted(others)) for some, others, _ in groups]


def _hints(
    recipe: Recipe, targets: list[Target], knobs: list[Knob], followers: set[str], limits: Any
) -> list[Knob]:
    """The temperatures of layers, where they are not knobs, do not follow knobs and have room to move."""
    used = {path for knob in knobs for path in knob.paths} | {f"{stage}/T" for stage in followers}
    hints: list[Knob] = []
    for target in targets:
        paths = [f"{stage}/T" for stage in target.stages]
        if target.evaporation and not used & set(paths):
            with contextlib.suppress(ValueError):
                hints.append(make_knob(recipe, target.layer, "T", paths, checked_limits(limits, "T", paths[0])))
            used |= set(paths)
    return hints


def _stage_of(path: str) -> str:
    return next(path.removesuffix(f"/{below}") for below in KNOBS.values() if path.endswith(f"/{below}"))

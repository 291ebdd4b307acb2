"""Stages of a recipe from conditions: a new recipe, given layers, and grown ones.

The conditions of a grown stage that are not given are those at the end of the stage before it, which are read from the
recipe itself. So any recipe can be continued. A stage without metals counts as a pause: the metals of the next stage
are those before the pause. Each function gives a new document.
"""

from __future__ import annotations

import difflib
import math
from collections.abc import Iterable, Mapping
from dataclasses import dataclass
from typing import Any

from .composition import fractions_of, lattice_of, material_keyword
from .document import Document
from .kinds import KNOWN, STRESS_MODELS, children_of_kind, leading_number, text_of, unit_of
from .limits import check_limits
from .quantities import number_in
from .stages import (
    PROCESS,
    STAGE,
    count_of_stages,
    inserted,
    is_periodic,
    line_start_of_stages,
    stages,
    tag_of_stage,
    with_periods,
)
from .text import Texts, layout, recipe_text, stage_lines
from .xml_bytes import encoding_of

# The kinetic constants of the examples: A, Ta in K, Tn.
CONSTANTS = {
    "Kd_In": ("1e13", "23200", "0"),
    "K_InN_plus": ("5e20", "26700", "0"),
    "Kd_Ga": ("1e13", "32500", "0"),
    "K_GaN_plus": ("1e18", "22000", "0"),
    "Kd_Al": ("1e13", "39500", "0"),
    "K_AlN_plus": ("1e18", "22000", "0"),
    "Kd_N2": ("5e20", "19700", "0"),
    "Kd_H2": ("5e20", "13900", "0"),
}
FLOWS = tuple(children_of_kind(f"{STAGE}/gas_species/Q", "range"))
METALS = tuple(flow for flow in FLOWS if flow.startswith(("TM", "TE")))
# Conditions of a grown stage: their names in calls, and their paths in the stage.
CONDITIONS = {
    "T": "T", "pressure": "P", "delta": "delta", "rotation": "omega_TDR", "growth_rate": "GR_average",
    "x_in": "XIn_average", "x_al": "XAl_average",
} | {flow: f"gas_species/Q/{flow}" for flow in FLOWS}  # fmt: skip
# Those that only some models of transport read; a model with a reactor is written MODEL REACTOR.
CONDITIONS_OF_TRANSPORT = {
    "fixed_thickness": ("delta",), "thick_GaN CCS": (), "thick_GaN TDR": ("rotation",), "thick_GaN HFR": (),
    "InGaN_GR_X": ("growth_rate", "x_in", "x_al"),
}  # fmt: skip
REFERENCE = "transport/parameters/"
# Reference conditions of thick_GaN: their names in calls, and their paths.
REFERENCES = {"growth_rate": "GR_ref", "pressure": "P_ref", "T": "T_ref", "rotation": "omega_TDR_ref"} | {
    flow: f"Q_ref/{flow}" for flow in children_of_kind(f"{REFERENCE}Q_ref", "real")
}
GROWTH_RATE = 2.0  # of a given layer, um/h


def new_recipe(
    material: str,
    transport: str,
    reactor: str | None,
    reference: Mapping[str, object] | None,
    stress: Mapping[str, object],
    chemistry: Mapping[str, Any],
    integration: Mapping[str, object],
    start: object,
    description: str,
) -> str:
    """The text of a recipe without stages. See Recipe.new.

    stress, integration  values by the names of their elements; None: not given
    """
    values: dict[str, tuple[str, ...]] = {"material": (material_keyword(material),)}
    values |= _chemistry(values["material"][0], chemistry)
    values |= _stress(stress)
    values |= _transport(transport, reactor, reference)
    values["pre_stages/t0"] = _texts("start", "pre_stages/t0", start)
    for path in ("pre_stages/n_pre_stages", "process_stages/n_stages", "post_stages/n_post_stages"):
        values[path] = ("0",)
    for name, value in integration.items():
        if value is not None:
            values[f"integration/{name}"] = _texts(name, f"integration/{name}", value)
    if not isinstance(description, str):
        raise TypeError(f"description must be a text, got {type(description).__name__}")
    if "--" in description or description.strip().endswith("-"):
        raise ValueError("description can't contain --, or end in -, in an XML comment")
    text_of(description, "description", None)  # characters that XML allows
    return recipe_text(values, description)


def check_initial(document: Document, initial: Mapping[str, object]) -> None:
    """Raises ValueError for conditions of the first stage that are invalid, or not used by the transport model."""
    transport = _transport_of(document)
    for condition, value in initial.items():
        if value is not None:
            _check_used(condition, transport)
            _texts(condition, f"{STAGE}/{CONDITIONS[condition]}", value)


def _is_used(condition: str, transport: str) -> bool:
    """True if a transport model reads a condition of stages."""
    special = {each for names in CONDITIONS_OF_TRANSPORT.values() for each in names}
    return condition not in special or condition in CONDITIONS_OF_TRANSPORT[transport]


def _check_used(condition: str, transport: str) -> None:
    if not _is_used(condition, transport):
        raise ValueError(f"{condition} is not used by the transport model {transport}")


def _chemistry(material: str, changes: Mapping[str, Any]) -> dict[str, tuple[str, ...]]:
    vacancies = "vacancy_In" if "In" in material else "vacancy_none"
    values: dict[str, tuple[str, ...]] = {"chemistry/vacancy_model": (vacancies,)}
    values |= {f"chemistry/{name}": texts for name, texts in CONSTANTS.items()}
    for name, change in _mapping(changes, "chemistry", [path.split("/")[1] for path in values]).items():
        path = f"chemistry/{name}"
        known = KNOWN[path]
        if known.kind == "keyword":
            values[path] = _texts(name, path, change)
            continue
        parts = dict(zip(known.attributes, values[path]))
        for part, number in _mapping(change, name, known.attributes).items():
            parts[part] = text_of(number_in(number, f"{name}: {part}", unit_of(known, part)), path, known)
        values[path] = tuple(parts.values())
    return values


def _stress(given: Mapping[str, object]) -> dict[str, tuple[str, ...]]:
    model = given["model"]
    _choice(model, "stress", STRESS_MODELS)
    values: dict[str, tuple[str, ...]] = {"stress/model": (str(model),)}
    defaults = {"cut_angle": 0.2, "V_angle_05": 17, "X_ref": 0.1}
    names = {"cut_angle": "cut_angle", "V_angle_05": "V_angle", "X_ref": "x_ref"}
    for element, default in defaults.items():
        value = given[element]
        if model == "none" and value is not None:
            raise ValueError(f'{names[element]} has an effect only with stress="V_dislocation"')
        if model != "none":
            unit = "degree" if element == "cut_angle" else None
            path = f"stress/{element}"
            values[path] = _texts(names[element], path, default if value is None else value, unit)
    return values


def _transport(model: str, reactor: str | None, reference: Mapping[str, object] | None) -> dict[str, tuple[str, ...]]:
    models = tuple(dict.fromkeys(name.split()[0] for name in CONDITIONS_OF_TRANSPORT))
    _choice(model, "transport", models)
    values: dict[str, tuple[str, ...]] = {"transport/model": (model,)}
    if model != "thick_GaN":
        for name, value in (("reactor", reactor), ("reference", reference)):
            if value is not None:
                raise ValueError(f'{name} has an effect only with transport="thick_GaN"')
        return values
    _choice(reactor, "reactor", KNOWN[f"{REFERENCE}reactor"].keywords)
    values[f"{REFERENCE}reactor"] = (str(reactor),)
    given = dict(_mapping(reference, "reference", REFERENCES))
    flows = [name for name, below in REFERENCES.items() if below.startswith("Q_ref/")]
    given = {flow: 0 for flow in flows if flow not in METALS} | given
    for name, below in REFERENCES.items():
        if name == "rotation" and reactor != "TDR":
            if name in given:
                raise ValueError('reference: rotation has an effect only with reactor="TDR"')
        elif name not in given:
            raise ValueError(f"reference lacks {name}")
        else:
            values[REFERENCE + below] = _texts(f"reference: {name}", REFERENCE + below, given[name])
    if not any(float(values[f"{REFERENCE}Q_ref/{flow}"][0]) > 0.0 for flow in flows if flow not in METALS):
        raise ValueError("reference lacks the flows of NH3 and of the carrier gas, N2 or H2")
    return values


def _choice(value: object, name: str, known: Iterable[str]) -> None:
    if value not in tuple(known):
        near = difflib.get_close_matches(str(value), tuple(known), 1, 0.5)
        hint = f"; did you mean {near[0]}?" if near else ""
        raise ValueError(f"{name} must be one of {', '.join(known)}, got {value!r}{hint}")


def _mapping(given: object, name: str, known: Iterable[str]) -> Mapping[str, Any]:
    """The mapping given, if it has only known keys."""
    if not isinstance(given, Mapping):
        raise TypeError(f"{name} must be a mapping with {', '.join(known)}, got {given!r}")
    for key in given:
        _choice(key, f"a key of {name}", known)
    return given


def _texts(name: str, path: str, value: object, unit: str | None = None) -> tuple[str, ...]:
    """The texts of an element's attributes for a value given by a caller, after a check against its limits.

    name  of the parameter, for messages
    unit  None: that of the table
    """
    known = KNOWN[path]
    if known.kind in ("text", "keyword"):
        if not isinstance(value, str):
            raise TypeError(f"{name} must be a text, got {type(value).__name__}")
        if known.kind == "keyword":
            _choice(value, name, known.keywords)
        return (text_of(value, name, known),)
    parts: tuple[object, ...] = (value,) * len(known.attributes)
    if isinstance(value, (tuple, list)):
        if len(value) != len(known.attributes) or len(value) == 1:
            form = "one value, or two for start and end" if known.kind == "range" else "a single value"
            raise ValueError(f"{name} takes {form}, got {value!r}")
        parts = tuple(value)
    texts = []
    for part in parts:
        number = number_in(part, name, known.unit if unit is None else unit)
        check_limits(number, name, known)
        texts.append(text_of(number, name, known))
    return tuple(texts)


# ---- given layers


@dataclass(frozen=True)
class GivenLayer:
    """A layer that is not simulated, as the arguments of Recipe.template describe it."""

    composition: str
    thickness: object
    dislocations: object
    name: str | None
    lattice: object
    relaxation: object
    fractions: Mapping[str, object]  # by metal
    duration: object
    growth_rate: object


def with_layer(document: Document, group: str, given: GivenLayer) -> tuple[Document, str]:
    """The document with a given layer on those of its group, and the path of its stage."""
    pattern = f"{group}/{tag_of_stage(group, 0)[:-1]}#"
    numbers = {
        metal: None if value is None else float(number_in(value, f"x_{metal.lower()}", "fraction"))
        for metal, value in given.fractions.items()
    }
    found = fractions_of(given.composition, numbers)
    number = count_of_stages(document, group) + 1
    lowest = group == "pre_stages" and number == 1
    layer = given.composition.strip() if given.name is None else given.name
    values = {"name": _texts("name", f"{pattern}/name", layer)}
    values["thickness"] = _texts("thickness", f"{pattern}/thickness", given.thickness)
    duration, growth_rate = given.duration, given.growth_rate
    if growth_rate is None:
        hours = None if duration is None else float(number_in(duration, "duration", "s")) / 3600
        growth_rate = float(f"{float(values['thickness'][0]) / 1000 / hours:.6g}") if hours else GROWTH_RATE
    values["GR_average"] = _texts("growth_rate", f"{pattern}/GR_average", growth_rate)
    if duration is None:
        rate = float(values["GR_average"][0])
        if rate == 0.0:
            raise ValueError("growth_rate must be above 0 if duration is not given")
        duration = float(f"{float(values['thickness'][0]) / 1000 / rate * 3600:.6g}")
    values["tau"] = _texts("duration", f"{pattern}/tau", duration)
    for metal, fraction in found.items():
        values[f"X_{metal}_average"] = _texts(f"x_{metal.lower()}", f"{pattern}/X_{metal}_average", fraction)
    if given.dislocations in (None, "inherited") and lowest:
        raise ValueError("dislocations must be given for the lowest layer: there is none to inherit them from")
    values |= _dislocations(pattern, given.dislocations)
    values["stress_state"], comment = _stress_state(pattern, found, given.lattice, given.relaxation, lowest)
    return _with_stage(document, group, pattern, values, {"stress_state": comment})


def _dislocations(pattern: str, dislocations: object) -> dict[str, tuple[str, ...]]:
    """The elements of a dislocation density; None or "inherited": that of the layer below."""
    if dislocations is None or dislocations == "inherited":
        return {"dislocations/disl_model": ("inherited",)}
    density = _texts("dislocations", f"{pattern}/dislocations/rho_D", dislocations)
    return {"dislocations/disl_model": ("given",), "dislocations/rho_D": density}


def _stress_state(
    pattern: str, fractions: Mapping[str, float], lattice: object, relaxation: object, lowest: bool
) -> tuple[tuple[str, ...], str]:
    """The text of a stress state, which is a lattice constant or a degree of relaxation, and a comment."""
    path = f"{pattern}/stress_state"
    if lattice is not None and relaxation is not None:
        raise ValueError("give either lattice or relaxation")
    if relaxation is not None and lowest:
        raise ValueError("relaxation can't be given for the lowest layer, which has none below it: give lattice")
    if lattice is None and not lowest:
        degree = number_in(0 if relaxation is None else relaxation, "relaxation", "fraction")
        if not 0.0 <= degree <= 1.0:
            raise ValueError(f"relaxation must be 0 to 1, got {degree:g}")
        return _texts("relaxation", path, degree), "degree of relaxation, 0 to 1"
    constant = number_in(lattice_of(fractions) if lattice is None else lattice, "lattice", "angstrom")
    if not 2.5 <= constant <= 4.5:  # nitrides have 3.1 to 3.6
        raise ValueError(f"lattice must be the in-plane lattice constant in angstrom, 2.5 to 4.5, got {constant:g}")
    return _texts("lattice", path, constant), "in-plane lattice constant, angstrom"


# ---- grown layers


def with_growth(
    document: Document,
    name: str,
    duration: object,
    given: Mapping[str, object],
    dislocations: object,
    initial: Mapping[str, object],
    group: str | None,
    periods: int | None,
) -> tuple[Document, str]:
    """The document with a grown stage on the others, and its path. See Recipe.grow.

    given    conditions by their names; None: as at the end of the stage before
    initial  conditions of the first stage that are not given
    group    periodic stage that it belongs to; None: it is a new stage of process_stages
    periods  if not None, that new stage is the first sub-stage of a periodic one, with this number of periods
    """
    transport = _transport_of(document)
    relaxing = (document.attribute("stress/model") or "").lower() == "v_dislocation"
    before = _stages_in_order(document)
    values = {"name": _texts("name", f"{STAGE}/name", name), "tau": _texts("duration", f"{STAGE}/tau", duration)}
    for condition, below in CONDITIONS.items():
        value = given.get(condition)
        if value is not None:
            _check_used(condition, transport)
        if not _is_used(condition, transport):
            continue
        if value is None and not before:
            value = initial.get(condition, 0 if condition in FLOWS else None)
        if value is None and before:
            value = _at_end(document, before, condition)
        if value is None:
            raise ValueError(f"{condition} must be given: no stage before {name!r} states it")
        values[below] = _texts(condition, f"{STAGE}/{below}", value)
    _check_gases(values, transport, first=not before)
    if relaxing and dislocations is not None:
        raise ValueError("dislocations of grown layers follow from those of the template with stress V_dislocation")
    lowest = not before and count_of_stages(document, "pre_stages") == 0
    if lowest and dislocations in (None, "inherited"):
        raise ValueError("the first grown layer needs a layer below it: call template() first")
    if not relaxing:
        values |= _dislocations(STAGE, dislocations)
    document, path = _with_stage(document, group or PROCESS, STAGE, values, {})
    if periods is None:
        return document, path
    document, group = with_periods(document, path, path, periods)
    return document, stages(document, group)[0]


def _check_gases(values: Texts, transport: str, first: bool) -> None:
    """Raises ValueError for flows that can't be computed."""
    highest = {flow: max(map(float, values[CONDITIONS[flow]])) for flow in FLOWS}
    if not any(highest[flow] for flow in FLOWS if flow not in METALS):
        raise ValueError("no gas flows: give NH3 and a carrier gas, N2 or H2")
    if first and transport == "InGaN_GR_X" and not highest["TMGa"] and not highest["TEGa"]:
        raise ValueError("the first stage needs TMGa or TEGa with the transport model InGaN_GR_X")


def _transport_of(document: Document) -> str:
    """A key of CONDITIONS_OF_TRANSPORT."""
    model = document.attribute("transport/model") or ""
    reactor = document.attribute(f"{REFERENCE}reactor") or ""
    for known in CONDITIONS_OF_TRANSPORT:
        if known.lower() in (model.lower(), f"{model} {reactor}".lower()):
            return known
    raise ValueError(f"{document.name}: the transport model {model!r} can't be used to grow a stage")


def _stages_in_order(document: Document) -> list[str]:
    """Paths of the single simulated stages, the sub-stages of a periodic one once."""
    paths = []
    for path in stages(document, PROCESS):
        paths += stages(document, path) if is_periodic(document, path) else [path]
    return paths


def _at_end(document: Document, paths: list[str], condition: str) -> float | None:
    """A condition at the end of the last of several stages; None if it does not state it.

    Of a metal, at the end of the last stage in which any metal flows, if there is one.
    """
    path = paths[-1]
    if condition in METALS:
        path = next((path for path in reversed(paths) if _has_metals(document, path)), path)
    below = CONDITIONS[condition]
    number = leading_number(document.attribute(f"{path}/{below}", KNOWN[f"{STAGE}/{below}"].attributes[-1]))
    if math.isnan(number):
        return None
    return int(number) if number.is_integer() else number


def _has_metals(document: Document, path: str) -> bool:
    return any(
        leading_number(document.attribute(f"{path}/{CONDITIONS[flow]}", attribute)) > 0.0
        for flow in METALS
        for attribute in ("val", "end")
    )


def _with_stage(
    document: Document, group: str, pattern: str, values: Texts, comments: Mapping[str, str]
) -> tuple[Document, str]:
    """The document with a stage at the end of a group, and its path."""
    number = count_of_stages(document, group) + 1
    tag, start = tag_of_stage(group, number), line_start_of_stages(document, group)
    indentation = start.lstrip(b"\r\n").decode()
    lines = layout(stage_lines(pattern, tag, values, comments), indentation, "\t" if "\t" in indentation else "  ")
    text = "\n".join(lines).removeprefix(indentation)
    content = text.encode(encoding_of(document.content), "xmlcharrefreplace")
    if start.startswith(b"\r"):
        content = content.replace(b"\n", b"\r\n")
    return inserted(document, group, number, content), f"{group}/{tag}"

"""The methods of Recipe that build one from nothing or continue a loaded one: new, template, grow, pause, periods, cap.

Numbers are in the units of the recipe file; texts and Quantities of pint may have any unit of the same kind.
"""

from __future__ import annotations

import contextlib
import numbers
from collections.abc import Iterator, Mapping
from dataclasses import dataclass
from typing import Any, Self

from .._base.arguments import with_suggestions
from . import build as _build, stages as _stages
from .document import Document

Number = float | str | Any  # in the recipe's unit; with a unit; or a Quantity
Ramp = Number | tuple[Number, Number]
# Other names of arguments: those of the elements, without their groups, and words.
NAMES = {path.rpartition("/")[2]: name for name, path in _build.CONDITIONS.items()} | {
    "tau": "duration", "time": "duration", "temperature": "T", "temp": "T", "ammonia": "NH3", "nitrogen": "N2", "hydrogen": "H2",
    "omega": "rotation", "rho_D": "dislocations", "density": "dislocations", "a": "lattice", "V_angle_05": "V_angle",
    "xIn": "x_in", "xGa": "x_ga", "xAl": "x_al", "t0": "start", "comment": "description",
}  # fmt: skip
NOTHING = 1e-10  # the lowest prescribed fraction of a metal that the library accepts


@dataclass
class Block:
    """An open block of Recipe.periods."""

    periods: int
    group: str | None = None  # path of its periodic stage


class Building:
    """What Recipe inherits."""

    _document: Document
    _initial: dict[str, object]  # conditions of the first grown stage that it does not state itself
    _block: Block | None

    @classmethod
    @with_suggestions(NAMES)
    def new(
        cls,
        material: str,
        *,
        delta: Number = None,
        pressure: Number = None,
        transport: str = "fixed_thickness",
        reactor: str | None = None,
        reference: Mapping[str, Number] | None = None,
        stress: str = "none",
        V_angle: Number = None,
        x_ref: Number = None,
        cut_angle: Number = None,
        chemistry: Mapping[str, Any] | None = None,
        scheme: str = "staged",
        tolerance: float | None = None,
        start: Number = 0,
        description: str = "",
    ) -> Self:
        """Creates a recipe without layers. template() adds those below, grow() those that are simulated.

        Numbers are in the units given here; texts such as "8 mm" and Quantities of pint may have others.

        Parameters
        ----------
        material : str
            InGaN, AlGaN, AlInN or AlInGaN, with the metals in any order.
        delta : float, str or Quantity, optional
            Thickness of the diffusion layer above the surface [m], for the transport model fixed_thickness. None: the
            first stage must state it.
        pressure : float, str or Quantity, optional
            Pressure [Pa]. None: the first stage must state it.
        transport : str, optional
            Transport model: "fixed_thickness", "thick_GaN" or "InGaN_GR_X".
        reactor : str, optional
            "CCS", "TDR" or "HFR", for thick_GaN.
        reference : mapping, optional
            Reference conditions, for thick_GaN: growth_rate [nm/s], pressure [Pa], T [K], the flows [sccm] TMGa, NH3,
            N2 and H2 (0 if not given), and with TDR rotation [rpm].
        stress : str, optional
            "none": coherent layers; "V_dislocation": relaxation by inclined dislocations and V-defects.
        V_angle : float, str or Quantity, optional
            Inclination of the dislocations [degree], for V_dislocation. None: 17.
        x_ref : float, optional
            Indium fraction at which the shear modulus is evaluated, for V_dislocation. None: 0.1.
        cut_angle : float, str or Quantity, optional
            Cut angle of the substrate [degree], for V_dislocation. None: 0.2. No equation uses it.
        chemistry : mapping, optional
            Kinetic constants that differ from those of the examples: {"Kd_In": {"A": 2e13}}, and "vacancy_model". None:
            those of the examples, with vacancy_In for a material with indium.
        scheme : str, optional
            Integration scheme, "staged" or "continuous".
        tolerance : float, optional
            Relative tolerance of the scheme staged. None: 1e-6.
        start : float, str or Quantity, optional
            Start of the process [s].
        description : str, optional
            First comment of the file. A blank line separates paragraphs.

        Returns
        -------
        Recipe
            The recipe, without a path. It can be run when it has a grown stage.

        Raises
        ------
        ImportError
            If a value has a unit and pint is missing.
        TypeError
            If an argument has another type.
        ValueError
            If a material, model, name or unit is unknown, or a value is outside of its limits.
        """
        text = _build.new_recipe(
            material,
            transport,
            reactor,
            reference if reference is not None or transport != "thick_GaN" else {},
            {"model": stress, "V_angle_05": V_angle, "X_ref": x_ref, "cut_angle": cut_angle},
            {} if chemistry is None else chemistry,
            {"scheme": scheme, "tolerance": tolerance},
            start,
            description,
        )
        recipe = cls(text)  # type: ignore[call-arg]
        _build.check_initial(recipe._document, {"delta": delta, "pressure": pressure})
        recipe._initial = {"delta": delta, "pressure": pressure, "x_in": NOTHING, "x_al": NOTHING}
        return recipe

    @with_suggestions(NAMES)
    def template(
        self,
        composition: str,
        thickness: Number,
        dislocations: Number = None,
        *,
        name: str | None = None,
        lattice: Number = None,
        relaxation: Number = None,
        x_in: Number = None,
        x_ga: Number = None,
        x_al: Number = None,
        duration: Number = None,
        growth_rate: Number = None,
    ) -> str:
        """Adds a layer below the simulated ones, a pre-stage, on top of the pre-stages that are there.

        The layers are given and not simulated. The lattice of the last one is that on which the grown layers grow.

        Parameters
        ----------
        composition : str
            "GaN", "Al0.1Ga0.9N", or "AlGaN" with x_al.
        thickness : float, str or Quantity
            Thickness [nm].
        dislocations : float, str or Quantity, optional
            Dislocation density [cm^-2]. None: that of the layer below; the lowest layer needs a number.
        name : str, optional
            Name of the layer. None: the composition.
        lattice : float, str or Quantity, optional
            In-plane lattice constant [angstrom]. None: that of the relaxed composition in the lowest layer, and the
            one that relaxation gives in others.
        relaxation : float, optional
            Degree of relaxation of a layer that is not the lowest: 0 (as None) keeps the lattice of the layer below, 1
            gives the layer its own.
        x_in, x_ga, x_al : float, optional
            Fractions that the composition does not contain. One metal may be the rest.
        duration : float, str or Quantity, optional
            Duration [s]. None: thickness by growth rate.
        growth_rate : float, str or Quantity, optional
            Growth rate [um/h], which is only printed. None: thickness by duration, or 2 if neither is given.

        Returns
        -------
        str
            Path of the new stage.

        Raises
        ------
        ImportError
            If a value has a unit and pint is missing.
        TypeError
            If an argument has another type.
        ValueError
            If the composition is unknown, a unit does not fit, a value is outside of its limits, or the lowest layer
            has no dislocations.
        """
        layer = _build.GivenLayer(
            composition, thickness, dislocations, name, lattice, relaxation, {"In": x_in, "Ga": x_ga, "Al": x_al},
            duration, growth_rate,
        )  # fmt: skip
        self._document, path = _build.with_layer(self._document, "pre_stages", layer)
        return path

    @with_suggestions(NAMES)
    def cap(
        self,
        composition: str,
        thickness: Number,
        dislocations: Number = None,
        *,
        name: str | None = None,
        lattice: Number = None,
        relaxation: Number = None,
        x_in: Number = None,
        x_ga: Number = None,
        x_al: Number = None,
        duration: Number = None,
        growth_rate: Number = None,
    ) -> str:
        """Adds a given layer above the simulated ones, a post-stage. It is not simulated.

        Parameters
        ----------
        composition, thickness, dislocations, name, lattice, relaxation : see template()
            The lattice and the dislocations that are not given are those of the layer below.
        x_in, x_ga, x_al, duration, growth_rate : see template()
            As there.

        Returns
        -------
        str
            Path of the new stage.

        Raises
        ------
        ImportError
            If a value has a unit and pint is missing.
        TypeError
            If an argument has another type.
        ValueError
            As in template().
        """
        layer = _build.GivenLayer(
            composition, thickness, dislocations, name, lattice, relaxation, {"In": x_in, "Ga": x_ga, "Al": x_al},
            duration, growth_rate,
        )  # fmt: skip
        self._document, path = _build.with_layer(self._document, "post_stages", layer)
        return path

    @with_suggestions(NAMES)
    def grow(
        self,
        name: str,
        duration: Number,
        *,
        T: Ramp = None,
        pressure: Ramp = None,
        TMIn: Ramp = None,
        TMGa: Ramp = None,
        TEGa: Ramp = None,
        TMAl: Ramp = None,
        N2: Ramp = None,
        NH3: Ramp = None,
        H2: Ramp = None,
        delta: Number = None,
        rotation: Ramp = None,
        growth_rate: Number = None,
        x_in: Number = None,
        x_al: Number = None,
        dislocations: Ramp = None,
    ) -> str:
        """Adds a simulated stage on top of the others.

        A condition that is not given stays as it was at the end of the stage before. Flows that were never given are 0.
        A stage without metals is a pause: after it the metals flow again as before, unless other flows are given.
        A single value holds during the stage, a pair (start, end) is a linear ramp.

        Parameters
        ----------
        name : str
            Name of the layer.
        duration : float, str or Quantity
            Duration [s].
        T : float, str, Quantity or pair, optional
            Temperature of the surface [K].
        pressure : float, str, Quantity or pair, optional
            Pressure [Pa].
        TMIn, TMGa, TEGa, TMAl : float, str, Quantity or pair, optional
            Flows of the metal sources [sccm]. 1 umol/min is 0.022414 sccm.
        N2, NH3, H2 : float, str, Quantity or pair, optional
            Flows of nitrogen, ammonia and hydrogen [sccm].
        delta : float, str or Quantity, optional
            Thickness of the diffusion layer [m], for the transport model fixed_thickness.
        rotation : float, str, Quantity or pair, optional
            Rotation rate [rpm], for thick_GaN with the reactor TDR.
        growth_rate : float, str or Quantity, optional
            Prescribed growth rate [nm/s], for InGaN_GR_X.
        x_in, x_al : float, optional
            Prescribed fractions, for InGaN_GR_X. If they were never given, they are 1e-10, the least that is allowed.
        dislocations : float, str, Quantity or pair, optional
            Dislocation density [cm^-2]. None: that at the end of the layer below. Not with the stress model
            V_dislocation, from which it follows.

        Returns
        -------
        str
            Path of the new stage.

        Raises
        ------
        ImportError
            If a value has a unit and pint is missing.
        TypeError
            If an argument has another type.
        ValueError
            If a unit does not fit, a value is outside of its limits or not used by the transport model, or a condition
            is missing in the first stage.
        """
        given = {
            "T": T, "pressure": pressure, "TMIn": TMIn, "TMGa": TMGa, "TEGa": TEGa, "TMAl": TMAl, "N2": N2, "NH3": NH3,
            "H2": H2, "delta": delta, "rotation": rotation, "growth_rate": growth_rate, "x_in": x_in, "x_al": x_al,
        }  # fmt: skip
        return self._add_grown(name, duration, given, dislocations)

    @with_suggestions(NAMES)
    def pause(
        self,
        duration: Number,
        name: str = "pause",
        *,
        T: Ramp = None,
        pressure: Ramp = None,
        N2: Ramp = None,
        NH3: Ramp = None,
        H2: Ramp = None,
        delta: Number = None,
        rotation: Ramp = None,
    ) -> str:
        """Adds a simulated stage without metals, such as heating, cooling or a change of the carrier gas.

        The metals of the next stage are those before the pause, unless it gives others. All else stays as in the pause.

        Parameters
        ----------
        duration : float, str or Quantity
            Duration [s].
        name : str, optional
            Name of the stage.
        T, pressure, N2, NH3, H2, delta, rotation : float, str, Quantity or pair, optional
            Conditions as in grow(). What is not given stays as it was.

        Returns
        -------
        str
            Path of the new stage.

        Raises
        ------
        ImportError
            If a value has a unit and pint is missing.
        TypeError
            If an argument has another type.
        ValueError
            As in grow().
        """
        given = {"T": T, "pressure": pressure, "N2": N2, "NH3": NH3, "H2": H2, "delta": delta, "rotation": rotation}
        return self._add_grown(name, duration, given | dict.fromkeys(_build.METALS, 0), None)

    def _add_grown(self, name: str, duration: Number, given: Mapping[str, object], dislocations: Ramp) -> str:
        block = self._block
        group = None if block is None else block.group
        if block is not None and group is not None:
            self._check_block(group)
        first = block.periods if block is not None and group is None else None
        self._document, path = _build.with_growth(
            self._document, name, duration, given, dislocations, self._initial, group, first
        )
        if block is not None:
            block.group = path.rpartition("/")[0]
        return path

    def _check_block(self, group: str) -> None:
        """Raises ValueError if the periodic stage of the open block is not the last stage any more."""
        last = _stages.stages(self._document, _stages.PROCESS)[-1:]
        if last != [group] or not _stages.is_periodic(self._document, group):
            raise ValueError(f"the block of periods() grows {group}, but stages of process_stages were changed in it")

    @contextlib.contextmanager
    def periods(self, count: int) -> Iterator[None]:
        """Makes the stages grown in a with block a periodic stage: `with recipe.periods(5): recipe.grow(...)`.

        The first stage of the block continues from the stage before the block, also where a period follows another one:
        each period has the same stages. If the block ends in an error, the recipe is as it was before the block.

        Parameters
        ----------
        count : int
            How often the stages are grown, at least 1.

        Returns
        -------
        context manager
            For a with statement.

        Raises
        ------
        ValueError
            If count is not a positive integer, the block is in another one, or nothing was grown in it.
        """
        if isinstance(count, bool) or not isinstance(count, numbers.Integral) or count < 1:
            raise ValueError(f"periods must be a positive integer, got {count!r}")
        if self._block is not None:
            raise ValueError("periods can't be nested: a periodic stage can't contain another periodic stage")
        before, self._block = self._document, Block(int(count))
        try:
            yield
            if self._block.group is None:
                raise ValueError("nothing was grown in the block of periods()")
            self._check_block(self._block.group)
        except BaseException:
            self._document = before
            raise
        finally:
            self._block = None

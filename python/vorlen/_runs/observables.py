"""The methods of Run for what an in-situ sensor or a luminescence setup measures."""

from __future__ import annotations

from abc import abstractmethod
from collections.abc import Mapping
from pathlib import Path
from typing import Any

import pandas as pd

from .._observe.bands import ROOM_TEMPERATURE
from .._observe.curvature import curvature
from .._observe.curve import Curve
from .._observe.emission import emission_table, settings_of
from .._observe.reflectance import reflectance
from .._observe.slices import slices_of
from .diffraction import Diffraction
from .drawn import DrawnTables
from .emitters import emitters_of


class Observables(Diffraction):
    """What can be measured on a wafer, during growth and after it."""

    @property
    @abstractmethod
    def _profile(self) -> pd.DataFrame:
        """All rows."""

    @property
    @abstractmethod
    def _layers(self) -> pd.DataFrame:
        """One row per layer."""

    @property
    @abstractmethod
    def _name(self) -> str:
        """The run in messages."""

    @property
    @abstractmethod
    def _timeline(self) -> pd.DataFrame | None:
        """The timeline of the recipe; None if it is unknown or would not run."""

    @property
    @abstractmethod
    def _own_files(self) -> list[Path | None]:
        """Files that no figure may replace."""

    @property
    @abstractmethod
    def _drawn(self) -> DrawnTables:
        """The tables for figures."""

    def emission(
        self,
        *,
        temperature: Any = ROOM_TEMPERATURE,
        screening: Any = 0.0,
        field: Any = None,
        constants: Mapping[str, Any] | None = None,
    ) -> pd.DataFrame:
        """The wavelength at which each well emits: a coarse guide, explained in docs/emission.md. Needs scipy.

        Parameters
        ----------
        temperature : float, str or Quantity, optional
            Temperature of the wells, K.
        screening : float, optional
            Share of the field of the polarisation that carriers and dopants screen, 0 to 1. 0 is right for undoped
            wells at low excitation.
        field : float, str or Quantity, optional
            Electric field in the wells, MV/cm, negative towards the substrate; screening has no effect on it. None:
            that of the polarisation.
        constants : dict, optional
            Constants that replace built-in ones, such as {"bowing_in_ga": 1.7}: a number, or a pair of number and
            standard deviation. The names are those of the table in docs/emission.md.

        Returns
        -------
        pandas.DataFrame
            One row per well, numbered from 1 from the bottom up. In a structure without wells, one row per simulated
            layer with indium or, without indium, per simulated layer, all as bulk. attrs["units"] and attrs["meanings"]
            describe the columns, attrs["notes"] lists what is neglected or screened. Values that are undefined are NaN,
            and the column note has the reason.

        Raises
        ------
        ImportError
            If scipy is missing, or pint for a text with a unit.
        TypeError
            If an argument has another type.
        ValueError
            If an argument is out of its range, or a constant is unknown.
        """
        settings = settings_of(temperature, field, screening, constants)
        emitters = emitters_of(self._layers, self._drawn.reference_height)
        return emission_table(slices_of(self._profile, self._layers), emitters, settings)

    def curvature(
        self,
        substrate: str = "sapphire",
        thickness: float | str = "430 um",
        *,
        gradient: float | str = 0.0,
        span: str = "active",
    ) -> Curve:
        """Curvature of the wafer over time, as an in-situ sensor shows it: that of an elastic plate of layers.

        Lattice mismatch comes from the strain of what has grown, thermal expansion from the temperatures of the recipe:
        the thermal part is zero at the temperature at which the simulated stages start. Formulas, constants and what is
        neglected: docs/curvature.md.

        Parameters
        ----------
        substrate : str, optional
            "sapphire", "4H-SiC", "6H-SiC", "Si(111)", "GaN" or "AlN", all with the film on the c plane or (111). A
            first pre-stage of 100 um or more of GaN or AlN is the substrate instead, with its thickness.
        thickness : float or str, optional
            Thickness of the substrate, 10 um to 100 mm: a number in um, or a text with a unit.
        gradient : float or str, optional
            Temperature gradient through the wafer when the simulated stages start, K/mm, positive when the back is
            hotter. It follows the temperature above 300 K. In K/mm, or a text with a unit.
        span : str, optional
            "active": the simulated layers; the curvature is zero at their start. "all": from the bare, flat substrate
            on, with pre-stages and post-stages.

        Returns
        -------
        Curve
            Kind "curvature". Columns time [s]; curvature, mismatch, thermal [1/km], positive when the wafer is concave
            seen from the film: the sum and its parts. thermal is NaN, and not in the sum, if the recipe is unknown.
            settings holds the arguments: run.curvature(**curve.settings) repeats the curve.

        Raises
        ------
        ImportError
            If a text with a unit needs pint and it is missing.
        TypeError
            If an argument has another type.
        ValueError
            If a unit does not fit, the thickness is out of its range, the substrate or span is unknown, or the run has
            no rows.
        """
        return curvature(
            self._profile, self._timeline, self._name, self._own_files,
            substrate=substrate, thickness=thickness, gradient=gradient, span=span,
        )  # fmt: skip

    def reflectance(
        self,
        wavelength: float | str = "405 nm",
        *,
        substrate: str = "sapphire",
        thickness: float | str = "430 um",
        back: str = "rough",
        temperature: float | str | None = None,
        span: str = "active",
    ) -> Curve:
        """Reflectance of the wafer over time at normal incidence, as an in-situ sensor shows it.

        The film, pre-stages included, is a stack of thin layers on the substrate. Formulas, optical constants and what
        is neglected: docs/reflectance.md.

        Parameters
        ----------
        wavelength : float or str, optional
            Wavelength in vacuum, 350 to 1000 nm: a number in nm, or a text with a unit.
        substrate : str, optional
            As for curvature().
        thickness : float or str, optional
            Thickness of the substrate, in um or with a unit. Matters for an absorbing one with a polished back.
        back : str, optional
            "rough": what crosses the substrate is lost. "polished": the back reflects, without interference.
        temperature : float or str, optional
            Temperature of the optical constants, in K or with a unit. None: that of the process, from the recipe, or
            300 K if it is unknown.
        span : str, optional
            "active": the simulated layers; "all": pre-stages and post-stages too, from the bare substrate on.

        Returns
        -------
        Curve
            Kind "reflectance". Columns time [s] and reflectance [1], the reflected share of the light. The points are
            close enough for the fringes, more than those of profile. settings holds the arguments, as for curvature().

        Raises
        ------
        ImportError
            If a text with a unit needs pint and it is missing.
        TypeError
            If an argument has another type.
        ValueError
            If a unit does not fit, a number is out of its range, substrate, back or span is unknown, or the run has no
            rows.
        """
        return reflectance(
            self._profile, self._timeline, self._name, self._own_files,
            wavelength=wavelength, substrate=substrate, thickness=thickness, back=back, temperature=temperature,
            span=span,
        )  # fmt: skip


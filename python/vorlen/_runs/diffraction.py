"""The methods of Run for X-ray diffraction."""

from __future__ import annotations

from abc import ABC, abstractmethod
from collections.abc import Sequence
from typing import TYPE_CHECKING

import pandas as pd

from .._base.types import PathLike
from .._observe.curve import Curve
from .._observe.reciprocal import layer_peaks, plot_peaks
from .._observe.xrd import Stack, xrd_curve

if TYPE_CHECKING:
    from matplotlib.figure import Figure


class Diffraction(ABC):
    """What X-rays see of the finished structure."""

    @property
    @abstractmethod
    def _stack(self) -> Stack:
        """The finished structure. Raises ValueError if the run failed."""

    def xrd(
        self,
        hkl: Sequence[int] = (0, 0, 2),
        energy: float | str = "CuKa1",
        *,
        two_theta: Sequence[float] | None = None,
        points: int | None = None,
        resolution: float | str = 12.0,
        background: float = 0.0,
        reference: int | str | None = None,
        template: str = "infinite",
        geometry: str = "grazing exit",
        polarization: str = "both",
        monochromator: float = 1.0,
    ) -> Curve:
        """The X-ray diffraction curve of the finished structure, by dynamical theory. Needs xrayutilities.

        A scan of the angle of incidence with an open detector; of planes parallel to the surface, an omega-2theta scan.
        Strain and composition are those of the columns (z), the lattice constants are the model's.

        Parameters
        ----------
        hkl : tuple of int, optional
            Miller indices, three or four: (0, 0, 2), (1, 0, 5), (1, 0, -1, 5).
        energy : float or str, optional
            An X-ray line (CuKa1, CuKa2, CuKa12, CuKb, MoKa1, CoKa1, CoKa2), a photon energy in eV or with a unit, or a
            wavelength with a unit ("1.5406 angstrom").
        two_theta : pair or array of float, optional
            Both ends of the range, or three or more angles at which the curve is computed, deg. None: around the peaks
            of all layers.
        points : int, optional
            Number of points, at equal distances of omega. None: 2001, or five per fringe of the film.
        resolution : float or str, optional
            Full width at half maximum of a Gaussian that the curve is convoluted with, in omega: the divergence of the
            beam, in arcsec or with a unit.
        background : float, optional
            Intensity to add, per that of the incident beam.
        reference : int or str, optional
            Number or name of the template. None: the thickest pre-stage, or the thickest layer if no pre-stage has
            300 nm.
        template : str, optional
            "infinite": the template has no lower end, and layers below it are left out; "finite": all layers are
            there, on a substrate that does not scatter.
        geometry : str, optional
            "grazing exit" or "grazing incidence": which beam is flatter if the planes are inclined to the surface.
        polarization : str, optional
            "S" (normal to the plane of diffraction), "P" or "both".
        monochromator : float, optional
            For "both", the intensity of P in the incident beam per that of S: 1 without a monochromator, |cos 2theta_M|
            for each reflection of a perfect crystal.

        Returns
        -------
        Curve
            Columns two_theta [deg], intensity (per that of the incident beam) and omega [deg]. settings holds the
            arguments: run.xrd(**curve.settings) repeats the curve. peaks has positions by Bragg's law: layers, and
            satellites of repeated layers, named SL0, SL+1, SL-1 and so on.

        Raises
        ------
        ImportError
            If xrayutilities is missing.
        TypeError
            If an argument has another type.
        ValueError
            If the run failed or nothing has grown; if the reflection is forbidden or can't be reached; if an argument
            is unknown or out of range; if the structure needs too many slices.
        """
        return xrd_curve(
            self._stack, hkl, energy, two_theta, points, resolution, background, reference, template, geometry,
            polarization, monochromator,
        )

    def reciprocal_space(self, hkl: Sequence[int] = (1, 0, 5), *, reference: int | str | None = None) -> pd.DataFrame:
        """Positions of the peaks of all layers in a reciprocal-space map.

        Parameters
        ----------
        hkl : tuple of int, optional
            Miller indices, three or four.
        reference : int or str, optional
            Number or name of the layer on which the degree of relaxation is 0 for coherent layers. None: the thickest
            pre-stage, or the thickest layer if no pre-stage has 300 nm.

        Returns
        -------
        pandas.DataFrame
            One row per layer of which something is left, with its number as index and its mean values: qx and qz
            [1/angstrom, with the factor 2 pi], thickness, composition, lattice constants of the strained crystal, and
            relaxation, (a - a_ref) / (a_0 - a_ref) with the unstrained a_0; NaN below the reference layer and where the
            unstrained layer fits. attrs["units"] and attrs["meanings"] describe the columns.

        Raises
        ------
        TypeError
            If an argument has another type.
        ValueError
            If the run failed or nothing has grown; if the reflection is forbidden; if the reference is unknown.
        """
        return layer_peaks(self._stack, hkl, reference).table

    def plot_reciprocal_space(
        self, hkl: Sequence[int] = (1, 0, 5), *, reference: int | str | None = None, path: PathLike | None = None
    ) -> Figure:
        """Draws reciprocal_space() with the lines of coherent and of relaxed layers. Needs matplotlib.

        A dotted line joins the coherent and the relaxed position of each layer.

        Parameters
        ----------
        hkl : tuple of int, optional
            Miller indices, three or four, of planes that are inclined to the surface.
        reference : int or str, optional
            As for reciprocal_space().
        path : path, optional
            File to save the figure to, in the format of its ending (.pdf, .svg, .png, ...), with text as text. None: it
            is not saved.

        Returns
        -------
        matplotlib.figure.Figure
            The figure, open in pyplot.

        Raises
        ------
        ImportError
            If matplotlib is missing.
        OSError
            If the file can't be written.
        TypeError
            If an argument has another type.
        ValueError
            As for reciprocal_space(); if the planes are parallel to the surface; if path has no ending of a format, is
            a file of the run or not a regular file.
        """
        return plot_peaks(self._stack, hkl, reference, path)

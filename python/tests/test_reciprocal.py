"""Reciprocal-space maps: positions of peaks and degrees of relaxation, calculated manually, and their figure."""

from __future__ import annotations

import math
from pathlib import Path

import matplotlib

matplotlib.use("Agg")

import matplotlib.pyplot as plt
import numpy as np
import pytest

import vorlen
from support import result, row, table_of

# GaN of 2000 nm, and on it three times 20 nm of In0.10Ga0.90N: coherent, relaxed by half, and relaxed. docs/physics.md,
# section 6: a = 3.2241, coherent eps_xx = -0.0108868 and eps_zz = 0.0057346; c = 0.9 5.185 + 0.1 5.705 = 5.237.
A_GAN, A_INGAN, C_INGAN = 3.189, 3.2241, 5.237
ROWS = [row(False, time=t, z=z, x_ga=1.0, a_eff_z=A_GAN) for t, z in ((0, 0), (1, 2000))]
for number, share in enumerate((0.0, 0.5, 1.0)):
    a = A_GAN + share * (A_INGAN - A_GAN)
    eps_zz = 0.0057346 * (1 - share)
    values = dict(x_in=0.1, x_ga=0.9, a_eff_z=a, eps_xx_z=a / A_INGAN - 1, eps_zz_z=eps_zz)
    ROWS += [row(time=number + t, z=2000 + 20 * (number + t - 1), **values) for t in (1, 2)]
RUN = vorlen.Run(result([("GaN", 1, 2000), ("a", 1, 20), ("b", 1, 20), ("c", 1, 20)], ROWS).encode())


def test_positions_are_those_of_the_lattice() -> None:
    # 105: qx = 4 pi / (sqrt(3) a), qz = 10 pi / c
    table = RUN.reciprocal_space()
    assert table.index.tolist() == [1, 2, 3, 4] and table["name"].tolist() == ["GaN", "a", "b", "c"]
    lengths = [A_GAN, A_GAN, (A_GAN + A_INGAN) / 2, A_INGAN]
    assert table["qx"].to_numpy() == pytest.approx([4 * math.pi / math.sqrt(3) / a for a in lengths], rel=1e-12)
    heights = [5.185, C_INGAN * 1.0057346, C_INGAN * 1.0028673, C_INGAN]
    assert table["qz"].to_numpy() == pytest.approx([10 * math.pi / c for c in heights], rel=1e-9)
    assert table["x_in"].to_numpy() == pytest.approx([0, 0.1, 0.1, 0.1])
    assert table["thickness"].to_numpy() == pytest.approx([2000, 20, 20, 20])


def test_the_lengths_of_gan_002_and_105() -> None:
    # 2 pi / 2.5925 = 2.42360; d(100) = 2.76176, 2 pi / 2.76176 = 2.27507; 2 pi 5 / 5.185 = 6.05900
    first, second = RUN.reciprocal_space((0, 0, 2)).loc[1], RUN.reciprocal_space((1, 0, -1, 5)).loc[1]
    assert (first["qx"], first["qz"]) == (0.0, pytest.approx(2.42360, abs=1e-5))
    assert (second["qx"], second["qz"]) == pytest.approx((2.27507, 6.05900), abs=1e-5)


def test_planes_of_other_zones_have_their_length_in_the_surface() -> None:
    # a b axes at 60 deg in reciprocal space: |h k| = sqrt(h^2 + h k + k^2); of 11l sqrt(3) times that of 10l
    inclined = RUN.reciprocal_space((1, 1, 4))["qx"] / RUN.reciprocal_space((1, 0, 4))["qx"]
    assert inclined.to_numpy() == pytest.approx(math.sqrt(3))


def test_degrees_of_relaxation() -> None:
    assert RUN.reciprocal_space()["relaxation"].to_numpy() == pytest.approx([np.nan, 0, 0.5, 1], nan_ok=True, abs=1e-9)
    # On the relaxed layer, layers below it have none, and it fits itself.
    on_top = RUN.reciprocal_space(reference="c")["relaxation"].to_numpy()
    assert np.isnan(on_top).all()


def test_a_layer_of_which_nothing_is_left_has_no_row() -> None:
    rows = [row(time=t, z=z, x_ga=1.0, a_eff_z=3.189) for t, z in ((0, 0), (1, 10), (2, 12), (3, 9))]
    run = vorlen.Run(result([("GaN", 1, 10), ("lost", 1, 2), ("pause", 1, -3)], rows).encode())
    assert run.reciprocal_space()["name"].tolist() == ["GaN"]


def test_names_units_and_meanings_of_the_columns_are_those_of_the_manual() -> None:
    columns = table_of("xrd.md", "| column | unit | meaning |")
    table = RUN.reciprocal_space()
    assert [[name, table.attrs["units"][name], table.attrs["meanings"][name]] for name in table] == columns


def test_the_figure_has_the_layers_and_the_lines_of_coherence_and_relaxation(tmp_path: Path) -> None:
    (axes,) = RUN.plot_reciprocal_space(path=tmp_path / "map.svg").axes
    lines = {line.get_label(): line.get_xydata() for line in axes.get_lines()}
    table = RUN.reciprocal_space()
    coherent, relaxed = lines["coherent"], lines["relaxed InGaN"]
    assert coherent[:, 0] == pytest.approx(table["qx"][2]) and "relaxed AlGaN" not in lines
    # The line of relaxation passes through GaN and through the relaxed layer.
    assert relaxed[0] == pytest.approx(table.loc[1, ["qx", "qz"]].to_numpy(float))
    assert np.interp(-table["qx"][4], -relaxed[:, 0], relaxed[:, 1]) == pytest.approx(table["qz"][4], abs=1e-5)
    # The dotted line of an alloy joins its coherent and its relaxed position, to the digits of docs/physics.md.
    dotted = [line.get_xydata() for line in axes.get_lines() if line.get_linestyle() == ":"]
    expected = table.loc[[2, 4], ["qx", "qz"]].to_numpy(float)
    assert any(np.allclose(path, expected, rtol=1e-6) for path in dotted)
    assert {"GaN", "a", "b", "c"} <= {text.get_text() for text in axes.texts}
    assert "In" in (tmp_path / "map.svg").read_text()
    plt.close("all")


def test_a_figure_of_planes_parallel_to_the_surface_is_an_error(tmp_path: Path) -> None:
    with pytest.raises(ValueError, match="002 shows no relaxation"):
        RUN.plot_reciprocal_space((0, 0, 2))
    path = tmp_path / "run.txt"
    path.write_bytes(RUN.content)
    with pytest.raises(ValueError, match="which is an input"):
        vorlen.read(path).plot_reciprocal_space(path=path)
    with pytest.raises(ValueError, match="001 is forbidden"):
        RUN.reciprocal_space((0, 0, 1))
    assert plt.get_fignums() == []

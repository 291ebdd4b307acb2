"""Adds the chart library of the reports to the package; everything else is in pyproject.toml."""

import subprocess
import sys
from pathlib import Path

from setuptools import setup
from setuptools.command.build_py import build_py


class BuildWithCharts(build_py):
    """Without the packages that the chart library is made from, everything but reports is installed."""

    def run(self) -> None:
        super().run()
        if getattr(self, "editable_mode", False):
            return  # the package stays in the source tree and finds the chart library of its build
        script = Path(__file__).resolve().with_name("chart_library.py")
        output = Path(self.build_lib, "vorlen", "assets", "plotly.min.js")
        if subprocess.run([sys.executable, "-B", str(script), str(output)], check=False).returncode != 0:
            self.warn("vorlen is installed without reports, see above")


setup(cmdclass={"build_py": BuildWithCharts})

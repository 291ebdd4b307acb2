"""Adds the library, the tool and the chart library of the reports to the package; the rest is in pyproject.toml."""

import shutil
import sys
from pathlib import Path

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py

try:
    from setuptools.command.bdist_wheel import bdist_wheel
except ImportError:  # setuptools before 70.1
    from wheel.bdist_wheel import bdist_wheel

sys.path.insert(0, str(Path(__file__).resolve().parent))

from build_wheel import native  # noqa: E402  # needs the path above
from build_wheel.platform_tag import platform_tag  # noqa: E402


class BinaryDistribution(Distribution):
    """A package for one platform, also though it has no extension modules."""

    def has_ext_modules(self) -> bool:
        return True


class BuildWithPrograms(build_py):
    def run(self) -> None:
        if getattr(self, "editable_mode", False):
            super().run()
            return  # the package stays in the source tree and finds library, tool and charts of its build
        shutil.rmtree(self.build_lib, ignore_errors=True)  # files of an earlier build
        super().run()
        files = native.package_files(native.installation())
        for name, source in files.items():
            place = Path(self.build_lib, "vorlen", name)
            place.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(source, place)
        if "assets/plotly.min.js" not in files:
            self.warn("vorlen is installed without reports: they need the Debian packages python3-plotly and esbuild")


class PlatformWheel(bdist_wheel):
    """A wheel for any Python 3 on the platform of its library and tool."""

    def get_tag(self) -> tuple[str, str, str]:
        package = Path(self.get_finalized_command("build_py").build_lib, "vorlen", "_native")
        programs = [file for folder in ("lib", "bin") for file in sorted((package / folder).glob("*"))]
        return "py3", "none", platform_tag(programs) if programs else "any"


folder = native.BUILD / "python"
folder.mkdir(parents=True, exist_ok=True)
setup(
    distclass=BinaryDistribution,
    cmdclass={"build_py": BuildWithPrograms, "bdist_wheel": PlatformWheel},
    options={"build": {"build_base": str(folder)}, "egg_info": {"egg_base": str(folder)}},
)

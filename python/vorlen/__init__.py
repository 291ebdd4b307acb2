"""VorlenSolver in Python: simulate the growth of III-nitride layers, inspect the results, sweep and fit.

    import vorlen

    run = vorlen.run("mqw.xml")
    run.layers                      # a pandas data frame, one row per layer
    run.plot()                      # a matplotlib figure
    vorlen.report(run, "run.html")  # one page that can be mailed

Some functions have the names of their modules, so all modules are imported here. matplotlib, jinja2 and other optional
packages are imported when they are first used.
"""

from ._library import LibraryNotFoundError
from ._version import __version__
from ._fit import fit, plot_fit
from ._recipe import Recipe, RecipeError
from ._report import report
from ._result_file import ResultFileError
from ._run import Run, SimulationError, read
from ._simulate import run
from ._sensitivity import sensitivity, tornado
from ._sweep import sweep, write_plan

__all__ = [
    "LibraryNotFoundError",
    "Recipe",
    "RecipeError",
    "ResultFileError",
    "Run",
    "SimulationError",
    "__version__",
    "fit",
    "plot_fit",
    "read",
    "report",
    "run",
    "sensitivity",
    "sweep",
    "tornado",
    "write_plan",
]

"""VorlenSolver in Python: simulate the growth of III-nitride layers, inspect the results, sweep and fit.

    import vorlen

    run = vorlen.run("mqw.xml")
    run.layers                      # a pandas data frame, one row per layer
    run.plot()                      # a matplotlib figure
    vorlen.report(run, "run.html")  # one page that can be mailed

matplotlib, jinja2 and other optional packages are imported when they are first used.
"""

from . import _interrupts  # first: a command that is interrupted during the other imports ends without a traceback
from ._compare import compare
from ._design import Design, design
from ._files import BusyError
from ._fit import Fit, fit
from ._library import LibraryNotFoundError
from ._map import ProcessMap, process_map
from ._plan import PlanError
from ._plan_file import write_plan
from ._plot_runs import plot
from ._recipe import Recipe
from ._recipe_check import RecipeWarning, check
from ._report import report
from ._result_file import ResultFileError
from ._run import Run, SimulationError, read
from ._sensitivity import sensitivity, tornado
from ._simulate import run
from ._sweep import Sweep, read_sweep, sweep
from ._version import __version__
from ._window import Window, window
from ._xml_bytes import RecipeError

__all__ = [
    "BusyError",
    "Design",
    "Fit",
    "LibraryNotFoundError",
    "PlanError",
    "ProcessMap",
    "Recipe",
    "RecipeError",
    "RecipeWarning",
    "ResultFileError",
    "Run",
    "SimulationError",
    "Sweep",
    "Window",
    "__version__",
    "check",
    "compare",
    "design",
    "fit",
    "plot",
    "process_map",
    "read",
    "read_sweep",
    "report",
    "run",
    "sensitivity",
    "sweep",
    "tornado",
    "window",
    "write_plan",
]

"""VorlenSolver in Python: simulate the growth of III-nitride layers, inspect the results, sweep and fit.

    import vorlen

    run = vorlen.run("mqw.xml")
    run.layers                      # a pandas data frame, one row per layer
    run.plot()                      # a matplotlib figure
    vorlen.report(run, "run.html")  # one page that can be mailed

matplotlib, jinja2 and other optional packages are imported when they are first used.
"""

# First: a command that is interrupted during the other imports ends without a traceback.
from ._base import interrupts as _interrupts
from ._base.files import BusyError
from ._base.library import LibraryNotFoundError
from ._base.version import __version__
from ._design.design import Design, DesignInterrupted, design
from ._design.map import ProcessMap, process_map
from ._design.window import Window, window
from ._fit.fit import Fit, fit
from ._observe import measured
from ._observe.curve import Curve
from ._pages.compare import compare, deviations
from ._pages.report import report
from ._recipe.check import RecipeWarning, check
from ._recipe.recipe import Recipe
from ._recipe.xml_bytes import RecipeError
from ._runs.plot_runs import plot
from ._runs.result_file import ResultFileError
from ._runs.run import Run, SimulationError, read
from ._runs.simulate import run
from ._sweep.plan import PlanError
from ._sweep.plan_file import write_plan
from ._sweep.sensitivity import sensitivity, tornado
from ._sweep.sweep import Sweep, read_sweep, sweep

__all__ = [
    "BusyError",
    "Curve",
    "Design",
    "DesignInterrupted",
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
    "deviations",
    "fit",
    "measured",
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

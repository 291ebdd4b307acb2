"""VorlenSolver in Python: simulate the growth of III-nitride layers, look at what grew, sweep and fit.

    import vorlen

    run = vorlen.run("mqw.xml")
    run.layers                      # a pandas data frame, one row per layer
    run.plot()                      # a matplotlib figure
    vorlen.report(run, "run.html")  # one page that can be mailed

Functions have the names of the modules they stand in, so modules are imported here and now; matplotlib, plotly and the
like only when they are used.
"""

from ._library import LibraryNotFoundError
from ._version import __version__
from .fit import fit, plot_fit
from .recipe import Recipe, RecipeError
from .report import report
from .result_file import ResultFileError
from .run import Run, SimulationError, read, run
from .sensitivity import sensitivity, tornado
from .sweep import sweep, write_plan

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

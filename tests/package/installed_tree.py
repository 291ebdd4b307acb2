"""An installation of the build in a temporary folder, for the tests of what is installed."""
import os
import subprocess
import tempfile
import unittest

# Paths and flags from the caller's environment would hide a missing file or a mistake.
ENVIRONMENT = {name: value for name, value in os.environ.items()
               if name not in ("LD_LIBRARY_PATH", "PKG_CONFIG_PATH", "CMAKE_PREFIX_PATH", "DESTDIR")}


def run(*command, **environment):
    """Runs a command. The result has returncode, stdout and stderr (as text)."""
    return subprocess.run(command, env={**ENVIRONMENT, **environment}, capture_output=True, encoding="utf-8",
                          check=False)


class InstalledTree(unittest.TestCase):
    """Attributes: folder, a temporary one; prefix, of the installation; libraries, its folder of libraries."""

    component = None  # the one that is installed; None: all

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = folder.name
        first = os.path.join(cls.folder, "first")
        options = [] if cls.component is None else ["--component", cls.component]
        done = run(os.environ["VORLEN_CMAKE"], "--install", os.environ["VORLEN_BUILD"], *options, "--prefix", first)
        assert done.returncode == 0, done.stdout + done.stderr
        # Moved after the installation, to a name with a blank: no file may depend on the original place.
        cls.prefix = os.path.join(cls.folder, "moved here")
        os.rename(first, cls.prefix)
        cls.libraries = os.path.join(cls.prefix, os.environ["VORLEN_LIBDIR"])

    def succeed(self, *command, **environment):
        done = run(*command, **environment)
        self.assertEqual(done.returncode, 0, f"{command}\n{done.stdout}\n{done.stderr}")
        return done.stdout

"""An installation into an empty folder is complete, may be moved, and is found by CMake and by pkg-config."""
import os
import re
import shlex
import shutil
import unittest

from installed_tree import InstalledTree, run

BUILD = os.environ["VORLEN_BUILD"]
SOURCE = os.environ["VORLEN_SOURCE"]
VERSION = os.environ["VORLEN_VERSION"]
SOVERSION = os.environ["VORLEN_SOVERSION"]
LIBDIR = os.environ["VORLEN_LIBDIR"]
TOOL = os.environ["VORLEN_TOOL"]
CHART_LIBRARY = os.environ["VORLEN_CHART_LIBRARY"]  # its file name; empty when the build has none
LIVE_PAGE = os.environ["VORLEN_LIVE_PAGE"]  # likewise
CMAKE = os.environ["VORLEN_CMAKE"]
CONSUMER = os.path.join(SOURCE, "tests", "package", "consumer")
RECIPE = os.path.join(SOURCE, "examples", "algan_gan_hemt.xml")


class Installation(InstalledTree):
    def check_host(self, program):
        """With a recipe it writes a result; without one it prints the message of the library."""
        result = os.path.join(self.folder, os.path.basename(program) + ".txt")
        environment = {"LD_LIBRARY_PATH": self.libraries}
        self.assertEqual(self.succeed(program, RECIPE, result, **environment), "grown\n")
        with open(result, encoding="utf-8") as file:
            self.assertEqual(file.readline(), '"VORLEN output file, version 2.0"\n')
        done = run(program, "none.xml", result, **environment)
        self.assertEqual((done.returncode, done.stderr), (1, "Error reading file none.xml\nFailed to open file\n"))

    def test_the_files_are_there(self):
        expected = ["include/vorlen_solver.h", f"{LIBDIR}/libVorlenSolver.so",
                    f"{LIBDIR}/libVorlenSolver.so.{SOVERSION}", f"{LIBDIR}/pkgconfig/vorlensolver.pc",
                    f"{LIBDIR}/cmake/VorlenSolver/VorlenSolverConfig.cmake",
                    f"{LIBDIR}/cmake/VorlenSolver/VorlenSolverConfigVersion.cmake"]
        if TOOL:
            expected += ["bin/vorlen", "share/man/man1/vorlen.1", "share/bash-completion/completions/vorlen",
                         "share/vorlen/recipe.rng"]
            # The whole Python package, including the assets of its reports.
            tree = os.path.join(SOURCE, "python")
            for folder, _, names in os.walk(os.path.join(tree, "vorlen")):
                if os.path.basename(folder) != "__pycache__":
                    expected += [os.path.join("lib/python3/dist-packages", os.path.relpath(folder, tree), name)
                                 for name in names]
            if LIVE_PAGE:
                expected.append("share/vorlen/" + LIVE_PAGE)
            if CHART_LIBRARY:
                expected.append("lib/python3/dist-packages/vorlen/assets/" + CHART_LIBRARY)
        for name in expected:
            self.assertTrue(os.path.isfile(os.path.join(self.prefix, name)), name)
        self.assertEqual(os.readlink(os.path.join(self.libraries, "libVorlenSolver.so")),
                         f"libVorlenSolver.so.{SOVERSION}")

    def test_no_text_file_names_a_place_of_the_build(self):
        for folder, _, names in os.walk(self.prefix):
            for name in names:
                if name.endswith((".cmake", ".pc", ".h", ".py")):
                    with open(os.path.join(folder, name), encoding="utf-8") as file:
                        text = file.read()
                    for place in (BUILD, SOURCE, os.path.join(self.folder, "first")):
                        self.assertNotIn(place, text, name)

    def test_a_c_and_a_cpp_program_by_find_package(self):
        build = os.path.join(self.folder, "by_cmake")
        self.succeed(CMAKE, "-S", CONSUMER, "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}",
                     "-DCMAKE_BUILD_TYPE=Release", f"-DCMAKE_C_COMPILER={os.environ['VORLEN_CC']}",
                     f"-DCMAKE_CXX_COMPILER={os.environ['VORLEN_CXX']}",
                     f"-DCMAKE_C_FLAGS={os.environ['VORLEN_CFLAGS']}",
                     f"-DCMAKE_CXX_FLAGS={os.environ['VORLEN_CXXFLAGS']}")
        self.succeed(CMAKE, "--build", build)
        self.check_host(os.path.join(build, "host_c"))
        self.check_host(os.path.join(build, "host_cpp"))

    def test_another_major_version_is_not_taken(self):
        done = run(CMAKE, "-S", CONSUMER, "-B", os.path.join(self.folder, "other_version"),
                   f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DWANTED_VERSION={int(VERSION.split('.')[0]) + 1}")
        self.assertNotEqual(done.returncode, 0)
        self.assertRegex(done.stderr, r"compatible\s+with\s+requested\s+version")

    @unittest.skipUnless(shutil.which("pkg-config"), "no pkg-config")
    def test_a_c_and_a_cpp_program_by_pkg_config(self):
        environment = {"PKG_CONFIG_PATH": os.path.join(self.libraries, "pkgconfig")}
        self.assertEqual(self.succeed("pkg-config", "--modversion", "vorlensolver", **environment), VERSION + "\n")
        flags = shlex.split(self.succeed("pkg-config", "--cflags", "--libs", "vorlensolver", **environment))
        self.assertIn("-lVorlenSolver", flags)
        for compiler, more, source in (("VORLEN_CC", "VORLEN_CFLAGS", "host.c"),
                                       ("VORLEN_CXX", "VORLEN_CXXFLAGS", "host.cpp")):
            program = os.path.join(self.folder, "by_pkg_config_" + source.replace(".", "_"))
            self.succeed(os.environ[compiler], *shlex.split(os.environ[more]), os.path.join(CONSUMER, source), *flags,
                         "-o", program)
            self.check_host(program)

    @unittest.skipUnless(TOOL, "built without the tool")
    def test_the_tool_finds_its_library(self):
        tool = os.path.join(self.prefix, "bin", "vorlen")
        self.assertTrue(re.fullmatch(r"vorlen \d+\.\d+\.\d+\n", self.succeed(tool, "--version")))
        result = os.path.join(self.folder, "tool.txt")
        self.assertIn("GaN channel", self.succeed(tool, "run", RECIPE, "-o", result))
        self.assertTrue(os.path.getsize(result) > 0)
        if LIVE_PAGE:
            page = os.path.join(self.folder, "page.html")
            self.assertEqual(self.succeed(tool, "live", RECIPE, "-o", page), page + "\n")


if __name__ == "__main__":
    unittest.main()

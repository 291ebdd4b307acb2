"""The component `development` alone is enough to build a program with the integrator, by CMake and by pkg-config."""
import os
import shlex
import shutil
import unittest

from installed_tree import InstalledTree, run

SOURCE = os.environ["VORLEN_SOURCE"]
VERSION = os.environ["VORLEN_VERSION"]
LIBDIR = os.environ["VORLEN_LIBDIR"]
CMAKE = os.environ["VORLEN_CMAKE"]
COMPILER = os.environ["VORLEN_CXX"]
FLAGS = os.environ["VORLEN_CXXFLAGS"]
CONSUMER = os.path.join(SOURCE, "tests", "package", "radau_consumer")
EXPECTED_OUTPUT = "reached the end: 0.367879 0.232544\n"  # exp(-1) and exp(-1) - exp(-2)


class RadauInstallation(InstalledTree):
    component = "development"

    def configure(self, name, *options):
        return run(CMAKE, "-S", CONSUMER, "-B", os.path.join(self.folder, name), f"-DCMAKE_PREFIX_PATH={self.prefix}",
                   "-DCMAKE_BUILD_TYPE=Release", f"-DCMAKE_CXX_COMPILER={COMPILER}", f"-DCMAKE_CXX_FLAGS={FLAGS}",
                   *options)

    def test_the_files_are_there(self):
        for name in ("include/vorlen_radau.h", f"{LIBDIR}/libvorlen_radau.a", f"{LIBDIR}/pkgconfig/vorlen_radau.pc",
                     f"{LIBDIR}/cmake/vorlen_radau/vorlen_radauConfig.cmake",
                     f"{LIBDIR}/cmake/vorlen_radau/vorlen_radauConfigVersion.cmake"):
            self.assertTrue(os.path.isfile(os.path.join(self.prefix, name)), name)

    def test_a_program_by_find_package(self):
        done = self.configure("by_cmake")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.succeed(CMAKE, "--build", os.path.join(self.folder, "by_cmake"))
        self.assertEqual(self.succeed(os.path.join(self.folder, "by_cmake", "decay")), EXPECTED_OUTPUT)

    def test_another_major_version_is_not_found(self):
        done = self.configure("other_version", f"-DWANTED_VERSION={int(VERSION.split('.')[0]) + 1}")
        self.assertNotEqual(done.returncode, 0)
        self.assertRegex(done.stderr, r"compatible\s+with\s+requested\s+version")

    @unittest.skipUnless(shutil.which("pkg-config"), "no pkg-config")
    def test_a_program_by_pkg_config(self):
        environment = {"PKG_CONFIG_PATH": os.path.join(self.libraries, "pkgconfig")}
        self.assertEqual(self.succeed("pkg-config", "--modversion", "vorlen_radau", **environment), VERSION + "\n")
        flags = shlex.split(self.succeed("pkg-config", "--cflags", "--libs", "vorlen_radau", **environment))
        program = os.path.join(self.folder, "by_pkg_config")
        self.succeed(COMPILER, *shlex.split(FLAGS), "-std=c++17", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                     os.path.join(CONSUMER, "decay.cpp"), *flags, "-o", program)
        self.assertEqual(self.succeed(program), EXPECTED_OUTPUT)

    def test_the_library_needs_nothing_else_of_the_tree(self):
        """Linking all its object files leaves no symbol of the namespace undefined."""
        archive = os.path.join(self.libraries, "libvorlen_radau.a")
        program = os.path.join(self.folder, "whole_archive")
        self.succeed(COMPILER, *shlex.split(FLAGS), "-std=c++17", os.path.join(CONSUMER, "decay.cpp"),
                     f"-I{self.prefix}/include", "-Wl,--whole-archive", archive, "-Wl,--no-whole-archive", "-o", program)
        self.assertEqual(self.succeed(program), EXPECTED_OUTPUT)


if __name__ == "__main__":
    unittest.main()

"""VorlenSolver.dll: what it exports and imports, a host that loads it, and hosts that are linked with it."""
import os
import re
import shutil
import subprocess
import unittest

from support import CC, DLL, HEADER_FOLDER, LLD_LINK, RECIPE, InAFolder, run, wine

OBJDUMP = os.environ["VORLEN_OBJDUMP"]
DLL_HOST = os.environ["VORLEN_DLL_HOST"]
BUILT = os.path.dirname(DLL)

HOST = """
#include "vorlen_solver.h"

int main(void) {
  static char text[VORLEN_ERROR_BUFFER_SIZE] = "untouched";
  if (runSurfChem("recipe.xml", "result.txt", text) != 0 || text[0] != 'u') return 1;
  if (runSurfChem("missing.xml", "", text) != 1 || text[0] != 'E') return 2;
  return 0;
}
"""


class Library(InAFolder):
    def setUp(self):
        super().setUp()
        self.headers = run(OBJDUMP, "-p", DLL, cwd=self.folder)

    def test_it_exports_one_undecorated_name(self):
        table = self.headers.split("[Ordinal/Name Pointer] Table")[1].split("\n\n")[0]
        self.assertEqual(re.findall(r"\[ *\d+\] (\S+)", table), ["runSurfChem"])
        self.assertIn("VorlenSolver.dll", self.headers.split("The Export Tables")[1].split("Ordinal Base")[0])

    def test_it_needs_only_libraries_of_windows(self):
        libraries = {name.lower() for name in re.findall(r"DLL Name: (\S+)", self.headers)}
        self.assertEqual(libraries, {"kernel32.dll", "msvcrt.dll"})

    # exp, log and pow are in the library, so they do not change with the version of Windows.
    def test_of_the_functions_of_mathematics_windows_has_only_tanh(self):
        imported = set(re.findall(r"^\t[0-9a-f]+\t *\d+ +(\S+)$", self.headers, re.MULTILINE))
        self.assertIn("malloc", imported)
        mathematics = {"exp", "log", "log10", "log1p", "pow", "sqrt", "sin", "cos", "tan", "tanh", "sinh", "cosh"}
        self.assertEqual(imported & mathematics, {"tanh"})

    def test_a_host_that_loads_it(self):
        wine(DLL_HOST, DLL, RECIPE, "new", cwd=self.folder)

    def run_host(self):
        shutil.copy(DLL, self.folder)
        shutil.copy(RECIPE, self.path("recipe.xml"))
        wine("host.exe", cwd=self.folder)
        self.assertIn(b'"GaN channel"', self.read("result.txt"))

    def test_a_host_that_is_linked_by_mingw(self):
        run(CC, self.write_host(), "-I", HEADER_FOLDER, "-L", BUILT, "-lVorlenSolver", "-o", "host.exe", cwd=self.folder)
        self.run_host()

    # The object file and the linking are those of Microsoft's tools, by clang and lld. Its C library is not needed.
    @unittest.skipUnless(LLD_LINK and shutil.which("clang-19"), "needs clang-19 and lld-link")
    def test_a_host_that_is_linked_like_one_of_microsofts_compiler(self):
        run("clang-19", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-Wall", "-Werror", "-c", self.write_host(),
            "-I", HEADER_FOLDER, "-o", "host.obj", cwd=self.folder)
        run(LLD_LINK, "host.obj", os.path.join(BUILT, "VorlenSolver.lib"), "/entry:main", "/nodefaultlib",
            "/subsystem:console", "/out:host.exe", cwd=self.folder)
        self.run_host()

    def test_the_function_is_imported_not_called_by_a_detour(self):
        text = run(CC, "-E", self.write_host(), "-I", HEADER_FOLDER, cwd=self.folder)
        self.assertRegex(text, r"dllimport.*int32_t runSurfChem")

    def test_a_wrong_host_is_noticed(self):
        shutil.copy(DLL, self.folder)
        run(CC, self.write_host(), "-I", HEADER_FOLDER, "-L", BUILT, "-lVorlenSolver", "-o", "host.exe", cwd=self.folder)
        with self.assertRaises(AssertionError):
            wine("host.exe", cwd=self.folder, stdin=subprocess.DEVNULL)  # without a recipe

    def write_host(self):
        return self.write("host.c", HOST)


if __name__ == "__main__":
    unittest.main()

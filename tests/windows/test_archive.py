"""The archive: its files, and programs that run from it, in a folder whose name is not ASCII."""
import os
import re
import shutil
import unittest
import zipfile

from support import BUILD, CC, RECIPE, SOURCE, InAFolder, blocks, run, wine

VERSION = os.environ["VORLEN_VERSION"]
NAME = f"VorlenSolver-{VERSION}-windows-x86_64"
# Part of the archive if it has been built.
LIVE_PAGE = os.path.join(SOURCE, "build", "release", "wasi", "live", "live.html")
RECIPES = sorted(name for name in os.listdir(os.path.join(SOURCE, "examples")) if name.endswith(".xml"))


class Archive(InAFolder):
    def setUp(self):
        super().setUp()
        self.printed = run("cpack", "--config", os.path.join(BUILD, "CPackConfig.cmake"), "-B", self.path("packed"),
                           cwd=self.folder)
        with zipfile.ZipFile(self.path("packed", NAME + ".zip")) as archive:
            self.names = {name for name in archive.namelist() if not name.endswith("/")}
            archive.extractall(self.path("Züchtung 日本"))
        self.unpacked = self.path("Züchtung 日本", NAME)

    def test_it(self):
        with self.subTest("files"):
            self.check_files()
        with self.subTest("first run"):
            self.check_first_run()
        with self.subTest("C"):
            self.check_host_in_C()

    def check_files(self):
        expected = {"README.txt", "VorlenSolver.dll", "vorlen.exe", "recipe.rng", "include/vorlen_solver.h",
                    "lib/libVorlenSolver.dll.a", "lib/VorlenSolver.lib", "licences/CLI11.txt", "licences/fast_float.txt",
                    "licences/fmt.txt", "licences/GCC runtime.txt", "licences/MinGW-w64 runtime.txt",
                    "licences/nlohmann-json.txt", "licences/TinyXML.txt"} | {f"examples/{name}" for name in RECIPES}
        if os.path.exists(LIVE_PAGE):
            expected.add("live.html")
        self.assertEqual("No live.html in the archive" in self.printed, not os.path.exists(LIVE_PAGE))
        self.assertEqual(self.names, {f"{NAME}/{name}" for name in expected})
        self.assertIn(b"GCC Runtime Library Exception", self.unpacked_file("licences", "GCC runtime.txt"))
        readme = self.unpacked_file("README.txt")
        self.assertNotRegex(readme, rb"(?<!\r)\n")
        # Each file that it lists exists.
        for name in re.findall(r"^  (\S+\.\S+) {2,}", readme.decode(), re.MULTILINE):
            if "*" in name:
                name = name.split("\\")[0]
            if name != "live.html":
                self.assertTrue(os.path.exists(os.path.join(self.unpacked, *name.split("\\"))), name)

    def check_first_run(self):
        with open(os.path.join(SOURCE, "docs", "windows.md"), encoding="utf-8") as file:
            page = file.read()
        commands = re.findall(r"^  (\.\\vorlen\.exe .*)\r$", self.unpacked_file("README.txt").decode(), re.MULTILINE)
        self.assertEqual(len(commands), 2)
        for command in commands:
            self.assertIn(f"\n{command}\n", page)
            text = wine(*command.replace(".\\", "").split(), cwd=self.unpacked)
        self.assertIn("GaN", text)
        if os.path.exists(LIVE_PAGE):
            wine("vorlen.exe", "live", "examples\\ingan_gan_mqw.xml", "-o", "wells.html", cwd=self.unpacked)
            self.assertIn(b'"ingan_gan_mqw.xml"', self.unpacked_file("wells.html"))

    def check_host_in_C(self):
        [source] = blocks("windows.md", "c")
        [command] = blocks("windows.md", "sh")
        with open(os.path.join(self.unpacked, "host.c"), "w", encoding="utf-8") as file:
            file.write(source)
        compiler, *options = command.split()
        self.assertIn(compiler, CC + "-posix")
        run(CC, "-Wall", "-Wextra", "-Werror", *options, cwd=self.unpacked)
        shutil.copy(RECIPE, os.path.join(self.unpacked, "Rezept 日本.xml"))
        wine("host.exe", "Rezept 日本.xml", "Ergebnis 日本.txt", cwd=self.unpacked)
        self.assertIn(b'"GaN channel"', self.unpacked_file("Ergebnis 日本.txt"))
        with self.assertRaisesRegex(AssertionError, "status 1\r?\nError reading file 日本\\.xml\r?\n"):
            wine("host.exe", "日本.xml", "", cwd=self.unpacked)

    def unpacked_file(self, *names):
        with open(os.path.join(self.unpacked, *names), "rb") as file:
            return file.read()


if __name__ == "__main__":
    unittest.main()

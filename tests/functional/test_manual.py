"""The manual builds without warnings, its links have targets, and its console sessions and programs run as shown.

A block `console` is a session in a folder that contains `examples`: lines that start with "$ " are run by bash, the others
are the expected output (stdout and stderr), where "..." matches anything. The programs on the page about embedding are
built against an installation.
"""
import doctest
import html.parser
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.parse

from support import EXAMPLES_FOLDER, SOURCE, VORLEN

DOCS = pathlib.Path(SOURCE, "docs")
PAGES = sorted(DOCS.glob("*.md"))
# Commands in blocks `sh`, which are not run here. A block of other commands has its reason in a comment above it.
NOT_RUN = {
    "./run.sh": "tests/package/test_run_script.py runs it",
    "gnuplot": "a program of the reader's",
    "x86_64-w64-mingw32-gcc": "tests/windows/test_archive.py runs it",
    "c++": "needs an installation; tests/package builds such a program",
}
# Their blocks are run by the tests of the Python package.
PYTHON_PAGES = ("python.md", "recipes-in-python.md", "gallery.md", "sweeps.md", "clusters.md", "fitting.md",
                "designing.md", "designing-an-led.md")
FLAGS = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE


def blocks(page, language):
    return re.findall(rf"^```{language}\n(.*?)^```$", page.read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)


def blocks_without_reason(page):
    """The blocks `sh` of a page that no comment <!-- not run: REASON --> precedes."""
    found = re.findall(r"^(<!-- not run: [^\n]+ -->\n)?```sh\n(.*?)^```$", page.read_text(encoding="utf-8"),
                       re.MULTILINE | re.DOTALL)
    return [text for reason, text in found if not reason]


def sessions(text):
    """[(command, output)] of a block `console`; a backslash continues a command on the next line."""
    found = []
    for line in text.splitlines():
        if line.startswith("$ "):
            found.append([line[2:], ""])
        elif line.startswith("> ") and found[-1][0].endswith("\\"):
            found[-1][0] += "\n" + line[2:]
        else:
            found[-1][1] += line + "\n"
    return found


class Links(html.parser.HTMLParser):
    """Collects the anchors of a page and the targets of its links and pictures."""

    def __init__(self, path):
        super().__init__()
        self.anchors = set()
        self.targets = []
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        self.anchors.update(attributes[key] for key in ("id", "name") if attributes.get(key))
        self.targets += [attributes[key] for key in ("href", "src") if attributes.get(key)]


class Folder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def run_in_folder(self, command, **environment):
        return subprocess.run(command, cwd=self.folder, env={**os.environ, **environment}, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, encoding="utf-8", check=False)


class Manual(Folder):
    def test_it_builds_without_warnings_and_its_links_have_targets(self):
        site = self.folder / "site"
        run = self.run_in_folder(["mkdocs", "build", "--strict", "-f", os.path.join(SOURCE, "mkdocs.yml"), "-d", site])
        self.assertEqual(run.returncode, 0, run.stdout)
        pages = {path: Links(path) for path in site.rglob("*.html")
                 if path.name not in ("404.html", "live_page.html")}
        self.assertEqual(len(pages), len(PAGES))
        checked = 0
        for path, links in pages.items():
            for target in links.targets:
                url = urllib.parse.urlparse(target)
                if url.scheme or url.netloc:
                    continue
                place = (path.parent / urllib.parse.unquote(url.path)).resolve() if url.path else path
                self.assertTrue(place.exists(), f"{path.name}: {target}")
                if url.fragment and place in pages:
                    self.assertIn(urllib.parse.unquote(url.fragment), pages[place].anchors, f"{path.name}: {target}")
                checked += 1
        self.assertGreater(checked, 20 * len(PAGES))

    def test_sessions_run_as_shown(self):
        shown = 0
        tool_folder = os.path.dirname(VORLEN)
        for page in PAGES:
            with self.subTest(page=page.name), tempfile.TemporaryDirectory() as folder:
                self.folder = pathlib.Path(folder)
                (self.folder / "examples").symlink_to(EXAMPLES_FOLDER)
                for command, expected in [s for block in blocks(page, "console") for s in sessions(block)]:
                    run = self.run_in_folder(["bash", "-c", command], LC_ALL="C.UTF-8",
                                             PATH=f"{tool_folder}:{os.environ['PATH']}")
                    self.assertTrue(doctest.OutputChecker().check_output(expected, run.stdout, FLAGS),
                                    f"$ {command}\n{run.stdout}\nexpected:\n{expected}")
                    shown += 1
        self.assertGreater(shown, 20)

    def test_each_block_that_is_not_run_has_a_reason(self):
        for page in PAGES:
            if page.name in (*PYTHON_PAGES, "embedding.md"):
                continue
            for line in "".join(blocks_without_reason(page)).splitlines():
                self.assertIn(line.split()[0], NOT_RUN, f"{page.name}: {line}")


class Embedding(Folder):
    PAGE = DOCS / "embedding.md"

    @classmethod
    def setUpClass(cls):
        cls.installation = tempfile.TemporaryDirectory()
        build = pathlib.Path(VORLEN).parents[1]
        subprocess.run(["cmake", "--install", build, "--prefix", cls.installation.name], check=True,
                       stdout=subprocess.DEVNULL)
        (package,) = pathlib.Path(cls.installation.name).rglob("vorlensolver.pc")
        cls.library_folder = str(package.parents[1])
        cls.environment = {"PKG_CONFIG_PATH": str(package.parent), "LD_LIBRARY_PATH": cls.library_folder}

    @classmethod
    def tearDownClass(cls):
        cls.installation.cleanup()

    def block(self, language):
        (text,) = blocks(self.PAGE, language)
        return text

    def check_host(self, program, *results):
        """The host ends with status 0 for a recipe, and with 1 and the library's message for a missing file."""
        recipe = self.folder / "recipe.xml"
        shutil.copy(os.path.join(EXAMPLES_FOLDER, "algan_gan_hemt.xml"), recipe)
        run = self.run_in_folder([program, "recipe.xml", *results], **self.environment)
        self.assertEqual((run.returncode, run.stdout), (0, ""))
        self.assertTrue((self.folder / (results[0] if results else "recipe.xml.result.txt")).stat().st_size > 1000)
        run = self.run_in_folder([program, "missing.xml", *results], **self.environment)
        self.assertEqual(run.returncode, 1)
        self.assertIn("Error reading file missing.xml\nFailed to open file", run.stdout)

    def test_the_c_program_by_pkg_config(self):
        (self.folder / "host.c").write_text(self.block("c"), encoding="utf-8")
        run = self.run_in_folder(["bash", "-c", self.block("sh")], **self.environment)
        self.assertEqual((run.returncode, run.stdout), (0, ""))
        self.check_host("./host", "result.txt")

    def test_the_c_program_by_cmake(self):
        (self.folder / "host.c").write_text(self.block("c"), encoding="utf-8")
        (self.folder / "CMakeLists.txt").write_text(self.block("cmake"), encoding="utf-8")
        for command in (["cmake", "-B", "build", f"-DCMAKE_PREFIX_PATH={self.installation.name}"],
                        ["cmake", "--build", "build"]):
            run = self.run_in_folder(command)
            self.assertEqual(run.returncode, 0, run.stdout)
        self.check_host("build/host", "result.txt")

    def test_the_threads_of_the_cpp_program(self):
        (self.folder / "host.cpp").write_text(self.block("cpp"), encoding="utf-8")
        flags = self.run_in_folder(["pkg-config", "--cflags", "--libs", "vorlensolver"], **self.environment).stdout
        run = self.run_in_folder(["c++", "-std=c++17", "-Wall", "-Wextra", "-Werror", "-pthread", "host.cpp",
                                  *shlex.split(flags), "-o", "host"])
        self.assertEqual((run.returncode, run.stdout), (0, ""))
        self.check_host("./host")


if __name__ == "__main__":
    if os.environ["VORLEN_PRELOAD"]:
        print("the manual is tested with the release build")
        sys.exit(0)
    unittest.main()

"""The wheel and the source archive: what pip builds from them without a network works in an empty environment."""

from __future__ import annotations

import os
import re
import shutil
import signal
import struct
import subprocess
import sys
import tarfile
import zipfile
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

import vorlen
from support import MQW, PLAIN_LAYER, ROOT, tool

sys.path.insert(0, str(ROOT / "python"))

from build_wheel import native, platform_tag  # noqa: E402
from build_wheel.platform_tag import Needs  # noqa: E402

PACKAGE_VARIABLES = ("PYTHONPATH", "VORLEN", "VORLEN_LIBRARY", "VORLEN_PYTHON", "CMAKE_ARGS", "VORLEN_WHEEL_PREFIX")
PYTHON = "/usr/bin/python3" if Path("/usr/bin/python3").exists() else sys.executable


def environment(**variables: str) -> dict[str, str]:
    """That of the caller without what leads to other builds of the library, the tool or the package."""
    return {name: value for name, value in os.environ.items() if name not in PACKAGE_VARIABLES} | variables


def succeed(*command: str | Path, folder: Path, **variables: str) -> str:
    done = subprocess.run(
        command, cwd=folder, env=environment(**variables), capture_output=True, text=True, check=False
    )
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def pip(python: Path | str, *arguments: str | Path, folder: Path, **variables: str) -> str:
    command = [python, "-m", "pip", "--disable-pip-version-check", *arguments]
    return succeed(*command, folder=folder, **variables)


def new_environment(folder: Path) -> Path:
    """Creates a virtual environment, which sees numpy and pandas of the system, and returns its interpreter."""
    succeed(sys.executable, "-m", "venv", "--system-site-packages", "--without-pip", folder, folder=folder.parent)
    return folder / "bin" / "python"


def files_below(folder: Path) -> set[str]:
    return {str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir()}


@pytest.fixture(scope="module")
def folder(tmp_path_factory: pytest.TempPathFactory) -> Path:
    return tmp_path_factory.mktemp("wheel")


@pytest.fixture(scope="module")
def wheel(folder: Path) -> Path:
    """The wheel built from the source tree. With ccache, its object files are those of the release build."""
    pip(PYTHON, "wheel", "--no-deps", "--no-index", "-w", folder / "wheel", ROOT / "python", folder=folder)
    return next((folder / "wheel").glob("*.whl"))


@pytest.fixture(scope="module")
def installed(folder: Path, wheel: Path) -> Path:
    """The interpreter of an environment with the wheel, in a folder with blanks and letters beyond ASCII."""
    python = new_environment(folder / "umgebung für vorlen")
    pip(python, "install", "--no-index", wheel, folder=folder)
    return python


def command_of(python: Path) -> Path:
    return python.parent / "vorlen"


def versions_in(text: str, name: str) -> list[tuple[int, ...]]:
    return [tuple(map(int, each.split("."))) for each in re.findall(rf"\b{name}_([\d.]+)\b", text)]


def test_the_tag_of_the_wheel_covers_what_library_and_tool_need(wheel: Path, tmp_path: Path) -> None:
    tag = re.fullmatch(rf"vorlen-{vorlen.__version__}-py3-none-manylinux_2_(\d+)_{os.uname().machine}\.whl", wheel.name)
    assert tag is not None, wheel.name
    with zipfile.ZipFile(wheel) as archive:
        archive.extractall(tmp_path)
    symbols = libraries = ""
    for file in ("lib/libVorlenSolver.so.1", "bin/vorlen"):
        path = tmp_path / "vorlen" / "_native" / file
        symbols += succeed("objdump", "-T", path, folder=tmp_path)
        libraries += succeed("objdump", "-p", path, folder=tmp_path)
    needed = set(re.findall(r"NEEDED +(\S+)", libraries))
    assert "libc.so.6" in needed
    assert needed <= {"libc.so.6", "libm.so.6", "libgcc_s.so.1", "libstdc++.so.6", "ld-linux-x86-64.so.2"}
    glibc, runtime = max(versions_in(symbols, "GLIBC")), max(versions_in(symbols, "GLIBCXX"))
    # PEP 600: not newer than the tag. Systems with glibc 2.34 have the libstdc++ of GCC 11, with GLIBCXX_3.4.29.
    assert glibc[:2] <= (2, int(tag[1]))
    assert runtime <= ((3, 4, 29) if int(tag[1]) == 34 else (3, 4, 30))
    assert int(tag[1]) == max(glibc[1], 34 if runtime == (3, 4, 29) else 0)  # and not stricter than that


@pytest.mark.parametrize(
    ("versions", "libraries", "glibc"),
    [
        ({"GLIBC_2.2.5", "GLIBC_2.14"}, {"libc.so.6", "libm.so.6"}, (2, 17)),  # the oldest tag
        ({"GLIBC_2.29", "GLIBC_2.9"}, {"libm.so.6"}, (2, 29)),  # compared as numbers
        ({"GLIBC_2.17", "GLIBCXX_3.4.30"}, {"libstdc++.so.6"}, (2, 35)),  # GCC 12
        ({"GLIBC_2.17", "CXXABI_1.3.13"}, {"libstdc++.so.6"}, (2, 34)),  # GCC 11
        ({"GLIBC_2.17", "GCC_3.0"}, {"libgcc_s.so.1"}, (2, 17)),
        ({"GLIBC_2.17", "GLIBC_ABI_DT_RELR"}, {"libc.so.6"}, (2, 36)),  # relative relocations, of the loader of 2.36
        ({"GLIBC_2.17", "GLIBCXX_3.4.99"}, {"libstdc++.so.6"}, None),
        ({"GLIBC_PRIVATE"}, {"libc.so.6"}, None),
        ({"GLIBC_2.17"}, {"libc.so.6", "libfmt.so.9"}, None),
        ({"NETTLE_8"}, {"libc.so.6"}, None),
    ],
)
def test_the_oldest_glibc_that_is_enough(
    versions: set[str], libraries: set[str], glibc: tuple[int, int] | None
) -> None:
    plain = Needs("Advanced Micro Devices X86-64", frozenset({"libc.so.6"}), frozenset({"GLIBC_2.2.5"}))
    needs = Needs(plain.machine, frozenset(libraries), frozenset(versions))
    assert platform_tag.glibc_for([plain, needs]) == glibc


def test_a_program_that_needs_more_gets_the_tag_of_the_machine_alone(tmp_path: Path) -> None:
    (tmp_path / "other.c").write_text("int other(void) { return 0; }\n")
    (tmp_path / "main.c").write_text("int other(void);\nint main(void) { return other(); }\n")
    succeed("cc", "-shared", "-fPIC", "-o", "libother.so.1", "-Wl,-soname,libother.so.1", "other.c", folder=tmp_path)
    succeed("cc", "-o", "main", "main.c", "libother.so.1", folder=tmp_path)
    assert platform_tag.platform_tag([tmp_path / "main"]) == f"linux_{os.uname().machine}"


def test_the_installed_package_uses_nothing_but_its_own_files(installed: Path, folder: Path, tmp_path: Path) -> None:
    program = """import sys, vorlen
    from vorlen._base import library, tool
    run = vorlen.run(sys.argv[1], "python.txt")
    vorlen.report(run, "python.html")
    problems = len(vorlen.check(run.recipe))
    print(vorlen.__version__, vorlen.__file__, library.find_library(), tool.find_tool(), problems, sep="|")
    """.replace("\n    ", "\n")
    version, *places, problems = succeed(installed, "-c", program, MQW, folder=tmp_path).strip().split("|")
    assert version == vorlen.__version__ and int(problems) == 0
    site = installed.parents[1] / "lib"
    assert all(place.startswith(str(site)) for place in places) and len(places) == 3
    assert "plotly.js v" in (tmp_path / "python.html").read_text("utf-8")
    vorlen.run(MQW, tmp_path / "build.txt")
    assert (tmp_path / "python.txt").read_bytes() == (tmp_path / "build.txt").read_bytes()


def test_the_command_runs_the_tool_and_the_commands_in_python(installed: Path, tmp_path: Path) -> None:
    command = command_of(installed)
    shutil.copy(PLAIN_LAYER, tmp_path / "schicht ä.xml")
    assert succeed(command, "--version", folder=tmp_path) == f"vorlen {vorlen.__version__}\n"
    succeed(command, "check", "schicht ä.xml", folder=tmp_path)
    succeed(command, "run", "schicht ä.xml", folder=tmp_path)
    vorlen.run(PLAIN_LAYER, tmp_path / "build.txt")
    assert (tmp_path / "schicht ä.result.txt").read_bytes() == (tmp_path / "build.txt").read_bytes()
    recipe = ("--recipe", "schicht ä.xml")
    succeed(command, "report", "schicht ä.result.txt", *recipe, "-o", "page.html", folder=tmp_path)
    assert "plotly.js v" in (tmp_path / "page.html").read_text("utf-8")
    native_files = files_below(next(installed.parents[1].glob("lib/python*/site-packages/vorlen/_native")))
    if "share/vorlen/live.html" in native_files:  # the compiler for WebAssembly is there
        assert succeed(command, "live", "schicht ä.xml", folder=tmp_path) == "schicht ä.live.html\n"
    assert {f"licences/{name}.txt" for name in ("nettle", "fmt", "tinyxml")} <= native_files
    assert "share/vorlen/recipe.rng" in native_files


@pytest.mark.parametrize(
    "arguments", [[], ["--help"], ["check", "none.xml"], ["nonsense"], ["run", b"\xff\n \"'$x.xml"], ["new", ""]]
)
def test_the_command_passes_arguments_and_status(arguments: list[str | bytes], installed: Path, tmp_path: Path) -> None:
    def outcome(program: str | Path) -> tuple[int, bytes, bytes]:
        done = subprocess.run([program, *arguments], cwd=tmp_path, env=environment(), capture_output=True, check=False)
        return done.returncode, done.stdout, done.stderr

    assert outcome(command_of(installed)) == outcome(tool())


def test_the_command_leaves_its_process_to_the_tool_with_the_usual_signals() -> None:
    """The tool gets the signals itself, and a closed pipe ends it: Python ignores SIGPIPE, which exec() passes on."""
    program = "import vorlen_command as c; c.start(['/bin/cat', '/proc/self/status'], {blocked})"
    for blocked, mask in (("[]", 0), ("[c.signal.SIGINT]", 1 << (signal.SIGINT - 1))):
        command = [sys.executable, "-c", program.format(blocked=blocked)]
        with subprocess.Popen(command, cwd=ROOT / "python", stdout=subprocess.PIPE, text=True) as process:
            assert process.stdout is not None
            text = process.stdout.read()
        state = dict(re.findall(r"^(\w+):\s+([0-9a-f]+)", text, re.MULTILINE))
        assert state["Pid"] == str(process.pid)
        assert int(state["SigBlk"], 16) == mask
        assert not int(state["SigIgn"], 16) & (1 << (signal.SIGPIPE - 1) | 1 << (signal.SIGXFSZ - 1))


def test_on_windows_the_command_waits_for_a_program_that_writes_utf_8() -> None:
    """A pipe there has the code page of the system otherwise, which lacks most characters."""
    program = (
        "import sys; sys.platform = 'win32'; import vorlen_command as c\n"
        "c.start([sys.executable, '-c', 'import sys; print(sys.flags.utf8_mode); sys.exit(3)'], [])"
    )
    for given, printed in (({}, "1\n"), ({"PYTHONUTF8": "0"}, "0\n")):
        variables = {name: value for name, value in os.environ.items() if name != "PYTHONUTF8"} | given
        done = subprocess.run(
            [sys.executable, "-c", program], cwd=ROOT / "python", env=variables | {"LC_ALL": "C.UTF-8"},
            capture_output=True, text=True, check=False,
        )
        assert (done.returncode, done.stdout, done.stderr) == (3, printed, "")


def test_the_commands_in_python_have_the_same_names_everywhere() -> None:
    import vorlen_command

    printed = succeed(sys.executable, "-m", "vorlen", "--help", folder=ROOT / "python")
    names = set(re.findall(r"^    (\w+) ", printed, re.MULTILINE))
    source = (ROOT / "tools" / "python_command.cpp").read_text("utf-8")
    assert names == set(vorlen_command.PYTHON_COMMANDS) == set(re.findall(r'^    \{"(\w+)", ', source, re.MULTILINE))


def test_two_environments_are_independent_and_nothing_is_left(
    installed: Path, wheel: Path, folder: Path, tmp_path: Path
) -> None:
    other = new_environment(folder / "other")
    before = files_below(folder / "other")
    pip(other, "install", "--no-index", wheel, folder=folder)
    path = f"{installed.parent}:{os.environ['PATH']}"  # the command finds its own environment, not the first of PATH
    succeed(command_of(other), "run", PLAIN_LAYER, "-o", "layer.txt", folder=tmp_path, PATH=path)
    written = succeed(command_of(other), "sweep", "--help", folder=tmp_path, PATH=path, PYTHONVERBOSE="")
    assert "vorlen sweep" in written
    pip(other, "uninstall", "-y", "vorlen", folder=folder)
    assert files_below(folder / "other") == before
    assert succeed(command_of(installed), "--version", folder=tmp_path) == f"vorlen {vorlen.__version__}\n"


def test_the_source_archive_builds_the_same_package(wheel: Path, folder: Path) -> None:
    program = "from build_wheel import backend; import sys; print(backend.build_sdist(sys.argv[1]))"
    archives = []
    for name in ("first", "second"):
        (folder / name).mkdir()
        printed = succeed(PYTHON, "-W", "ignore", "-c", program, folder / name, folder=ROOT / "python")
        archives.append(folder / name / printed.splitlines()[-1])
    assert archives[0].name == f"vorlen-{vorlen.__version__}.tar.gz"
    contents = []
    for archive in archives:
        with tarfile.open(archive) as opened:
            contents.append({entry.name: (entry.mode, entry.mtime, entry.size) for entry in opened.getmembers()})
    assert contents[0] == contents[1]
    assert not [name for name in contents[0] if "/tests/" in name or "__pycache__" in name or name.startswith("/")]

    (folder / "unpacked").mkdir()  # ccache takes the object files of other builds although their sources are elsewhere
    variables = {"TMPDIR": str(folder / "unpacked"), "CCACHE_BASEDIR": str(folder), "CMAKE_ARGS": "-DVORLEN_LIVE=OFF"}
    pip(PYTHON, "wheel", "--no-deps", "--no-index", "-w", folder / "built", archives[0], folder=folder, **variables)
    built = folder / "built" / wheel.name
    names = [set(zipfile.ZipFile(file).namelist()) for file in (built, wheel)]
    assert names[1] - names[0] <= {"vorlen/_native/share/vorlen/live.html"} and names[0] <= names[1]
    library = "vorlen/_native/lib/libVorlenSolver.so.1"
    assert zipfile.ZipFile(built).read(library) == zipfile.ZipFile(wheel).read(library)


def test_an_editable_installation_uses_the_source_tree(folder: Path, tmp_path: Path) -> None:
    python = new_environment(folder / "editable")
    pip(python, "install", "--no-index", "--no-build-isolation", "-e", ROOT / "python", folder=folder)
    printed = succeed(python, "-c", "import vorlen; print(vorlen.__file__)", folder=tmp_path)
    assert printed == f"{ROOT / 'python' / 'vorlen' / '__init__.py'}\n"
    assert succeed(command_of(python), "--version", folder=tmp_path, VORLEN=tool()) == f"vorlen {vorlen.__version__}\n"
    pip(python, "uninstall", "-y", "vorlen", folder=folder)
    assert not command_of(python).exists() and (ROOT / "python" / "vorlen" / "__init__.py").exists()


def test_the_command_of_an_editable_installation_without_a_build_says_what_is_missing(tmp_path: Path) -> None:
    shutil.copytree(ROOT / "python", tmp_path / "python", ignore=shutil.ignore_patterns("tests", "__pycache__"))
    program = "import vorlen_command; vorlen_command.main()"
    done = subprocess.run(
        [sys.executable, "-c", program, "check"], cwd=tmp_path / "python", env=environment(PATH=str(tmp_path)),
        capture_output=True, text=True, check=False,
    )
    if "vorlen was not found" not in done.stderr:  # there is one beside this interpreter
        pytest.skip("a tool is installed")
    assert done.returncode == 1 and done.stderr == "vorlen: the command vorlen was not found. Set VORLEN to its path\n"


def executable(folder: Path, name: str, text: str) -> None:
    folder.mkdir(exist_ok=True)
    (folder / name).write_text(f"#!/bin/sh\n{text}\n")
    (folder / name).chmod(0o755)


def build_error(path: Path, **variables: str) -> str:
    """The message of a build with the programs in one folder."""
    program = "from build_wheel import native; native.installation()"
    done = subprocess.run(
        [sys.executable, "-c", program], cwd=ROOT / "python", env=environment(PATH=str(path), CXX="", **variables),
        capture_output=True, text=True, check=False,
    )
    assert done.returncode == 1 and "Traceback" not in done.stderr
    return done.stderr


def test_a_build_without_its_tools_names_the_packages(tmp_path: Path) -> None:
    all_packages = r"On Debian, run: apt-get install g\+\+ cmake ninja-build pkg-config libtinyxml-dev .*\n"
    text = build_error(tmp_path)
    programs = r"cmake and ninja and pkg-config and a C\+\+ compiler"
    assert re.fullmatch(rf"vorlen can't be built without {programs}\. {all_packages}", text)
    for name in ("ninja", "pkg-config", "c++"):
        executable(tmp_path, name, "exit 0")
    executable(tmp_path, "cmake", "echo Could NOT find TinyXML; exit 1")
    text = build_error(tmp_path)
    failure = "Could NOT find TinyXML\nvorlen can't be built: cmake --preset wheel failed, see above"
    assert re.fullmatch(rf"{failure}\. {all_packages}", text)
    executable(tmp_path, "dpkg-query", 'shift 3; for p; do [ $p = libtinyxml-dev ] || echo "$p:amd64 installed"; done')
    assert build_error(tmp_path).endswith(" see above. On Debian, run: apt-get install libtinyxml-dev\n")
    executable(tmp_path, "dpkg-query", 'shift 3; for p; do echo "$p installed"; done')
    assert build_error(tmp_path).endswith(" failed, see above.\n")  # something else is wrong


def pe_file(machine: int) -> bytes:
    """The head of a program for Windows as far as it names the processor."""
    return b"MZ" + bytes(58) + struct.pack("<I", 64) + b"PE\0\0" + struct.pack("<H", machine) + bytes(64)


def test_a_wheel_for_windows_is_made_from_an_installation(folder: Path, tmp_path: Path) -> None:
    """The files of library and tool have only the head of a program for x86-64."""
    (tmp_path / "bin").mkdir()
    (tmp_path / "share" / "vorlen").mkdir(parents=True)
    for name in ("VorlenSolver.dll", "vorlen.exe"):
        (tmp_path / "bin" / name).write_bytes(pe_file(0x8664))
    (tmp_path / "share" / "vorlen" / "live.html").touch()
    pip(PYTHON, "wheel", "--no-deps", "--no-index", "--no-build-isolation", "-w", tmp_path, ROOT / "python",
        folder=tmp_path, VORLEN_WHEEL_PREFIX=str(tmp_path))
    wheel = tmp_path / f"vorlen-{vorlen.__version__}-py3-none-win_amd64.whl"
    names = [name for name in zipfile.ZipFile(wheel).namelist() if name.startswith("vorlen/_native/")]
    places = {name.removeprefix("vorlen/_native/") for name in names if "/licences/" not in name}
    assert places == {"bin/VorlenSolver.dll", "bin/vorlen.exe", "share/vorlen/live.html"}
    licences = {name.rpartition("/")[2] for name in names if "/licences/" in name}
    linked = {"tinyxml", "fmt", "gcc_runtime", "mingw_w64_runtime"}
    assert {f"{name}.txt" for name in linked} <= licences and "nettle.txt" not in licences


@pytest.mark.parametrize(
    ("prepare", "message"),
    [
        (lambda folder: None, "lacks the library VorlenSolver"),
        (lambda folder: (folder / "bin" / "VorlenSolver.dll").write_bytes(pe_file(0x8664)), "lacks the tool vorlen"),
    ],
)
def test_an_incomplete_installation_is_rejected(
    prepare: Callable[[Path], Any], message: str, tmp_path: Path
) -> None:
    (tmp_path / "bin").mkdir()
    prepare(tmp_path)
    with pytest.raises(SystemExit, match=message):
        native.programs_in(tmp_path)


def test_other_prefixes_and_processors_are_rejected(tmp_path: Path) -> None:
    assert "must be the absolute path of a folder, got there" in build_error(tmp_path, VORLEN_WHEEL_PREFIX="there")
    assert "must be the absolute path of a folder" in build_error(tmp_path, VORLEN_WHEEL_PREFIX=str(tmp_path / "none"))
    (tmp_path / "old.exe").write_bytes(pe_file(0x14C))
    with pytest.raises(SystemExit, match="without a known tag: 0x14c"):
        platform_tag.platform_tag([tmp_path / "old.exe"])
    (tmp_path / "cut").write_bytes(b"\x7fELF")
    with pytest.raises(SystemExit, match="readelf can't read"):
        platform_tag.platform_tag([tmp_path / "cut"])

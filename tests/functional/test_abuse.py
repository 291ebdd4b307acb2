"""Odd calls of the tool. Each says what is wrong, has the right exit status and changes no file.

Every call runs in the same folder of odd files, and none may change any but the files that it is said to write.
"""
import json
import os
import resource
import socket
import stat
import subprocess
import unittest
from dataclasses import dataclass

from support import SOURCE, VORLEN, InAFolder, changed_example, example

VERSION = os.environ["VORLEN_VERSION"]
BREAKS_DOWN = os.path.join(SOURCE, "tests", "data", "bad", "failed_run_001.xml")  # has one row, then fails
UNREADABLE = "\nFailed to open file"
LONG = "n" * 251
TOO_LONG = "n" * 256


@dataclass
class Call:
    """vorlen ARGUMENTS, and what it does. A text as the only argument is split at blanks."""

    arguments: object
    status: int
    error: object  # standard error without "vorlen: " and the last line break; a tuple has pieces of it
    new: tuple = ()  # the files it writes
    output: str = ""  # standard output starts so
    shell: str = ""  # redirections
    nobody: bool = False  # run by a user whom permissions bind
    limit: int = None  # bytes of the largest file that can be written

    @property
    def words(self):
        return self.arguments.split() if isinstance(self.arguments, str) else list(self.arguments)


RESULT = "   No.  Layer "
MALFORMED = "\nError document empty."
NOT_A_RESULT = ' is not a result file: its first line is not "VORLEN output file, version 2.0"'
AWAY = ": move it away, or choose another output"
TRY_HELP = "Run with --help for more information."
WRITTEN = ("new.txt", "new.status.json")
OVERWRITES = "the result would overwrite the recipe "

CALLS = {
    "outputs that are not regular files": [
        Call("run recipe.xml -o /dev/null --force", 1, "/dev/null is not a regular file"),
        Call("run recipe.xml -o /dev/full", 1, "/dev/full is not a regular file"),
        Call("run recipe.xml -o /dev/stdout", 1, "/dev/stdout is not a regular file"),
        Call("run recipe.xml -o pipe", 1, "pipe is not a regular file"),
        Call("run recipe.xml -o socket", 1, "socket is not a regular file"),
        Call("run recipe.xml -o folder", 1, "folder is not a regular file"),
        Call("run recipe.xml -o folder/", 1, "folder/ is not a regular file"),
        Call("run recipe.xml -o .", 1, ". is not a regular file"),
        Call("run recipe.xml -o /", 1, "/ is not a regular file"),
        Call("run recipe.xml -o to_null.txt --force", 1, "to_null.txt is not a regular file"),
        Call("run recipe.xml -o to_pipe.txt", 1, "to_pipe.txt is not a regular file"),
        Call("run recipe.xml -o to_folder.txt", 1, "to_folder.txt is not a regular file"),
        Call("run recipe.xml -o loop.txt", 1, "loop.txt can't be written: Too many levels of symbolic links"),
        Call("run recipe.xml -o piped.txt", 1, "piped.status.json is not a regular file"),
        Call("run recipe.xml -o filed.txt", 1, "filed.failed.txt is not a regular file"),
        Call("new algan_tension -o /dev/null --force", 1, "/dev/null is not a regular file"),
        Call("new algan_tension -o /dev/full", 1, "/dev/full is not a regular file"),
        Call("new algan_tension -o pipe --force", 1, "pipe is not a regular file"),
        Call("new algan_tension -o folder --force", 1, "folder is not a regular file"),
        Call("new algan_tension -o to_null.txt --force", 1, "to_null.txt is not a regular file"),
    ],
    "outputs that are inputs or files of other runs": [
        Call("run recipe.xml -o recipe.xml", 1, OVERWRITES + "recipe.xml"),
        Call("run recipe.xml -o folder/../recipe.xml", 1, OVERWRITES + "recipe.xml"),
        Call("run link.xml -o recipe.xml", 1, OVERWRITES + "link.xml"),
        Call("run recipe.xml -o link.xml --force", 1, OVERWRITES + "recipe.xml"),
        Call("run recipe.xml -o hard.xml", 1, OVERWRITES + "recipe.xml"),
        Call("run in.status.json -o in.txt", 1, OVERWRITES + "in.status.json"),
        Call("run in.failed.txt -o in.txt", 1, OVERWRITES + "in.failed.txt"),
        Call("run .in.txt.part -o in.txt", 1, OVERWRITES + ".in.txt.part"),
        Call("run recipe.xml recipe.result.txt", 1, OVERWRITES + "recipe.result.txt"),
        Call("run recipe.xml recipe.xml", 2, "recipe.xml and recipe.xml would both write recipe.result.txt"),
        Call("run recipe.xml folder/recipe.xml", 2,
             "recipe.xml and folder/recipe.xml would both write recipe.result.txt"),
        Call("run recipe.xml linked.xml", 2, "recipe.xml and linked.xml would both write linked.result.txt"),
        Call("run recipe.xml -o same.txt", 2, "same.status.json is a link to another file of the same run"),
        Call("run recipe.xml -o new.failed.txt", 1,
             "new.failed.txt: names ending in .failed.txt are for other files of a run; choose another output"),
        Call("run recipe.xml -o good.status.json", 1,
             "good.status.json: names ending in .status.json are for other files of a run; choose another output"),
        Call("run recipe.xml -o .good.txt.part", 1,
             ".good.txt.part: names ending in .part are for other files of a run; choose another output"),
        Call("run recipe.xml -o to_status.txt", 1,
             "to_status.txt: names ending in .status.json are for other files of a run; choose another output"),
        Call("run recipe.xml -o good.result.txt", 1,
             "good.status.json is the status file of good.txt, not of good.result.txt" + AWAY),
        Call("run recipe.xml -o good --force", 1,
             "good.status.json is the status file of good.txt, not of good" + AWAY),
        Call("run recipe.xml -o bad.result.txt", 1, "bad.failed.txt has the rows of bad.xml" + AWAY),
        Call("run recipe.xml -o notes.txt", 1, "notes.status.json is not a status file" + AWAY),
        Call("run recipe.xml -o list.txt", 1, "list.status.json is not a status file" + AWAY),
        Call("run recipe.xml -o object.txt", 1,
             "object.status.json is the status file of another file, not of object.txt" + AWAY),
        Call("run recipe.xml -o stray.txt", 1, "stray.failed.txt is not from a known run of stray.txt" + AWAY),
        Call("run recipe.xml -o blocked.txt", 1, "blocked.txt can't be written: Is a directory (.blocked.txt.part)"),
        Call("run recipe.xml -o trap.txt", 1,
             "trap.txt can't be written: Too many levels of symbolic links (.trap.txt.part)"),
        Call("run recipe.xml -o hardened.txt", 1, "hardened.txt can't be written: .hardened.txt.part is in the way"),
        Call("run recipe.xml -o good.txt --force", 1, "good.txt is also the output of the command",
             shell=">> good.txt"),
        Call("run recipe.xml -o /dev/stderr --force", 1, "", shell="2>> notes.txt", new=("notes.txt",)),
        Call("new algan_tension -o recipe.xml", 1, "recipe.xml already exists (use --force to replace it)"),
        Call("new algan_tension -o dangling.txt", 1, "dangling.txt already exists (use --force to replace it)"),
        Call("new algan_tension -o loop.txt", 1, "loop.txt can't be written: Too many levels of symbolic links"),
    ],
    "outputs that can't be written": [
        Call("run recipe.xml -o none/new.txt", 1, "none/new.txt can't be written: folder not found: none"),
        Call("run recipe.xml -o none/", 1, "none/ can't be written: folder not found: none"),
        Call("run recipe.xml -o recipe.xml/new.txt", 1, "recipe.xml/new.txt can't be written: Not a directory"),
        Call("run recipe.xml -o to_nowhere.txt", 1, "to_nowhere.txt can't be written: folder not found: none"),
        Call("run recipe.xml -o " + TOO_LONG, 1, TOO_LONG + " can't be written: File name too long"),
        Call("run recipe.xml -o " + LONG, 1, LONG + ".status.json can't be written: File name too long"),
        Call("run recipe.xml -o read_only.txt", 1, "read_only.txt can't be written: Permission denied", nobody=True),
        Call("run recipe.xml -o locked/new.txt", 1, "locked/new.txt can't be written: Permission denied", nobody=True),
        Call("run recipe.xml -o closed/new.txt", 1, "closed/new.txt can't be written: Permission denied", nobody=True),
        Call("run recipe.xml --output-dir recipe.xml", 1, ("recipe.xml can't be created: ",)),
        Call("run recipe.xml --output-dir /proc/none", 1, ("/proc/none can't be created: ",)),
        Call("new algan_tension -o read_only.txt --force", 1, "read_only.txt can't be written: Permission denied",
             nobody=True),
        Call("new algan_tension -o locked/new.xml", 1,
             "locked/new.xml can't be written: Permission denied", nobody=True),
        Call("new algan_tension -o none/new.xml", 1, "none/new.xml can't be written: folder not found: none"),
        Call("new algan_tension -o new.xml", 1, "new.xml can't be written: File too large", limit=1000),
        Call("new algan_tension -o recipe.xml --force", 1, "recipe.xml can't be written: File too large", limit=1000),
        Call("run other.xml -o good.txt", 1, ("good.txt: the file ends before the run does. Is the disk full?",
                                              "No row could be written",
                                              "good.status.json can't be written: File too large"), limit=100),
    ],
    "recipes": [
        Call("run none.xml -o new.txt", 1, "Error reading file none.xml" + UNREADABLE),
        Call("run folder -o new.txt", 1, "Error reading file folder" + UNREADABLE),
        Call("run pipe -o new.txt", 1, "Error reading file pipe" + UNREADABLE),
        Call("run /dev/zero -o new.txt", 1, "Error reading file /dev/zero" + UNREADABLE),
        Call("run /dev/null -o new.txt", 1, "Error reading file /dev/null" + UNREADABLE),
        Call("run loop.txt -o new.txt", 1, "Error reading file loop.txt" + UNREADABLE),
        Call("run empty -o new.txt", 1, "Error reading file empty" + MALFORMED, new=("new.status.json",)),
        Call("run binary -o new.txt", 1, "Error reading file binary" + MALFORMED, new=("new.status.json",)),
        Call("run empty -o good.txt", 1, "Error reading file empty" + MALFORMED, new=("good.status.json",)),
        Call("run secret.xml -o open/new.txt", 1, "Error reading file secret.xml" + UNREADABLE, nobody=True),
        Call("run recipe.xml @list -o new.txt", 2, "--output is for a single recipe; use --output-dir for several"),
        Call(["run", "", "-o", "new.txt"], 2, "RECIPE: must not be empty\n" + TRY_HELP),
        Call("run pipe --scheme staged -o new.txt", 1, "Error reading file pipe" + UNREADABLE),
        Call("run -o new.txt -- -dash.xml", 0, "", new=WRITTEN, output=RESULT),
        Call("run ./-dash.xml -o new.txt", 0, "", new=WRITTEN, output=RESULT),
        Call(["run", "two\nlines.xml", "-o", "new.txt"], 0, "", new=WRITTEN, output=RESULT),
        Call(["run", "two\nlines.xml"], 0, "", output=RESULT, new=("two\nlines.result.txt", "two\nlines.status.json")),
        Call(["run", "it's \"odd\".xml"], 0, "", output=RESULT,
             new=("it's \"odd\".result.txt", "it's \"odd\".status.json")),
        Call(["run", b"\xff\xfe.xml"], 0, "", output=RESULT,
             new=("\udcff\udcfe.result.txt", "\udcff\udcfe.status.json")),
        Call(["run", b"\xff.none", "-o", "new.txt"], 1, "Error reading file \udcff.none" + UNREADABLE),
        Call("check none.xml", 1, "", output="none.xml: error: Error reading file none.xml Failed to open file\n"),
        Call("check folder", 1, "", output="folder: error: Error reading file folder Failed to open file\n"),
        Call("check pipe", 1, "", output="pipe: error: Error reading file pipe Failed to open file\n"),
        Call("check empty", 1, "", output="empty: error: Error reading file empty Error document empty.\n"),
        Call(["check", ""], 2, "RECIPE: must not be empty\n" + TRY_HELP),
        Call("timeline none.xml", 1, "Error reading file none.xml" + UNREADABLE),
        Call("timeline pipe", 1, "Error reading file pipe" + UNREADABLE),
        Call("timeline binary", 1, "Error reading file binary" + MALFORMED),
        Call(["timeline", ""], 2, "RECIPE: must not be empty\n" + TRY_HELP),
    ],
    "results": [
        Call("show none.txt", 1, "none.txt can't be read: No such file or directory"),
        Call("show dangling.txt", 1, "dangling.txt can't be read: No such file or directory"),
        Call("show loop.txt", 1, "loop.txt can't be read: Too many levels of symbolic links"),
        Call("show secret.xml", 1, "secret.xml can't be read: Permission denied", nobody=True),
        Call("show closed/r.txt", 1, "closed/r.txt can't be read: Permission denied", nobody=True),
        Call("show folder", 1, "folder is not a regular file"),
        Call("show pipe", 1, "pipe is not a regular file"),
        Call("show /dev/zero", 1, "/dev/zero is not a regular file"),
        Call("show empty", 1, "empty" + NOT_A_RESULT),
        Call("show binary", 1, "binary" + NOT_A_RESULT),
        Call("show recipe.xml", 1, "recipe.xml" + NOT_A_RESULT),
        Call("show old.txt", 1, "old.txt" + NOT_A_RESULT),
        Call("show cut_in_layers.txt", 1, "cut_in_layers.txt, line 7: the list of layers has no end"),
        Call("show cut_in_row.txt", 1, "cut_in_row.txt, line 14: the last line is cut off"),
        Call("show words.txt", 1, "words.txt, line 12: not a row of 19 numbers"),
        Call(["show", ""], 2, "RESULT: must not be empty\n" + TRY_HELP),
        Call("diff good.txt folder", 2, "folder is not a regular file"),
        Call("diff pipe good.txt", 2, "pipe is not a regular file"),
        Call("diff good.txt cut_in_row.txt", 2, "cut_in_row.txt, line 14: the last line is cut off"),
        Call(["diff", "good.txt", ""], 2, "B: must not be empty\n" + TRY_HELP),
        Call("diff good.txt good.txt", 0, "", output="No difference in 6 layers and 461 rows.\n"),
    ],
    "options": [
        Call([], 2, "A subcommand is required\n" + TRY_HELP),
        Call("walk", 2, "not a command: walk (vorlen --help lists the commands)"),
        Call("Run recipe.xml", 2, "not a command: Run; did you mean run?"),
        Call([""], 2, "not a command:  (vorlen --help lists the commands)"),
        Call("recipe.xml", 2, "not a command: recipe.xml (vorlen --help lists the commands)"),
        Call("--force run recipe.xml", 2, ("--force",)),
        Call("run", 2, "RECIPE is required\n" + TRY_HELP),
        Call("run recipe.xml -o", 2, "--output: 1 required RESULT missing\n" + TRY_HELP),
        Call("run recipe.xml -o new.txt -o newer.txt", 2, "--output: At Most 1 required but received 2\n" + TRY_HELP),
        Call("run recipe.xml -o new.txt --output-dir new", 2, "--output excludes --output-dir\n" + TRY_HELP),
        Call(["run", "recipe.xml", "-o", ""], 2, "--output: must not be empty\n" + TRY_HELP),
        Call(["run", "recipe.xml", "--output-dir", ""], 2, "--output-dir: must not be empty\n" + TRY_HELP),
        Call("run recipe.xml --csv", 2, "The following argument was not expected: --csv\n" + TRY_HELP),
        Call("check recipe.xml --tolerance 1", 2, ("not expected: --tolerance",)),
        Call("timeline recipe.xml --json", 2, "The following argument was not expected: --json\n" + TRY_HELP),
        Call("show good.txt --force", 2, "The following argument was not expected: --force\n" + TRY_HELP),
        Call("diff good.txt good.txt --csv", 2, "The following argument was not expected: --csv\n" + TRY_HELP),
        Call("explain text --output new.txt", 2, ("not expected: ", "--output")),
        Call("run recipe.xml --force=maybe", 2, "Could not convert: --force = maybe\n" + TRY_HELP),
        Call("run recipe.xml --scheme", 2, "--scheme: 1 required {continuous,staged} missing\n" + TRY_HELP),
        Call("run recipe.xml --scheme fast", 2, "--scheme: fast not in {continuous,staged}\n" + TRY_HELP),
        *[Call(["run", "recipe.xml", "-o", "new.txt", "-j", number], 2,
               f'--jobs: must be a whole number from 1 to 1024, got "{number}"\n{TRY_HELP}')
          for number in ("0", "-1", "1.5", "1e2", "0x10", "+4", " 4", "4 ", "4x", "nan", "inf", "1025", "4294967297",
                         "18446744073709551617", "٤")],
        Call("run recipe.xml -o new.txt -j 008", 0, "", new=WRITTEN, output=RESULT),
        Call("run recipe.xml -j 1 -j 2", 2, "--jobs: At Most 1 required but received 2\n" + TRY_HELP),
        *[Call(["diff", "good.txt", "good.txt", "--tolerance=" + number], 2,
               f'--tolerance: must be a non-negative number, got "{number}"\n{TRY_HELP}')
          for number in ("nan", "inf", "-inf", "-1", "-1e-300", "1e400", "1e-6x", "1,5", " 1", "1 ", "0x1p-3", "one")],
        Call("diff good.txt good.txt --tolerance", 2, "--tolerance: 1 required X missing\n" + TRY_HELP),
        Call("diff good.txt good.txt --tolerance 1e-6", 0, "", output="No difference"),
        Call("diff good.txt", 2, "B is required\n" + TRY_HELP),
        Call("diff good.txt good.txt good.txt", 2, "The following argument was not expected: good.txt\n" + TRY_HELP),
        Call("show good.txt --csv --json", 2, "--csv excludes --json\n" + TRY_HELP),
        Call("show good.txt --rows --csv", 2, ("--csv",)),
        Call("check recipe.xml --format xml", 2, "--format: xml not in {text,json}\n" + TRY_HELP),
        Call(["check", "recipe.xml", "--allow", ""], 2, "--allow: must not be empty\n" + TRY_HELP),
        Call("new -o new.xml", 2, "--output requires KIND\n" + TRY_HELP),
        Call("new --force", 2, "--force requires KIND\n" + TRY_HELP),
        Call(["new", "algan_tension", "-o", ""], 2, "--output: must not be empty\n" + TRY_HELP),
        Call("new diamond", 2, ("KIND: diamond not in {algan_gan_hemt,",)),
        Call("timeline recipe.xml other.xml", 2, "The following argument was not expected: other.xml\n" + TRY_HELP),
        Call(["explain", ""], 2, "no text to explain"),
        Call("explain step siz", 1, "no known message matches. The most similar are:", output="Step"),
    ],
    "standard streams": [
        Call("run recipe.xml -o new.txt", 1, "standard output can't be written", shell=">&-", new=WRITTEN),
        Call("run recipe.xml -o new.txt", 1, "standard output can't be written", shell="> /dev/full", new=WRITTEN),
        Call("run recipe.xml -o new.txt", 0, "", shell="2>&-", new=WRITTEN, output=RESULT),
        Call("run recipe.xml -o new.txt", 0, "", shell="<&-", new=WRITTEN, output=RESULT),
        Call("run recipe.xml -o new.txt", 1, "", shell="<&- >&- 2>&-", new=WRITTEN),
        Call("run recipe.xml other.xml --output-dir folder", 0, "", shell="2> /dev/full",
             new=("folder/recipe.result.txt", "folder/recipe.status.json", "folder/other.result.txt",
                  "folder/other.status.json"), output="  Recipe"),
        Call("new algan_tension -o -", 1, "standard output can't be written", shell=">&-"),
        Call("new algan_tension -o new.xml", 0, "", shell="2>&-", new=("new.xml",)),
        Call("show good.txt", 1, "standard output can't be written", shell="> /dev/full"),
        Call("diff good.txt good.txt", 2, "standard output can't be written", shell=">&-"),
        Call("check recipe.xml", 1, "standard output can't be written", shell="> /dev/full"),
        Call("explain", 2, "no text to explain", shell="<&-"),
        Call("explain", 2, "no text to explain", shell="< /dev/null"),
        Call("explain", 1, "no known message matches. The most similar are:", shell="< /dev/zero", output="I"),
        Call("--version", 1, "standard output can't be written", shell="> /dev/full"),
        Call("--help", 1, "standard output can't be written", shell=">&-"),
    ],
}


class Calls(InAFolder):
    def make_folder(self):
        """The folder of odd files."""
        os.chmod(self.folder, 0o777)
        for name in ("folder", "open", "locked", "closed", "piped.d", ".blocked.txt.part"):
            os.mkdir(self.path(name))
        os.chmod(self.path("open"), 0o777)
        with open(example("algan_gan_hemt"), encoding="utf-8") as file:
            recipe = file.read()
        for name in ("recipe.xml", "folder/recipe.xml", "in.status.json", "in.failed.txt", ".in.txt.part",
                     "recipe.result.txt", "-dash.xml", "two\nlines.xml", "it's \"odd\".xml", "secret.xml", "linked.xml",
                     "\udcff\udcfe.xml"):
            self.write(name, recipe)
        self.write_recipe("other.xml", source="algan_tension")
        with open(BREAKS_DOWN, encoding="utf-8") as file:
            self.write("bad.xml", file.read())
        for name in ("empty", "same.txt"):
            self.write(name, "")
        for name in ("read_only.txt", "notes.txt", "notes.status.json", "stray.failed.txt", "kept"):
            self.write(name, "mine\n")
        self.write("list.status.json", "[1]")
        self.write("object.status.json", '{"result": 0}')
        with open(self.path("binary"), "wb") as file:
            file.write(bytes(range(256)) * 10)
        os.mkfifo(self.path("pipe"))
        os.mkfifo(self.path("piped.status.json"))
        os.mkdir(self.path("filed.failed.txt"))
        with socket.socket(socket.AF_UNIX) as server:
            server.bind(self.path("socket"))
        for target, name in (("/dev/null", "to_null.txt"), ("pipe", "to_pipe.txt"), ("folder", "to_folder.txt"),
                             ("loop.txt", "loop.txt"), ("nowhere.txt", "dangling.txt"), ("recipe.xml", "link.xml"),
                             ("none/new.txt", "to_nowhere.txt"), ("same.txt", "same.status.json"),
                             ("good.status.json", "to_status.txt"), ("kept", ".trap.txt.part"),
                             ("recipe.result.txt", "linked.result.txt")):
            os.symlink(target, self.path(name))
        os.link(self.path("recipe.xml"), self.path("hard.xml"))
        os.link(self.path("kept"), self.path(".hardened.txt.part"))
        self.assertEqual(self.run_tool("run", "recipe.xml", "-o", "good.txt").returncode, 0)
        self.assertEqual(self.run_tool("run", "bad.xml", "-o", "bad.txt").returncode, 1)
        lines = self.read("good.txt").decode().splitlines(keepends=True)
        end = lines.index("</LAYERS>\n")
        self.write("old.txt", "".join(lines).replace("version 2.0", "version 1.0"))
        self.write("cut_in_layers.txt", "".join(lines[:end - 1]))
        self.write("cut_in_row.txt", "".join(lines[:end + 5]) + lines[end + 5][:30])
        self.write("words.txt", "".join(lines[:end + 3]) + "one two three\n")
        os.chmod(self.path("read_only.txt"), 0o444)
        os.chmod(self.path("secret.xml"), 0)
        os.chmod(self.path("locked"), 0o555)
        os.chmod(self.path("closed"), 0)
        self.addCleanup(os.chmod, self.path("closed"), 0o700)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8", newline="", errors="surrogateescape") as file:
            file.write(text)

    def snapshot(self):
        """Each file with what must not change: type, permissions, owner, and content or target."""
        found = {}
        for folder, folders, files in os.walk(self.folder):
            for name in folders + files:
                path = os.path.join(folder, name)
                about = os.lstat(path)
                content = (os.readlink(path) if stat.S_ISLNK(about.st_mode) else
                           (about.st_ino, self.read(path)) if stat.S_ISREG(about.st_mode) and about.st_mode & 0o400
                           else None)
                found[os.path.relpath(path, self.folder)] = (about.st_mode, about.st_uid, content)
        return found

    def run_call(self, call):
        """Exit status and what is printed, both as bytes."""
        def limit():
            if call.limit is not None:
                resource.setrlimit(resource.RLIMIT_FSIZE, (call.limit, call.limit))

        words = call.words
        tool = VORLEN
        if call.shell:
            words = ["-c", f'tool=$1; shift; exec "$tool" "$@" {call.shell}', "sh", VORLEN, *words]
            tool = "sh"
        if call.nobody:
            run = self.run_without_privileges(*words, encoding=None, timeout=60)
        else:
            run = subprocess.run([tool, *words], cwd=self.folder, capture_output=True, check=False, timeout=60,
                                 preexec_fn=limit, stdin=subprocess.DEVNULL)
        return run.returncode, *(text.decode("utf-8", "surrogateescape") for text in (run.stdout, run.stderr))

    def test_odd_calls(self):
        self.make_folder()
        before = self.snapshot()
        for group, calls in CALLS.items():
            for call in calls:
                with self.subTest(group, call=call):
                    status, output, error = self.run_call(call)
                    after = self.snapshot()
                    for name in sorted(set(after) - set(before)):
                        os.remove(self.path(name))
                    changed = sorted(name for name in {*before, *after} if before.get(name) != after.get(name))
                    before = {name: after.get(name) for name in before}  # so that one call does not fail all others
                    self.check(call, status, output, error)
                    self.assertEqual(changed, sorted(call.new))
        self.assertGreater(sum(map(len, CALLS.values())), 60)

    def check(self, call, status, output, error):
        self.assertEqual(status, call.status, error)
        if isinstance(call.error, tuple):
            for piece in call.error:
                self.assertIn(piece, error)
        elif call.error or not call.status:
            lines = error.rstrip("\n").removeprefix("vorlen: ")
            wrote = {f"wrote {name}" for name in call.new}
            self.assertEqual("" if lines in wrote else lines, call.error)
        self.assertTrue(output.startswith(call.output), output)
        if not call.output:
            self.assertEqual(output, "")
        self.assertNotIn("terminate called", error)


if __name__ == "__main__":
    unittest.main()

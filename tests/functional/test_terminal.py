"""Common to all commands: colours, units, progress on a terminal, help, manual page, completion, Python."""
import fcntl
import os
import pty
import re
import shutil
import struct
import subprocess
import termios
import unittest

from support import EXAMPLES, LIBRARY, SOURCE, VORLEN, InAFolder, changed_example, example

BUILD = os.path.dirname(VORLEN)
COMPLETION = os.path.join(SOURCE, "tools", "help", "vorlen.bash-completion")
COLOUR = "\033["


def environment(**changes):
    kept = {name: value for name, value in os.environ.items() if name not in ("NO_COLOR", "TERM", "LC_ALL")}
    return {**kept, **changes}


class Terminals(InAFolder):
    def on_terminal(self, *arguments, width=0, **changes):
        """The output of the tool on a terminal, both streams together. width: in columns; 0: unknown"""
        master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, width, 0, 0))
        with subprocess.Popen([VORLEN, *arguments], cwd=self.folder, env=environment(**changes), stdin=slave,
                              stdout=slave, stderr=slave) as run:
            os.close(slave)
            output = b""
            while True:
                try:
                    block = os.read(master, 65536)
                except OSError:  # end of file on Linux
                    break
                if not block:
                    break
                output += block
            run.wait(timeout=60)
        os.close(master)
        return output.decode()

    def test_colours_are_used_on_terminals_only_and_not_with_no_color(self):
        self.assertIn(COLOUR, self.on_terminal("new", TERM="xterm"))
        self.assertIn(COLOUR, self.on_terminal("new", TERM="xterm", NO_COLOR=""))  # empty is not set
        for changes in ({"TERM": "xterm", "NO_COLOR": "1"}, {"TERM": "dumb"}, {}):
            self.assertNotIn(COLOUR, self.on_terminal("new", **changes))
        run = self.run_tool("new", env=environment(TERM="xterm"))
        self.assertNotIn(COLOUR, run.stdout)

    def test_warnings_about_unphysical_rows_are_red(self):
        self.assertEqual(self.run_tool("run", example("algan_gan_hemt"), "-o", "r.txt").returncode, 0)
        lines = self.read("r.txt").decode().splitlines(keepends=True)
        fields = lines[-1].split(" ")
        fields[3] = "nan"  # indium
        self.write("bad.txt", "".join(lines[:-1]) + " ".join(fields))
        for arguments in (["show", "bad.txt"], ["diff", "r.txt", "bad.txt"]):
            self.assertIn("\033[31mvorlen: warning: bad.txt: Unphysical values in 1 of ",
                          self.on_terminal(*arguments, TERM="xterm"))
            self.assertIn("\nvorlen: warning: bad.txt: ", "\n" + self.on_terminal(*arguments, TERM="dumb"))
        self.assertNotIn("warning", self.on_terminal("show", "r.txt", TERM="xterm"))

    def test_progress_is_rewritten_in_place_on_a_terminal_only(self):
        recipes = [example("algan_gan_hemt"), example("algan_tension")]
        shown = self.on_terminal("run", *recipes, TERM="xterm")
        self.assertIn("\r\033[K2 of 2 done, 0 failed, 0 running, elapsed 0:0", shown)
        run = self.run_tool("run", "--force", *recipes, env=environment(TERM="xterm"))
        self.assertNotIn("\r", run.stderr)
        self.assertNotIn(COLOUR, run.stderr)
        self.assertRegex(run.stderr, r"^2 of 2 done, 0 failed, 0 running, elapsed 0:0\d\n$")
        self.assertNotIn("\033[K", self.on_terminal("run", "--force", *recipes, TERM="dumb"))

    def test_units_use_utf8_where_possible_and_ascii_elsewhere(self):
        self.assertEqual(self.run_tool("run", example("ingan_gan_mqw")).returncode, 0)
        for locale, unit in (("C.UTF-8", "µm/h"), ("C", "um/h")):
            run = self.run_tool("show", "ingan_gan_mqw.result.txt", env=environment(LC_ALL=locale))
            self.assertIn(f"Rate, {unit}  ", run.stdout)

    def test_control_characters_in_names_never_reach_the_terminal(self):
        name = "re\033[31m\ncipe.xml"
        recipe = changed_example("ingan_gan_mqw", ("InGaN well", "In&#27;[31mGaN&#10;well"), ('"40000" end', '"400" end'))
        self.write(name, recipe.replace("1010", "757"))
        self.write("second.xml", recipe)
        for arguments in (["check", name], ["check", "missing\033\n.xml"], ["timeline", name],
                          ["run", name, "-o", "r\033.txt"], ["show", "r\033.txt"], ["diff", "r\033.txt", "r\033.txt"],
                          ["run", name, "second.xml"], ["run", "missing\033.xml"], ["chec\033"]):
            run = self.run_tool(*arguments)
            with self.subTest(arguments):
                self.assertNotIn("\033", run.stdout + run.stderr)
                self.assertNotEqual(run.stdout + run.stderr, "")

    def shown(self, *arguments, **options):
        return self.on_terminal(*arguments, TERM="dumb", LC_ALL="C.UTF-8", **options).replace("\r\n", "\n")

    def test_tables_fit_into_the_terminal_and_lose_nothing(self):
        self.assertEqual(self.run_tool("run", example("blue_led"), "-o", "led.txt").returncode, 0)
        self.assertEqual(self.run_tool("run", example("hemt"), "-o", "hemt.txt").returncode, 0)
        for arguments in (["show", "--all", "led.txt"], ["timeline", "--all", example("blue_led")],
                          ["diff", "--columns", "led.txt", "hemt.txt"]):
            full = self.run_tool(*arguments).stdout
            self.assertGreater(max(map(len, full.splitlines())), 80)
            self.assertEqual(self.shown(*arguments), full)  # of a terminal that does not know its size
            self.assertEqual(self.shown(*arguments, width=300), full)
            for width in (80, 100, 120):
                with self.subTest(arguments, width=width):
                    narrow = self.shown(*arguments, width=width)
                    self.assertLessEqual(max(len(line) for line in narrow.splitlines() if line.startswith("  ")), width)
                    self.assertEqual(set(full.split()), set(narrow.split()))

    def test_each_part_of_a_narrow_table_has_the_names_of_its_rows(self):
        self.assertEqual(self.run_tool("run", example("algan_gan_hemt"), "-o", "r.txt").returncode, 0)
        parts = self.shown("show", "--all", "r.txt", width=60).strip("\n").split("\n\n")
        self.assertGreater(len(parts), 3)
        table = []
        for part in parts:
            rows = [line for line in part.splitlines() if re.match(r" +\d", line)]
            self.assertEqual(len(rows), 6)
            table.append([re.split(r"  +", row.strip()) for row in rows])
        # The parts side by side are the rows of the two full tables.
        full = [[re.split(r"  +", line.strip()) for line in half.splitlines()[1:]]
                for half in self.run_tool("show", "r.txt").stdout.split("\n\n")]
        for number in range(6):
            names = full[0][number][:2]
            self.assertTrue(all(part[number][:2] == names for part in table))
            self.assertEqual([cell for part in table for cell in part[number][2:]],
                             full[0][number][2:] + full[1][number][2:])

    def test_a_change_is_beside_its_value_in_a_narrow_table(self):
        for name in ("ingan_gan_mqw", "ingan_v_defects"):
            self.assertEqual(self.run_tool("run", example(name), "-o", name + ".txt").returncode, 0)
        narrow = self.shown("diff", "ingan_gan_mqw.txt", "ingan_v_defects.txt", width=70)
        parts = [part.splitlines() for part in narrow.split("\n\n")[:-1]]
        self.assertGreater(len(parts), 3)
        for part in parts:
            heading = next(line for line in part if "No." in line)
            self.assertRegex(heading, r"^ +No\.  second +Layer( +\S[^C]* +Change)+$")

    def test_equal_layers_are_one_line_on_a_terminal_only(self):
        path = example("blue_led")  # five wells, and two pauses with the name of others
        run = self.shown("run", path, "-o", "led.txt")
        show = self.shown("show", "led.txt")
        for text, end in ((run, "69          3.029\n"), (show, "active           69          3.029 ")):
            self.assertRegex(text, rf"\n +7  InGaN well × 5 +{end}")
            self.assertRegex(text, r"\n +4  cooling  +.*\n +5  GaN barrier × 5 .*\n +6  cooling × 5 ")
            self.assertRegex(text, r"\n +30  last GaN barrier  ")  # its name is another one
            self.assertNotRegex(text, r"\n +12  ")
        self.assertTrue(show.endswith("\nLayers with the same values are one line; --all lists each.\n"))
        self.assertIn("InGaN well x 5", self.on_terminal("show", "led.txt", LC_ALL="C"))
        for options in ([], ["--all"]):
            piped = self.run_tool("show", "led.txt", *options).stdout
            self.assertEqual(len(re.findall(r"^ +\d+  InGaN well  ", piped, re.MULTILINE)), 10)
            self.assertNotIn("--all", piped)
        self.assertEqual(self.shown("show", "--all", "led.txt"), piped)

    def test_nothing_is_said_of_equal_layers_where_there_are_none(self):
        self.assertEqual(self.run_tool("run", example("algan_gan_hemt"), "-o", "r.txt").returncode, 0)
        self.assertEqual(self.shown("show", "r.txt"), self.run_tool("show", "r.txt").stdout)
        path = example("algan_gan_hemt")
        self.assertEqual(self.shown("timeline", path), self.run_tool("timeline", path).stdout)

    def test_equal_periods_are_one_line_of_the_timeline_on_a_terminal_only(self):
        path = example("ingan_gan_mqw")
        lines = [line for line in self.shown("timeline", path).splitlines() if "stage_1_3" in line]
        self.assertEqual([line.split()[:8] for line in lines],
                         [["stage_1_3", "(periods", "1-3)", "InGaN", "well", "3170", "3240", "70"]])
        piped = self.run_tool("timeline", path).stdout
        self.assertEqual(re.findall(r"stage_1_3 \(period (\d)\)", piped), ["1", "2", "3"])
        self.assertEqual(self.run_tool("timeline", "--all", path).stdout, piped)
        self.assertEqual(self.shown("timeline", "--all", path), piped)

    def test_columns_are_aligned_by_display_width(self):
        self.write_recipe("a.xml", 'val="AlGaN barrier"', 'val="氮化镓 Löß"')
        for locale, width in (("C.UTF-8", 2), ("C", 1)):  # Han characters take two columns if the locale is UTF-8
            run = self.run_tool("run", "a.xml", env=environment(LC_ALL=locale))
            rows = run.stdout.split("\n\n")[0].splitlines()
            widths = {len(row) + (width - 1) * sum(c in "氮化镓" for c in row) for row in rows}
            self.assertEqual(len(widths), 1, run.stdout)


class Help(InAFolder):
    def commands(self):
        text = self.run_tool("--help").stdout
        return re.findall(r"^  ([a-z]\S*) ", text.split("Subcommands:\n")[1].split("\n\n")[0], re.MULTILINE)

    def options(self, *command):
        text = self.run_tool(*command, "--help").stdout
        return set(re.findall(r"^ +(?:-\w,)?(--[a-z][a-z-]*)", text, re.MULTILINE))

    def test_each_help_has_an_example(self):
        self.assertIn("run", self.commands())
        for command in ["", *self.commands()]:
            if command in ("report", "compare", "observe", "design", "window", "map", "sweep"):
                continue  # Python's own
            with self.subTest(command):
                text = self.run_tool(*command.split(), "--help").stdout
                self.assertRegex(text, r"Examples?:\n +vorlen " + command)

    def test_the_manual_page_describes_each_command_and_option(self):
        with open(os.path.join(BUILD, "vorlen.1"), encoding="utf-8") as file:
            page = file.read().replace("\\-", "-")
        commands = {"run", "show", "diff", "new", "explain", "report", "compare", "observe", "design", "window", "map", "sweep"}
        self.assertLess(commands, set(self.commands()) | {""})
        for command in self.commands():
            with self.subTest(command):
                (section,) = re.findall(rf"^\.SS vorlen {command}\b(.*?)(?=^\.S[SH] )", page, re.MULTILINE | re.DOTALL)
                if command in ("report", "compare", "observe", "design", "window", "map", "sweep"):
                    continue
                options = self.options(command)
                self.assertIn("--help", options)
                for option in options:
                    self.assertRegex(section, rf"\\fB.*{option}\\fR")
        for option in self.options():
            self.assertIn(option, page)

    @unittest.skipUnless(shutil.which("groff"), "groff is not there")
    def test_the_manual_page_names_the_files_of_a_run_and_the_variables(self):
        with open(os.path.join(BUILD, "vorlen.1"), encoding="utf-8") as file:
            page = file.read().replace("\\-", "-")
        for title, names in (("FILES", ["NAME.result.txt", "NAME.status.json", "NAME.failed.txt"]),
                             ("ENVIRONMENT", ["NO_COLOR", "TERM", "LC_ALL, LC_CTYPE, LANG", "VORLEN_PYTHON",
                                              "VORLEN_LIBRARY"])):
            (section,) = re.findall(rf"^\.SH {title}\n(.*?)(?=^\.SH |\Z)", page, re.MULTILINE | re.DOTALL)
            self.assertEqual(re.findall(r"^\.TP\n(?:\.[BI] |\\f[BI])(.*?)(?:\\f[RP])?$", section, re.MULTILINE), names)

    def test_the_manual_page_is_clean(self):
        page = os.path.join(BUILD, "vorlen.1")
        run = subprocess.run(["groff", "-man", "-ww", "-rCHECKSTYLE=3", "-Tutf8", "-P-c", page], capture_output=True,
                             encoding="utf-8", check=False)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        text = re.sub(".\b", "", run.stdout)  # bold letters are overstruck
        self.assertIn("--keep-going", text)
        self.assertIn("EXIT STATUS", text)


class Suggestions(InAFolder):
    """A misspelt word is an error, and the message names the word that it was meant to be."""

    def expect(self, arguments, *lines):
        """Expects these lines on stderr, apart from CLI11's last."""
        with self.subTest(arguments):
            run = self.run_tool(*arguments)
            self.assertEqual((run.returncode, run.stdout, os.listdir(self.folder)), (2, "", []))
            self.assertEqual(run.stderr, "".join(line + "\n" for line in lines))

    MORE = "Run with --help for more information."

    def test_commands(self):
        self.expect(["chekc"], "vorlen: not a command: chekc; did you mean check?")
        self.expect(["RUN", "a.xml"], "vorlen: not a command: RUN; did you mean run?")
        self.expect(["repotr"], "vorlen: not a command: repotr; did you mean report?")
        for word in ("simulate", "", "x" * 70):
            self.expect([word], f"vorlen: not a command: {word} (vorlen --help lists the commands)")

    def test_options_of_each_command_with_a_letter_missing(self):
        commands = [line.split()[0] for line in
                    self.run_tool("--help").stdout.split("Subcommands:\n")[1].split("\n\n")[0].splitlines()]
        self.assertIn("timeline", commands)
        for command in commands:
            if command in ("report", "compare", "observe", "design", "window", "map", "sweep"):
                continue  # Python's own
            options = re.findall(r"(--[a-z-]+)", self.run_tool(command, "--help").stdout.split("Options:")[1])
            for option in sorted(set(options)):
                word = option[:-2] + option[-1]
                with self.subTest(command=command, word=word):
                    run = self.run_tool(command, word, input="")
                    self.assertEqual((run.returncode, run.stdout), (2, ""))
                    self.assertIn(f"\n{word}: did you mean {option}?\n{self.MORE}\n", run.stderr)

    def test_options_with_values_and_beside_other_errors(self):
        unexpected = "The following argument was not expected: "
        meant = "--ouput: did you mean --output?"
        self.expect(["run", "--ouput", "x"], unexpected + "--ouput", meant, self.MORE)
        self.expect(["run", "a.xml", "--ouput=x"], unexpected + "--ouput=x", meant, self.MORE)
        self.expect(["run", "--ouput"], "RECIPE is required", meant, self.MORE)
        self.expect(["check", "-strict", "a.xml"], unexpected + "-strict", "-strict: did you mean --strict?", self.MORE)
        self.expect(["--verison"], "A subcommand is required", "--verison: did you mean --version?", self.MORE)
        for word in ("--colour", "-x", "--" + "o" * 70):
            self.expect(["run", "a.xml", word], unexpected + word, self.MORE)
        self.expect(["run"], "RECIPE is required", self.MORE)

    def test_values(self):
        self.expect(["check", "--format", "txet", "a.xml"], "--format: txet not in {text,json}",
                    "txet: did you mean text?", self.MORE)
        self.expect(["run", "--scheme=stagged", "a.xml"], "--scheme: stagged not in {continuous,staged}",
                    "stagged: did you mean staged?", self.MORE)
        self.expect(["check", "--format", "yaml", "a.xml"], "--format: yaml not in {text,json}", self.MORE)
        for kind, meant in (("ingan_gan_mwq", ["ingan_gan_mwq: did you mean ingan_gan_mqw?"]), ("diamond", [])):
            self.expect(["new", kind], f"KIND: {kind} not in {{{','.join(EXAMPLES)}}}", *meant, self.MORE)


class WrittenTables(InAFolder):
    def run_program(self, *arguments):
        return subprocess.run([os.path.join(BUILD, "write_recipe_files"), *arguments], capture_output=True,
                              encoding="utf-8", cwd=self.folder, check=False)

    def test_a_page_with_an_old_table_is_reported_and_written_again(self):
        for name in ("recipe-format.md", "result-format.md"):
            with open(os.path.join(SOURCE, "docs", name), encoding="utf-8") as file:
                page = file.read()
            old = page.replace("nm", "km")
            self.assertNotEqual(old, page)
            self.write(name, page)
            self.assertEqual(self.run_program("--check", name).returncode, 0)
            self.write(name, old)
            check = self.run_program("--check", name)
            self.assertEqual((check.returncode, check.stderr),
                             (1, f"{name} is out of date; run write_recipe_files --tables\n"))
            self.assertEqual(self.read(name), old.encode())
            self.assertEqual(self.run_program("--tables", name).returncode, 0)
            self.assertNotEqual(self.read(name), old.encode())
            self.assertEqual(self.run_program("--check", name).returncode, 0)

    def test_other_options_are_rejected(self):
        for arguments in ((), ("--tables",), ("--table", "x.md"), ("--check", "x.md", "y.md")):
            self.assertEqual(self.run_program(*arguments).returncode, 2)


class Completion(InAFolder):
    def complete(self, line):
        """The candidates in bash for a command line that ends where the cursor is."""
        words = ["vorlen", *line.split(" ")]
        script = ('source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _vorlen; '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        run = subprocess.run(["bash", "--norc", "-c", script, "bash", COMPLETION, VORLEN, *words[1:]], cwd=self.folder,
                             capture_output=True, encoding="utf-8", check=False)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return set(run.stdout.split())

    def test_commands_and_options(self):
        self.assertEqual(self.complete("ru"), {"run"})
        commands = {"run", "show", "diff", "new", "explain", "report", "compare", "observe", "design", "window", "map", "sweep"}
        self.assertLess(commands, self.complete("") | {""})
        self.assertEqual(self.complete("--v"), {"--version"})
        self.assertEqual(self.complete("run --ke"), {"--keep-going"})
        self.assertEqual(self.complete("show a.txt --"), {"--help", "--csv", "--json", "--rows", "--all"})
        self.assertEqual(self.complete("nonsense "), set())

    def test_files_by_what_the_command_takes(self):
        for name in ("a.xml", "b.xml", "a.txt", "a.json"):
            self.write(name, "")
        os.mkdir(self.path("folder"))
        self.assertEqual(self.complete("run "), {"a.xml", "b.xml", "folder"})
        self.assertEqual(self.complete("run a.xml -j 2 b"), {"b.xml"})
        self.assertEqual(self.complete("run -j "), set())
        self.assertEqual(self.complete("run --output-dir "), {"folder"})
        self.assertEqual(self.complete("run -o a"), {"a.txt"})
        self.assertEqual(self.complete("show "), {"a.txt", "folder"})
        self.assertEqual(self.complete("diff a.txt "), {"a.txt", "folder"})
        self.assertEqual(self.complete("new ingan_g"), {"ingan_gan_mqw"})
        self.assertEqual(self.complete("new algan_tension --o"), {"--output"})

    def test_values_of_which_there_are_a_few(self):
        self.assertEqual(self.complete("run --scheme "), {"continuous", "staged"})
        self.assertEqual(self.complete("check a.xml --format j"), {"json"})
        self.assertEqual(self.complete("explain step "), set())

    def test_the_tab_key_in_a_real_bash(self):
        self.write("growth run.xml", "")
        master, slave = pty.openpty()
        path = {"PATH": BUILD + os.pathsep + os.environ["PATH"], "TERM": "dumb", "PS1": "$ ", "INPUTRC": "/dev/null"}
        with subprocess.Popen(["bash", "--norc", "--noprofile", "-i"], cwd=self.folder, env=environment(**path),
                              stdin=slave, stdout=slave, stderr=slave, start_new_session=True) as bash:
            os.close(slave)
            os.write(master, f"source '{COMPLETION}'\nvorlen() {{ printf '<%s>' \"$@\"; }}\n".encode())
            os.write(master, f"complete -r; source '{COMPLETION}'\nunset -f vorlen\n".encode())
            os.write(master, b"vorlen expl\t--he\t >help.txt; vorlen run gro\t -o out.txt; exit\n")
            shown = b""
            try:
                while True:
                    block = os.read(master, 65536)
                    if not block:
                        break
                    shown += block
            except OSError:
                pass
            bash.wait(timeout=60)
        os.close(master)
        self.assertIn(b"Usage: vorlen explain", self.read("help.txt"), shown)
        self.assertIn(b"Error reading file growth run.xml", shown)  # it is empty


class Python(InAFolder):
    def write_interpreter(self, name, fits):
        """A fake Python: says whether modules are found (fits: True, False, or the one that is not), otherwise prints
        its arguments."""
        answer = {True: "exit 0", False: "exit 1"}.get(fits, f'case "$*" in *{fits}*) exit 1;; esac; exit 0')
        self.write(name, f'#!/bin/sh\nif [ "$1" = -c ]; then {answer}; fi\n'
                   'printf "%s\\n" "$VORLEN_LIBRARY" "$@"\nexit 7\n')
        os.chmod(self.path(name), 0o755)
        return self.path(name)

    def test_commands_of_python_are_forwarded_to_the_package_with_all_arguments(self):
        python = self.write_interpreter("python", fits=True)
        settings = environment(VORLEN_PYTHON=python)
        del settings["VORLEN_LIBRARY"]
        for command in ("report", "compare", "observe", "design", "window", "map", "sweep"):
            run = self.run_tool(command, "a b.txt", "--help", "-x", env=settings)
            self.assertEqual((run.returncode, run.stderr), (7, ""))
            self.assertEqual(run.stdout.splitlines(),
                             [os.path.realpath(LIBRARY), "-m", "vorlen", command, "a b.txt", "--help", "-x"])

    def test_an_unsuitable_interpreter_is_skipped(self):
        folder = os.path.join(self.folder, "bin")
        os.mkdir(folder)
        self.write_interpreter("bin/python3", fits=True)
        unfit = self.write_interpreter("unfit", fits=False)
        settings = environment(VORLEN_PYTHON=unfit, PATH=folder + os.pathsep + os.environ["PATH"], VORLEN_LIBRARY="own")
        run = self.run_tool("report", env=settings)
        self.assertEqual((run.returncode, run.stdout), (7, "own\n-m\nvorlen\nreport\n"))

    def test_a_report_needs_jinja2_and_a_sweep_does_not(self):
        settings = environment(VORLEN_PYTHON=self.write_interpreter("python", fits="jinja2"),
                               PYTHONHOME=self.path("nowhere"))
        self.assertEqual(self.run_tool("sweep", env=settings).returncode, 7)
        run = self.run_tool("report", env=settings)
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertIn("Python 3 with numpy, pandas, jinja2 and the package vorlen", run.stderr)
        self.assertIn("\npython3-numpy, python3-pandas, python3-jinja2). Tried", run.stderr)

    def test_a_design_needs_scipy(self):
        settings = environment(VORLEN_PYTHON=self.write_interpreter("python", fits="scipy"),
                               PYTHONHOME=self.path("nowhere"))
        self.assertEqual(self.run_tool("sweep", env=settings).returncode, 7)
        run = self.run_tool("design", env=settings)
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertIn("python3-scipy", run.stderr)

    def test_each_module_that_is_looked_for_is_needed(self):
        for module in ("vorlen", "numpy", "pandas"):
            settings = environment(VORLEN_PYTHON=self.write_interpreter("python", fits=f" {module}"),
                                   PYTHONHOME=self.path("nowhere"))
            for command in ("report", "compare", "window", "map", "sweep"):
                self.assertEqual(self.run_tool(command, env=settings).returncode, 1)
        settings["VORLEN_PYTHON"] = self.write_interpreter("python", fits="lxml")
        self.assertEqual(self.run_tool("report", env=settings).returncode, 7)

    def test_without_an_interpreter_the_message_names_what_is_missing(self):
        unfit = self.write_interpreter("unfit", fits=False)
        # Python does not start with a home that does not exist.
        settings = environment(VORLEN_PYTHON=unfit, PYTHONHOME=self.path("nowhere"))
        run = self.run_tool("sweep", env=settings)
        self.assertEqual((run.returncode, run.stdout), (1, ""))
        self.assertIn("(Debian packages:\npython3-numpy, python3-pandas). ", run.stderr)
        self.assertIn(f"Tried without success: {unfit}, python3, /usr/bin/python3.\n", run.stderr)


if __name__ == "__main__":
    unittest.main()

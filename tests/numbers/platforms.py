"""The platforms whose results are compared, and how to run recipes on each.

A platform runs all its recipes in one process: tests/numbers/run_recipes.c linked with the library of that platform, or
vorlen.wasm in node.
"""
import dataclasses
import json
import os
import subprocess
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))

REFERENCE = "linux"
# glibc has two versions of exp, log, pow and others, which round differently: with fused multiply-adds, for processors
# that have them, and without. The C library of the WebAssembly module computes as the second one does.
WITHOUT_FMA = {"GLIBC_TUNABLES": "glibc.cpu.hwcaps=-FMA,-FMA4,-AVX2"}


@dataclasses.dataclass(frozen=True)
class Platform:
    """How one platform runs recipes."""
    name: str
    title: str
    command: tuple  # followed by the folder of the results and the list of recipes
    environment: dict = dataclasses.field(default_factory=dict)

    def is_built(self):
        return os.path.exists(self.command[-1])

    def run(self, folder, recipes):
        """Runs the recipes, whose names must differ. A list of {name, message, milliseconds, ...}; folder receives
        NAME.txt."""
        os.makedirs(folder, exist_ok=True)
        with tempfile.NamedTemporaryFile("w", suffix=".list", encoding="utf-8", delete=False) as file:
            file.writelines(f"{os.path.abspath(recipe)}\n" for recipe in recipes)
        try:
            done = subprocess.run([*self.command, folder, file.name], env={**os.environ, **self.environment},
                                  capture_output=True, encoding="utf-8", check=False)
        finally:
            os.remove(file.name)
        runs = [json.loads(line) for line in done.stdout.splitlines()]
        if done.returncode != 0 or len(runs) != len(recipes):
            last = runs[-1]["name"] if runs else "none"
            raise RuntimeError(f"{self.title}: exit status {done.returncode} after {len(runs)} of {len(recipes)} "
                               f"recipes, the last one {last}\n{done.stderr}")
        return runs


def known(release=os.path.join(SOURCE, "build", "release"), arm64=os.path.join(SOURCE, "build", "arm64"),
          windows=os.path.join(SOURCE, "build", "windows")):
    """All platforms by name. The arguments are the folders of the builds."""
    native = (os.path.join(release, "tests", "numbers", "run_recipes"),)
    platforms = (
        Platform(REFERENCE, "Linux, x86-64", native),
        Platform("linux-without-fma", "Linux, x86-64 without FMA", native, WITHOUT_FMA),
        Platform("arm64", "Linux, arm64", ("qemu-aarch64-static", "-L", "/usr/aarch64-linux-gnu",
                                           os.path.join(arm64, "tests", "numbers", "run_recipes"))),
        Platform("windows", "Windows, x86-64", (os.path.join(SOURCE, "scripts", "wine.sh"),
                                                os.path.join(windows, "src", "api", "run_recipes.exe"))),
        Platform("wasm", "WebAssembly", ("node", os.path.join(HERE, "run_module.mjs"),
                                         os.path.join(release, "wasi", "vorlen.wasm"))),
    )
    return {platform.name: platform for platform in platforms}

#!/usr/bin/env python3
"""Measures the live page in a headless Chromium: bench/live_page.py [RECIPE ...]

Prints the size of the page, the time until its first picture, and for each recipe (default: the quantum wells and the
blue LED of the examples) how often it is drawn again while a slider moves: each movement of the temperature of a stage
with indium sets the recipe, runs it in the page's worker, draws what grows and waits until the browser has painted.
Medians of 150 movements, the first 20 left out. A slider gives at most one event per frame, so 60 redraws a second are
the most that can be seen.

  edit    ms in the script that changes the recipe
  run     ms until the outcome, with the solver and the transfer of the rows
  draw    ms in the script that draws
  paint   ms until the frame after it is done
  rate    redraws per second

Uses the command vorlen (VORLEN, or that of build/release).
"""

from __future__ import annotations

import argparse
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "python" / "tests"), str(ROOT / "python")]

from browser import Browser  # noqa: E402

EXAMPLES = [ROOT / "examples" / name for name in ("ingan_gan_mqw.xml", "blue_led.xml")]
MOVES, WARM = 170, 20
# Moves the slider of the temperature of the chosen stage, and measures.
SCRIPT = """
const [path, moves, warm, done] = arguments, found = [];
(async () => {
  const slider = document.querySelector(`[data-key="${path}@slider"]`), first = Number(slider.value);
  const show = vorlen.growth.show;
  let finish, times;
  vorlen.growth.show = (...all) => { times.answer = performance.now(); show(...all); times.drawn = performance.now(); finish(); };
  for (let k = 0; k < moves; ++k) {
    times = { begin: performance.now() };
    const shown = new Promise((resolve) => { finish = resolve; });
    slider.value = String(first + (k % 2 ? 1 : -1) * Number(slider.step) * (1 + k % 7));
    slider.dispatchEvent(new Event("input", { bubbles: true }));
    times.edited = performance.now();
    await shown;
    await new Promise((resolve) => requestAnimationFrame(() => { const c = new MessageChannel(); c.port1.onmessage = resolve; c.port2.postMessage(0); }));
    const end = performance.now();
    if (k >= warm) found.push([times.edited - times.begin, times.answer - times.edited, times.drawn - times.answer, end - times.drawn, end - times.begin]);
  }
  vorlen.growth.show = show;
  done(found);
})();
"""


def main() -> int:
    parser = argparse.ArgumentParser(description="Measures the live page: size, first picture, redraws per second.")
    parser.add_argument("recipes", metavar="RECIPE", nargs="*", type=Path, default=EXAMPLES)
    options = parser.parse_args()
    tool = os.environ.get("VORLEN", str(ROOT / "build" / "release" / "tools" / "vorlen"))
    browser = Browser()
    browser.driver.set_script_timeout(300)
    try:
        with tempfile.TemporaryDirectory() as folder:
            for recipe in options.recipes:
                measure(browser, tool, recipe, Path(folder) / "page.html")
    finally:
        browser.close()
    return 0


def measure(browser: Browser, tool: str, recipe: Path, page: Path) -> None:
    subprocess.run([tool, "live", recipe, "-o", page], check=True, stdout=subprocess.DEVNULL)
    browser.driver.get("about:blank")
    browser.command("Emulation.setDeviceMetricsOverride", width=1440, height=900, deviceScaleFactor=1, mobile=False)
    begin = time.monotonic()
    browser.driver.get(page.as_uri())
    browser.wait("return document.documentElement.dataset.runs !== undefined")
    first = browser.run(
        "return performance.getEntriesByName('first-contentful-paint')[0]?.startTime ?? NaN"
    ), 1000 * (time.monotonic() - begin)
    path = browser.run(
        "const stage = [...document.querySelectorAll('button.select')].map(b => b.closest('tr').dataset.path)"
        ".find(p => Number(document.querySelector(`[data-key='${p}/gas_species/Q/TMIn@val']`)?.value) > 0"
        "|| /In/.test(document.querySelector(`[data-key='${p}/name@val']`)?.value ?? ''));"
        "const button = [...document.querySelectorAll('button.select')].find(b => b.closest('tr').dataset.path === stage);"
        "if (button.getAttribute('aria-expanded') !== 'true') button.click(); return stage;"
    )
    found = browser.driver.execute_async_script(SCRIPT, f"{path}/T", MOVES, WARM)
    edit, run, draw, paint, whole = (sorted(values)[len(values) // 2] for values in zip(*found))
    print(
        f"{recipe.name}: page {page.stat().st_size / 1e6:.2f} MB, first paint {first[0]:.0f} ms, first run shown {first[1]:.0f} ms; "
        f"edit {edit:.1f} ms, run {run:.1f} ms, draw {draw:.1f} ms, paint {paint:.1f} ms, rate {1000 / whole:.0f} per second"
    )


if __name__ == "__main__":
    sys.exit(main())

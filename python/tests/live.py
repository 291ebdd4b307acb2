"""The live page in a browser: what the tests of it share."""

from __future__ import annotations

import json
import subprocess
from pathlib import Path
from typing import Any

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

import vorlen
from browser import Browser
from support import MQW, tool

TABLE, PANEL = "table", "panel"


def write_page(path: Path, recipe: Path | None = None) -> Path:
    """The page that `vorlen live` writes."""
    command = [tool(), "live", *([str(recipe)] if recipe else []), "-o", str(path)]
    done = subprocess.run(command, capture_output=True, encoding="utf-8", timeout=60)
    assert done.returncode == 0, done.stderr
    return path


class Live:
    """A live page that is open."""

    def __init__(self, browser: Browser, page: Path) -> None:
        self.browser, self.page = browser, page

    def open(self, *size: Any, fragment: str = "", fresh: bool = True, **options: Any) -> None:
        """Loads the page, without what an earlier visit has stored unless fresh is false, and waits for its first run."""
        if fresh and self.browser.run("return location.protocol") == "file:":
            # Leaving a page stores its state; there is none to store on a page without the script.
            self.browser.driver.get("about:blank")
        if fresh:
            blank = self.page.with_name("blank.html")
            blank.write_text("<title>blank</title>")
            self.browser.open(blank)
            self.browser.run("localStorage.clear()")
        self.browser.open(self.page, *size, **options)
        if fragment:
            self.browser.driver.get("about:blank")
            self.browser.driver.get(self.page.resolve().as_uri() + fragment)
        self.wait_for_run(0)

    def make_ready(self) -> None:
        """Shows the table of the recipe of wells, as after loading; the page is loaded if it is not there."""
        if self.browser.run("return location.href") != self.page.as_uri() or self.browser.run("return innerWidth") != 1440:
            self.open(1440, 900)
        self.browser.run(
            "document.querySelectorAll('dialog').forEach(d => d.close()); document.getElementById('note-close').click();"
            "document.getElementById('tab-table').click()"
        )
        self.set(MQW.read_text("utf-8"), "wells.xml")
        self.browser.run(
            "for (const [quantity, unit] of Object.entries({temperature: 'K', pressure: 'Pa', metal: 'sccm', gas: 'sccm'})) {"
            "  const list = document.querySelector(`[data-quantity=${quantity}]`);"
            "  if (list.value !== unit) { list.value = unit; list.dispatchEvent(new Event('change')); }"
            "}"
        )

    def wait_for_run(self, before: int, seconds: float = 20) -> None:
        self.browser.wait(f"return Number(document.documentElement.dataset.runs ?? 0) > {before}", seconds)

    def runs(self) -> int:
        """How many outcomes the page has shown."""
        return int(self.browser.run("return Number(document.documentElement.dataset.runs ?? 0)"))

    def settled(self, seconds: float = 20) -> None:
        """Waits until the outcome of the present recipe is shown."""
        self.browser.wait("return vorlen.last !== null && vorlen.last.xml === vorlen.pane.xml()", seconds)

    def wait_for_status(self, start: str, seconds: float = 20) -> None:
        """Waits until the status of the page starts with these words."""
        self.browser.wait(f"return document.getElementById('status-text').textContent.startsWith({json.dumps(start)})", seconds)

    def set(self, xml: str, name: str = "test.xml") -> None:
        """Loads a recipe that can be run and waits for its outcome."""
        self.browser.run("vorlen.pane.setXml(arguments[0], arguments[1])", xml, name)
        self.settled()

    def xml(self) -> str:
        return self.browser.run("return vorlen.pane.xml()")

    def recipe(self) -> vorlen.Recipe:
        return vorlen.Recipe(self.xml().encode())

    def layers(self) -> list[dict[str, Any]]:
        """Of the last run."""
        return self.browser.run("return vorlen.last.outcome.layers")

    def text(self, selector: str) -> str:
        found = self.browser.run("return document.querySelector(arguments[0])?.textContent ?? ''", selector)
        return " ".join(found.replace("\u00a0", " ").split())

    def status(self) -> str:
        return self.text("#status-text")

    def select(self, path: str) -> None:
        """Shows the panel of a stage."""
        self.browser.run(
            "const b = [...document.querySelectorAll('button.select')].find(b => b.closest('tr').dataset.path === arguments[0]);"
            "if (b.getAttribute('aria-expanded') !== 'true') b.click();", path
        )

    def field(self, path: str, attribute: str = "val", view: str = PANEL) -> Any:
        """The field of a value: of the panel or of the table."""
        return self.browser.driver.find_element(By.CSS_SELECTOR, f"[data-key='{path}@{attribute}'][data-view={view}]")

    def shown(self, path: str, attribute: str = "val", view: str = PANEL) -> str:
        return self.browser.run("return arguments[0].value", self.field(path, attribute, view))

    def slider(self, path: str) -> Any:
        return self.browser.driver.find_element(By.CSS_SELECTOR, f"[data-key='{path}@slider']")

    def enter(self, path: str, text: str, attribute: str = "val", view: str = PANEL) -> None:
        """Types a text into a field and so replaces its content."""
        field = self.field(path, attribute, view)
        field.send_keys(Keys.CONTROL, "a")
        field.send_keys(text or Keys.DELETE)

    def keys(self, *keys: str) -> None:
        """Types keys where the focus is; modifiers are held for the last one."""
        chain = ActionChains(self.browser.driver)
        for key in keys[:-1]:
            chain.key_down(key)
        chain.send_keys(keys[-1])
        for key in keys[:-1]:
            chain.key_up(key)
        chain.perform()

    def press(self, words: str) -> None:
        """Presses the button with these words."""
        self.browser.run(
            "[...document.querySelectorAll('button')].find(b => b.textContent === arguments[0] && b.getClientRects().length).click()",
            words,
        )

    def choose(self, selector: str, value: str) -> None:
        self.browser.run(
            "const list = document.querySelector(arguments[0]); list.value = arguments[1];"
            "list.dispatchEvent(new Event('change'));", selector, value,
        )

    def type_xml(self, old: str, new: str) -> None:
        """Replaces the first occurrence of a text in the editor of the XML, which is then shown."""
        self.browser.run("document.getElementById('tab-xml').click()")
        self.browser.run(
            "const editor = document.querySelector('.CodeMirror').CodeMirror, text = editor.getValue();"
            "const at = text.indexOf(arguments[0]); if (at < 0) throw new Error('not found');"
            "editor.replaceRange(arguments[1], editor.posFromIndex(at), editor.posFromIndex(at + arguments[0].length), '+input');",
            old, new,
        )

    def note(self) -> str:
        """The message over the halves of the page; empty if there is none."""
        return self.browser.run("return document.getElementById('note').hidden ? '' : document.getElementById('note-text').textContent")

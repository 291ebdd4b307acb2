"""The search of the manual finds pages, from disk and from a server."""

from __future__ import annotations

import functools
import http.server
import subprocess
import threading
from collections.abc import Iterator
from pathlib import Path

import pytest
from browser import Browser
from selenium.webdriver.common.keys import Keys

from support import ROOT

HITS = "return [...document.querySelectorAll('.md-search-result__link')].map(link => link.href)"


class Server(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_: object) -> None:
        """Prints nothing."""


@pytest.fixture(scope="module")
def site(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The built manual, in a folder with a blank in its name."""
    folder = tmp_path_factory.mktemp("the manual") / "web pages"
    build = ["mkdocs", "build", "--quiet", "--strict", "-f", str(ROOT / "mkdocs.yml"), "-d", str(folder)]
    subprocess.run(build, check=True)
    return folder


@pytest.fixture(scope="module")
def browser() -> Iterator[Browser]:
    window = Browser()
    yield window
    window.close()


def search(browser: Browser, text: str, answer: str) -> None:
    """Adds text to the search field and waits until the line above the hits matches the pattern."""
    field = browser.driver.find_element("css selector", "input.md-search__input")
    browser.run("arguments[0].focus()", field)
    field.send_keys(text)
    browser.wait(f"return /{answer}/.test(document.querySelector('.md-search-result__meta').textContent)")


def follow_a_hit(browser: Browser, site: str) -> None:
    """Searches for a word of the manual, and opens the first page that is found."""
    search(browser, "xyzzy", "No matching documents")
    search(browser, Keys.BACKSPACE * 5 + "showerhead", "^[1-9][0-9]* matching document")
    found = browser.run(HITS)
    assert found and all(link.startswith(site) for link in found)
    browser.driver.find_element("css selector", ".md-search-result__link").click()
    browser.wait("return document.readyState === 'complete' && !location.pathname.endsWith('/index.html')")
    assert browser.driver.current_url.split("?")[0] == found[0].split("?")[0]
    assert "showerhead" in browser.run("return document.querySelector('article').innerText")


def test_from_a_server(browser: Browser, site: Path) -> None:
    handler = functools.partial(Server, directory=str(site))
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        address = f"http://127.0.0.1:{server.server_port}/"
        browser.driver.get(address + "index.html")
        follow_a_hit(browser, address)
        assert not browser.run("return performance.getEntriesByType('resource').some(e => /from_disk/.test(e.name))")
        server.shutdown()
    assert browser.console() == []


def test_from_disk(browser: Browser, site: Path) -> None:
    browser.open(site / "index.html")
    follow_a_hit(browser, site.as_uri() + "/")
    assert browser.console() == []

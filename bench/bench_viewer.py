"""The puzzle player over HTTP at 512x512, the way the page drives it: the time from a pointer
release on an arrow to the last frame of the turn's animation (3x3x3 and Megaminx), the frame
rate during an orbit drag, and frames as PNG against raw RGBA. The anchor of the PNG path is
Pillow writing the same pixels (zlib level 6, as ours), timed interleaved with our writer.
With --browser, headless Chromium plays the page itself with each frame format, decoding
and painting included.

    RAYON_NUM_THREADS=1 PYTHONPATH=python .venv/bin/python bench/bench_viewer.py [--browser]
"""
import argparse
import http.client
import io
import json
import shutil
import threading
import time
import timeit

from PIL import Image as PILImage

import torvane as tv
from torvane import _serve

SIZE = 512
PUZZLES = ["Rubik's Cube (3x3x3)", "Megaminx"]


class Client:
    """One keep-alive connection, as a browser tab holds."""

    def __init__(self, server):
        self.server = server
        self.connection = http.client.HTTPConnection(*server.server_address, timeout=120)
        self.session = self.post("/api/session")["session"]
        self.viewer = server.sessions.get(self.session)

    def post(self, path, body=None):
        self.connection.request("POST", path, body=json.dumps(body or {}))
        response = self.connection.getresponse()
        data = response.read()
        assert response.status == 200, data
        return json.loads(data)

    def command(self, name, **args):
        return self.post(f"/api/{self.session}/{name}", args)

    def frame(self, dt, image_format):
        self.connection.request("GET", f"/api/{self.session}/frame?dt={dt:.1f}&format={image_format}")
        response = self.connection.getresponse()
        data = response.read()
        assert response.status == 200
        return data, json.loads(response.getheader("X-Torvane-State"))

    def pull_until_rest(self, image_format):
        """Frames paced by the time they take, as the page paces them; returns their count."""
        count, last = 0, time.perf_counter() - 0.016
        while True:
            now = time.perf_counter()
            data, state = self.frame(min((now - last) * 1e3, 100.0), image_format)
            last, count = now, count + 1
            assert len(data) > 1000
            if not state["moving"]:
                return count


def arrow_point(puzzle):
    for i in range(-20, 21):
        for j in range(-20, 21):
            arrow = puzzle.arrow_at(i / 20, j / 20)
            if arrow is not None:
                return i / 20, j / 20, arrow
    raise AssertionError("no arrow in view")


def click_to_rest(client, image_format):
    """Milliseconds from the release to the last frame, and the frames drawn on the way."""
    with client.viewer.lock:
        x, y, arrow = arrow_point(client.viewer.puzzle)
        before = client.viewer.puzzle.history_length
    client.command("pointer", kind="down", x=x, y=y)
    start, cpu = time.perf_counter(), time.process_time()
    state = client.command("pointer", kind="up", x=x, y=y)
    frames = client.pull_until_rest(image_format)
    elapsed, cpu = time.perf_counter() - start, time.process_time() - cpu
    assert state["turns"] == before + 1
    return elapsed * 1e3, cpu * 1e3, frames


def drag_rate(client, image_format, steps=60):
    client.command("pointer", kind="down", x=0.99, y=-0.99)
    start, cpu = time.perf_counter(), time.process_time()
    for step in range(steps):
        client.command("pointer", kind="move", x=0.99 - 0.01 * step, y=-0.99 + 0.005 * step)
        client.frame(16.0, image_format)
    elapsed, cpu = time.perf_counter() - start, time.process_time() - cpu
    client.command("pointer", kind="up", x=0.4, y=-0.7)
    client.pull_until_rest(image_format)
    return steps / elapsed, steps / cpu


def png_writers(puzzle):
    image = puzzle.render(SIZE, SIZE)
    pixels = PILImage.frombuffer("RGBA", (SIZE, SIZE), image.to_bytes(), "raw", "RGBA", 0, 1)
    ours = image.to_png()
    assert PILImage.open(io.BytesIO(ours)).tobytes() == image.to_bytes()

    def pillow():
        out = io.BytesIO()
        pixels.save(out, "PNG", compress_level=6)
        return out

    ours_times, pillow_times = [], []
    for _ in range(9):
        ours_times.append(min(timeit.repeat(image.to_png, number=1, repeat=1)))
        pillow_times.append(min(timeit.repeat(pillow, number=1, repeat=1)))
    return min(ours_times), min(pillow_times), len(ours), len(pillow().getvalue())


def http_figures(server):
    for name in PUZZLES:
        client = Client(server)
        client.command("load", recipe=name)
        client.pull_until_rest("png")
        with client.viewer.lock:
            ours, pillow, ours_bytes, pillow_bytes = png_writers(client.viewer.puzzle)
        print(f"{name}: PNG of a 512x512 frame: ours {ours * 1e3:6.2f} ms ({ours_bytes} bytes), "
              f"Pillow {pillow * 1e3:6.2f} ms ({pillow_bytes} bytes), ratio {ours / pillow:4.2f}")
        for image_format in ("png", "rgba", "png", "rgba"):
            latency, cpu, frames = click_to_rest(client, image_format)
            rate, cpu_rate = drag_rate(client, image_format)
            print(f"  {image_format:4}: release to last frame {latency:7.1f} ms over {frames:3d} frames, "
                  f"{latency / frames:5.1f} ms a frame ({cpu / frames:5.1f} ms of CPU); "
                  f"orbit drag {rate:5.1f} frames/s ({cpu_rate:5.1f} per CPU second)")


IDLE_SCRIPT = """
const done = arguments[0];
(async () => {
  while (!window.player || window.player.state.moving) await new Promise(requestAnimationFrame);
  done();
})();
"""
CLICK_SCRIPT = """
const [x, y, done] = arguments;
(async () => {
  const player = window.player, frames = player.frames;
  await player.run("pointer", {kind: "down", x, y});
  const start = performance.now();
  await player.run("pointer", {kind: "up", x, y});
  while (player.state.moving || player.frames === frames) await new Promise(requestAnimationFrame);
  done([performance.now() - start, player.frames - frames]);
})();
"""


def browser_figures(server):
    from selenium import webdriver

    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which("chromium")
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--window-size=700,900"):
        options.add_argument(argument)
    driver = webdriver.Chrome(options=options, service=webdriver.ChromeService(shutil.which("chromedriver")))
    driver.set_script_timeout(120)
    try:
        for name in PUZZLES:
            for image_format in ("png", "rgba", "png", "rgba"):
                driver.get(f"{server.url}?format={image_format}")
                driver.execute_async_script(IDLE_SCRIPT)
                driver.execute_async_script('window.player.run("load", {recipe: arguments[0]}).then(arguments[1])', name)
                driver.execute_async_script(IDLE_SCRIPT)
                viewer = next(reversed(server.sessions._viewers.values()))
                with viewer.lock:
                    x, y, _ = arrow_point(viewer.puzzle)
                    before = viewer.puzzle.history_length
                latency, frames = driver.execute_async_script(CLICK_SCRIPT, x, y)
                with viewer.lock:
                    assert viewer.puzzle.history_length == before + 1
                print(f"Chromium, {name}, {image_format:4}: release to last frame painted {latency:7.1f} ms "
                      f"over {frames:3d} frames ({latency / frames:5.1f} ms a frame)")
    finally:
        driver.quit()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--browser", action="store_true", help="also play the page in headless Chromium")
    args = parser.parse_args()
    server = _serve.ViewerServer(0, _serve.viewer_factory(PUZZLES[0], SIZE, 0, None))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    print(f"worker pool: {tv.thread_count()} thread(s); frames {SIZE}x{SIZE}, supersample 1 in motion, 2 at rest")
    http_figures(server)
    if args.browser:
        browser_figures(server)
    server.shutdown()


if __name__ == "__main__":
    main()

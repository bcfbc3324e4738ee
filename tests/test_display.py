import base64
import gc
import io
import subprocess
import sys
import threading

import numpy as np
import pytest
from PIL import Image as PILImage

import torvane as tv
from torvane import interop

CUBE3 = "Rubik's Cube (3x3x3)"


@pytest.fixture(scope="module")
def shell():
    interactive = pytest.importorskip("IPython.core.interactiveshell")
    ipython = interactive.InteractiveShell.instance()
    tv.load_ipython_extension(ipython)
    return ipython


def shown(shell, value):
    return shell.display_formatter.format(value)[0]


def test_image_and_puzzle_show_as_their_pngs(shell):
    image = tv.Image(3, 2, (10, 20, 30, 255))
    data = shown(shell, image)["image/png"]
    assert data == image.to_png()
    assert np.array_equal(np.asarray(PILImage.open(io.BytesIO(data))), np.asarray(image))
    puzzle = tv.Puzzle(CUBE3, seed=1, scramble=5)
    puzzle.turn(0)  # animating: showing must not advance it
    before = (puzzle.animating, puzzle.history_length, puzzle.stickers())
    data = shown(shell, puzzle)["image/png"]
    assert (puzzle.animating, puzzle.history_length, puzzle.stickers()) == before
    assert data == puzzle.render(256, 256).to_png()
    assert PILImage.open(io.BytesIO(data)).size == (256, 256)


def test_batch_shows_a_summary(shell):
    batch = tv.PuzzleBatch(CUBE3, 5, seed=2, scramble=1)
    batch.step([batch.history(i)[0] ^ 1 for i in range(2)] + [0, 0, 0])
    page = shown(shell, batch)["text/html"]
    for text in ["?shell=C$1&amp;cut=C$1/3", "<td style='text-align:left'>5</td>", "tabular",
                 "54 in 6 colors", ">12<", "<td style='text-align:left'>2</td>"]:
        assert text in page
    strip = PILImage.open(io.BytesIO(base64.b64decode(page.split("base64,")[1].split("'")[0])))
    expected = np.asarray(batch.render_states(batch.observations(), 96, 96))
    assert np.array_equal(np.asarray(strip).reshape(96, 5, 96, 4).swapaxes(0, 1), expected)


def test_an_object_held_elsewhere_shows_as_text(shell):
    batch = tv.PuzzleBatch(CUBE3, 100_000, seed=0)
    worker = threading.Thread(target=batch.scramble, args=(400,))
    answers = []
    worker.start()
    while worker.is_alive():
        answers.append(shown(shell, batch))
    worker.join()
    held = [data for data in answers if "text/html" not in data]
    assert held and all(data["text/plain"] == "<PuzzleBatch, in use by another thread>" for data in held)


def test_import_inside_ipython_registers_the_formatters():
    script = ("from IPython.core.interactiveshell import InteractiveShell\n"
              "shell = InteractiveShell.instance()\nimport torvane\n"
              "print(sorted(shell.display_formatter.format(torvane.Image(1, 1))[0]))")
    pytest.importorskip("IPython")
    out = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, check=True)
    assert "image/png" in out.stdout


def arrays_of_every_type():
    batch = tv.PuzzleBatch(CUBE3, 3, seed=4, scramble=6)
    yield batch.solved()                                   # |b1
    yield batch.observations()                             # |u1
    yield tv.PuzzleBatch("?shell=C$1&cut=C$1/7&cut=C$3/7&cut=C$5/7", 2).sticker_ids()  # <u2
    yield batch.render(8, 8, dtype="f4")                   # <f4


@pytest.mark.parametrize("convert", ["numpy", "torch"])
def test_hand_offs_share_memory_and_outlive_the_array(convert):
    if convert == "torch":
        pytest.importorskip("torch", reason="torch is an optional extra; its CPU wheel is not installed")
    hand_off = getattr(interop, f"to_{convert}")
    for array in arrays_of_every_type():
        expected, address = array.to_bytes(), array.__array_interface__["data"][0]
        view = hand_off(array)
        pointer = view.data_ptr() if convert == "torch" else view.ctypes.data
        assert pointer == address and tuple(view.shape) == array.shape
        del array
        gc.collect()
        as_numpy = view.numpy() if convert == "torch" else view
        assert as_numpy.tobytes() == expected

"""build_many and render_many against one Puzzle at a time: the same puzzles, the same pictures,
in entry order on any thread count, and failures reported for the lowest failing entry."""

import hashlib
import os
import subprocess
import sys
import threading

import pytest

import torvane as tv

CUBE = "?shell=C$1&cut=C$1/3"
RECIPES = [CUBE, "Pyraminx", "?shell=D$1&cut=D$1/2"]
WHITE = (255, 255, 255, 255)


def single(recipe, index, size=96, scramble=0, seed=None, yaw=0.0, pitch=0.0, distance=None):
    """Entry `index` of render_many as a caller would draw it with one Puzzle."""
    angles = {"yaw": yaw, "pitch": pitch} if yaw or pitch else {}
    puzzle = tv.Puzzle(recipe, background=WHITE, show_arrows=False, distance=distance, **angles)
    if scramble:
        puzzle.seed((seed or 0) + index)
        puzzle.scramble(scramble)
        puzzle.settle()
    return puzzle.render(size, size).to_bytes()


@pytest.mark.parametrize("options", [
    {},
    {"scramble": 12, "seed": 7},
    {"scramble": 5},
    {"yaw": 30.0, "pitch": -20.0, "distance": 15.0},
    {"distance": 20.0},
])
def test_each_picture_is_the_puzzle_drawn_alone(options):
    images = tv.render_many(RECIPES, 96, 96, **options)
    assert [image.to_bytes() for image in images] == [single(r, i, **options) for i, r in enumerate(RECIPES)]


def test_pictures_repeat_and_entries_draw_from_their_own_seed():
    first = tv.render_many([CUBE, CUBE], 64, 64, scramble=20, seed=7)
    again = tv.render_many([CUBE, CUBE], 64, 64, scramble=20, seed=7)
    assert [i.to_bytes() for i in first] == [i.to_bytes() for i in again]
    assert first[0].to_bytes() != first[1].to_bytes()
    assert tv.render_many([CUBE], 64, 64, scramble=20, seed=8)[0].to_bytes() == first[1].to_bytes()


def test_build_many_makes_what_the_constructor_makes():
    puzzles = tv.build_many(RECIPES + [tv.Recipe.parse(CUBE)])
    for recipe, puzzle in zip(RECIPES + [CUBE], puzzles):
        alone = tv.Puzzle(recipe)
        assert (puzzle.query, puzzle.piece_count, puzzle.grip_count, puzzle.stickers()) == \
               (alone.query, alone.piece_count, alone.grip_count, alone.stickers())
    assert tv.build_many([]) == [] and tv.render_many(()) == []


class Unprintable(str):
    def __str__(self):
        raise ValueError("no text")


@pytest.mark.parametrize("recipes, error, text", [
    ("?shell=C$1", TypeError, "Can't extract `str` to `Vec`"),
    ([CUBE, "?shell=Q$1", "?shell=Q$2"], RuntimeError, "?shell=Q$1: unknown polyhedron: 'Q'"),
    ([CUBE, "?shell=Q$1", CUBE, "no such puzzle"], ValueError, 'no cataloged puzzle named "no such puzzle"'),
    ([CUBE, "?shell=Q$1", CUBE, "?shell=Q$2", 5], TypeError,
     "expected a recipe query string, a catalog name or a Recipe, not int"),
    ([Unprintable("?shell=Q$1")], RuntimeError, "?: unknown polyhedron: 'Q'"),
])
@pytest.mark.parametrize("function", [tv.build_many, tv.render_many])
def test_the_lowest_failing_entry_is_raised(function, recipes, error, text):
    with pytest.raises(error) as raised:
        function(recipes)
    assert str(raised.value) == text


@pytest.mark.parametrize("keywords, error", [
    ({"yaw": None}, TypeError),
    ({"background": None}, TypeError),
    ({"scramble": -1}, OverflowError),
    ({"width": 100000, "height": 100000}, ValueError),
])
def test_bad_keywords_fail_before_entries_are_read(keywords, error):
    with pytest.raises(error):
        tv.render_many(["no such puzzle"], **keywords)


def test_python_threads_run_while_a_list_is_drawn():
    ticks, done = [], threading.Event()

    def count():
        while not done.is_set():
            ticks.append(1)

    thread = threading.Thread(target=count)
    thread.start()
    try:
        tv.render_many(["Megaminx"] * 4, 256, 256)
    finally:
        done.set()
        thread.join()
    assert ticks


LISTS = """
import hashlib, torvane as tv
h = hashlib.sha256()
for image in tv.render_many(["?shell=C$1&cut=C$1/3", "Megaminx", "Pyraminx", "Skewb"] * 2, 80, 60, scramble=9, seed=3):
    h.update(image.to_bytes())
for puzzle in tv.build_many(["Megaminx", "Skewb", "?shell=C$1&cut=C$1/3"]):
    h.update(repr(puzzle.stickers()).encode())
print(h.hexdigest())
"""


def test_lists_are_the_same_bytes_on_any_thread_count():
    digests = set()
    for threads in ("1", "2"):
        env = dict(os.environ, RAYON_NUM_THREADS=threads)
        digests.add(subprocess.run([sys.executable, "-c", LISTS], env=env, capture_output=True, text=True,
                                   check=True).stdout)
    assert len(digests) == 1

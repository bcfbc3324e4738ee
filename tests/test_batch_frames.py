"""Pictures of a tabular batch, painted by lookup, against Puzzle.render of the same states: equal
bytes when solved, the same picture but for seams when scrambled, and every layout and element
type a reshaping of one painted frame."""

import hashlib
import os
import subprocess
import sys

import numpy as np
import pytest

import torvane as tv

CUBE = "Rubik's Cube (3x3x3)"


def drawn(recipe, width, height, actions=()):
    puzzle = tv.Puzzle(recipe, show_arrows=False)
    for action in actions:
        puzzle.apply_action(action)
    return np.asarray(puzzle.render(width, height))


@pytest.mark.parametrize("recipe", [CUBE, "Megaminx", "Pyraminx", "2x2x2 Cube"])
@pytest.mark.parametrize("width, height", [(64, 64), (45, 70), (100, 33)])
def test_solved_copies_are_painted_as_the_puzzle_is_drawn(recipe, width, height):
    batch = tv.PuzzleBatch(recipe, 3)
    block = np.asarray(batch.render(width, height))
    assert block.shape == (3, height, width, 4)
    for frame in block:
        assert np.array_equal(frame, drawn(recipe, width, height))


VIEWS = [
    {"supersample": 1},
    {"supersample": 3, "line_width": 2.5},
    {"background": (0, 0, 0, 255), "yaw": 30.0, "pitch": 20.0},
    {"show_edges": False, "fov": 20.0},
    {"show_pieces": False, "distance": 9.0},
]


@pytest.mark.parametrize("view", VIEWS)
def test_configured_views_are_painted_as_the_puzzle_draws_them(view):
    batch = tv.PuzzleBatch("Megaminx", 2, **view)
    again = tv.PuzzleBatch("Megaminx", 2)
    again.configure(**view)
    expected = np.asarray(tv.Puzzle("Megaminx", show_arrows=False, **view).render(57, 41))
    for block in (batch.render(57, 41), again.render(57, 41)):
        assert all(np.array_equal(frame, expected) for frame in np.asarray(block))


@pytest.mark.parametrize("recipe", ["24-Cube / Little Chop", "Helicopter Cube"])
def test_copies_of_simulators_are_drawn_from_their_own_geometry(recipe):
    batch = tv.PuzzleBatch(recipe, 3, yaw=20.0, pitch=30.0)
    assert not batch.is_tabular
    rng = np.random.default_rng(1)
    actions = rng.integers(0, batch.action_count, (6, len(batch)))
    for row in actions:
        try:
            batch.step(row)
        except tv.PuzzleError:  # a copy off its lattice has no solved test; its move was made
            pass
    block = np.asarray(batch.render(48, 40, channels=3, dtype="f4"))
    for copy in range(len(batch)):
        puzzle = tv.Puzzle(recipe, show_arrows=False, yaw=20.0, pitch=30.0)
        for action in actions[:, copy]:
            puzzle.apply_action(int(action))
        expected = np.asarray(puzzle.render(48, 40))[..., :3].astype(np.float32) / np.float32(255)
        assert np.array_equal(block[copy], expected)
    with pytest.raises(tv.PuzzleError, match="this puzzle has no drawing table"):
        batch.render_states(np.zeros(batch.sticker_count, dtype=np.uint8))


@pytest.mark.parametrize("recipe", [CUBE, "Megaminx", "Skewb"])
def test_scrambled_copies_differ_from_the_drawn_puzzle_only_on_seams(recipe):
    batch = tv.PuzzleBatch(recipe, 4)
    rng = np.random.default_rng(3)
    actions = rng.integers(0, batch.action_count, (12, len(batch)))
    for row in actions:
        batch.step(row)
    block = np.asarray(batch.render(128, 128))
    for copy in range(len(batch)):
        differs = np.any(block[copy] != drawn(recipe, 128, 128, actions[:, copy]), axis=2)
        assert differs.mean() < 0.005, (copy, differs.mean())


def test_every_layout_and_type_is_one_painted_frame():
    batch = tv.PuzzleBatch(CUBE, 5, seed=2, scramble=7)
    frames = np.asarray(batch.render(40, 30))
    assert np.array_equal(np.asarray(batch.render_states(batch.observations(), 40, 30)), frames)
    assert np.array_equal(np.asarray(batch.render(40, 30, channels=3)), frames[..., :3])
    assert np.array_equal(np.asarray(batch.render(40, 30, channels_first=True)), frames.transpose(0, 3, 1, 2))
    floats = np.asarray(batch.render(40, 30, dtype="float32"))
    assert floats.dtype == np.float32 and np.array_equal(floats, frames.astype(np.float32) / np.float32(255))
    assert np.array_equal(np.asarray(batch.render_states(batch.observations(), 40, 30, dtype="f4")), floats)
    images = batch.frames(40, 30)
    assert [np.asarray(image).tolist() for image in images] == frames.tolist()
    images[0].fill((1, 2, 3, 4))
    assert np.array_equal(np.asarray(images[1]), frames[1])


def test_states_given_as_colors_paint_past_the_palette_black():
    batch = tv.PuzzleBatch(CUBE, 1)
    colors = np.asarray(batch.observations()).astype(np.int64)
    solved = np.asarray(batch.render(32, 32))[0]
    stranger = np.asarray(batch.render_states(np.full_like(colors, 200), 32, 32))[0]
    changed = np.any(stranger != solved, axis=2)
    assert changed.mean() > 0.1 and np.all(stranger[changed] == [0, 0, 0, 255])
    assert np.asarray(batch.render_states(np.tile(colors, (3, 1)), 32, 32)).shape == (3, 32, 32, 4)
    assert np.asarray(batch.render_states([], 32, 32)).shape == (0, 32, 32, 4)


def digest(batch):
    return hashlib.sha256(np.asarray(batch.sticker_ids()).tobytes()).hexdigest()


@pytest.mark.parametrize("call, error, text", [
    (lambda b: b.render(channels=2, dtype="float64"), ValueError, 'dtype must be "u1" or "f4", not "float64"'),
    (lambda b: b.render_states(b.observations(), channels=2, dtype="float64"), ValueError,
     "a frame has 3 or 4 channels, not 2"),
    (lambda b: b.render(8, 8, dtype='a"\\'), ValueError, 'dtype must be "u1" or "f4", not "a\\"\\\\"'),
    (lambda b: b.render_states([1, 2, 3]), ValueError,
     "a state of this puzzle is 54 colors, and 3 is not a whole number of them"),
    (lambda b: b.render(2**31, 2**31), ValueError, None),
    (lambda b: b.render(channels=2**40), OverflowError, None),
])
def test_refused_pictures_change_nothing(call, error, text):
    batch = tv.PuzzleBatch(CUBE, 3, seed=1, scramble=4)
    before = digest(batch)
    with pytest.raises(error) as raised:
        call(batch)
    assert text is None or str(raised.value) == text
    assert digest(batch) == before


PICTURES = """
import hashlib, numpy as np, torvane as tv
b = tv.PuzzleBatch("Megaminx", 33, seed=5, scramble=9)
h = hashlib.sha256(np.asarray(b.render(47, 31)).tobytes())
h.update(np.asarray(b.render_states(b.observations(), 20, 20, channels_first=True, dtype="f4")).tobytes())
print(h.hexdigest())
"""


def test_pictures_are_the_same_bytes_on_any_thread_count():
    outputs = {subprocess.run([sys.executable, "-c", PICTURES], env=dict(os.environ, RAYON_NUM_THREADS=n),
                              capture_output=True, text=True, check=True).stdout for n in ("1", "2")}
    assert len(outputs) == 1

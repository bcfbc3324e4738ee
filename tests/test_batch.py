import gc
import os
import subprocess
import sys
import threading

import numpy as np
import pytest
import sympy.combinatorics as comb
from hypothesis import given, settings, strategies as st
from hypothesis.extra import numpy as hnp

import torvane as tv

CUBE3 = "?shell=C$1&cut=C$1/3"
MASK64 = (1 << 64) - 1


@pytest.fixture(scope="module")
def cube():
    return tv.PuzzleBatch(CUBE3, 4, seed=0)


# ---- SplitMix64 and the walk, written the way a NumPy user would ----

def splitmix(state):
    """Draws one output from each uint64 state; returns (new states, outputs)."""
    with np.errstate(over="ignore"):
        state = state + np.uint64(0x9E3779B97F4A7C15)
        z = state
        z = (z ^ (z >> np.uint64(30))) * np.uint64(0xBF58476D1CE4E5B9)
        z = (z ^ (z >> np.uint64(27))) * np.uint64(0x94D049BB133111EB)
        return state, z ^ (z >> np.uint64(31))


def numpy_walk(ids, perms, states, last, depth):
    """The walk with the no-inversion rule, vectorised over copies; returns ids, states, moves."""
    count = perms.shape[0]
    moves = []
    for _ in range(depth):
        states, z = splitmix(states)
        a = (z % np.uint64(count)).astype(np.int64)
        if count >= 3:
            a = np.where((last >= 0) & ((a ^ last) == 1), (a + 2) % count, a)
        ids = np.take_along_axis(ids, perms[a], axis=1)
        last = a
        moves.append(a)
    return ids, states, np.array(moves).T.reshape(len(ids), depth)


def test_splitmix_outputs_from_state_zero():
    state, first = splitmix(np.zeros(1, np.uint64))
    _, second = splitmix(state)
    assert (int(first[0]), int(second[0])) == (0xE220A8397B1DCDAF, 0x6E789E6AA1B965F4)


@pytest.mark.parametrize("seed", [None, 0, 2**64 - 3])
def test_walks_match_the_numpy_walk(seed):
    count = 64
    b = tv.PuzzleBatch(CUBE3, count, seed=seed)
    perms = np.asarray(b.permutations).astype(np.int64)
    states = (np.arange(count, dtype=np.uint64) ^ np.uint64(0x2545F4914F6CDD1D) if seed is None
              else (np.uint64(seed) + np.arange(count, dtype=np.uint64)))
    ids = np.tile(np.arange(54), (count, 1))
    ids, states, first = numpy_walk(ids, perms, states, np.full(count, -1), 7)
    b.reset(scramble=7)
    # scramble continues from each copy's last move
    ids, states, second = numpy_walk(ids, perms, states, first[:, -1], 5)
    b.scramble(5)
    assert np.array_equal(np.asarray(b.sticker_ids()), ids)
    expected = np.concatenate([first, second], axis=1)
    assert [b.history(i) for i in range(count)] == expected.tolist()


def test_walks_never_invert_their_last_move_but_one_grip_may():
    b = tv.PuzzleBatch(CUBE3, 256, seed=11, scramble=30)
    for i in range(256):
        h = b.history(i)
        assert all(x ^ y != 1 for x, y in zip(h, h[1:]))
    one = tv.PuzzleBatch("?shell=C$1&cut=1,0,0$-1/6", 64, seed=5, scramble=6)
    assert one.action_count == 2
    assert any(x ^ y == 1 for i in range(64) for x, y in zip(one.history(i), one.history(i)[1:]))


@pytest.mark.parametrize("depth, distinct", [(1, 12), (2, 114)])
def test_quarter_turn_distance_counts(depth, distinct):
    b = tv.PuzzleBatch(CUBE3, 2**16, seed=1)
    b.reset(scramble=depth)
    assert len(np.unique(np.asarray(b.sticker_ids()), axis=0)) == distinct


def test_walked_rows_lie_in_the_group_and_orders_match_sympy():
    b = tv.PuzzleBatch(CUBE3, 8, seed=3, scramble=25)
    perms = [comb.Permutation(row) for row in np.asarray(b.permutations).tolist()]
    group = comb.PermutationGroup(perms)
    for row in np.asarray(b.sticker_ids()).tolist():
        assert group.contains(comb.Permutation(row))
    c = tv.PuzzleBatch(CUBE3, 1)
    a0, a1 = 0, 2
    order = (perms[a1] * perms[a0]).order()  # sympy composes left to right
    for k in range(1, order + 1):
        c.step([a0])
        c.step([a1])
        assert bool(c.solved()[0]) == (k == order)


# ---- the engine against NumPy models and single puzzles ----

@pytest.mark.parametrize("name", ["2x2x2 Cube", CUBE3, "4x4x4 Cube", "Pyraminx", "Megaminx"])
def test_rows_follow_the_single_puzzle(name):
    count, depth = 2, 4
    b = tv.PuzzleBatch(name, count, seed=9)
    rng = np.random.default_rng(0)
    actions = rng.integers(0, b.action_count, size=(depth, count))
    for row in actions:
        b.step(row)
    for i in range(count):
        p = tv.Puzzle(name)
        for a in actions[:, i]:
            assert p.apply_action(int(a))
        assert np.asarray(b.sticker_ids())[i].tolist() == p.sticker_ids()
        assert np.asarray(b.observations())[i].tolist() == p.stickers()
    assert b.solved_stickers == p.solved_stickers and b.palette == p.palette


def test_step_undo_and_queries_match_numpy():
    count = 32
    b = tv.PuzzleBatch(CUBE3, count, seed=2, scramble=9)
    perms = np.asarray(b.permutations).astype(np.int64)
    colors = np.array(b.solved_stickers)
    ids = np.asarray(b.sticker_ids()).astype(np.int64)
    actions = np.random.default_rng(1).integers(0, 12, count)
    solved, applied = b.step(actions)
    stepped = np.take_along_axis(ids, perms[actions], axis=1)
    assert np.array_equal(np.asarray(b.sticker_ids()), stepped)
    assert np.asarray(applied).all() and applied.typestr == "|b1"
    assert np.array_equal(np.asarray(solved), (colors[stepped] == colors).all(axis=1))
    assert np.array_equal(np.asarray(b.observations()), colors[stepped])
    one_hot = np.eye(b.color_count, dtype=np.uint8)[colors[stepped]].reshape(count, -1)
    assert np.array_equal(np.asarray(b.one_hot()), one_hot)
    assert [h[-1] for h in map(b.history, range(count))] == actions.tolist()
    flags = np.arange(count) % 3 == 0
    undone = b.undo(flags)
    inverse = np.argsort(perms[actions], axis=1)
    expected = np.where(flags[:, None], np.take_along_axis(stepped, inverse, axis=1), stepped)
    assert np.array_equal(np.asarray(undone), flags)
    assert np.array_equal(np.asarray(b.sticker_ids()), expected)
    assert b.move_counts == [10 - f for f in flags.tolist()]
    assert np.asarray(b.action_masks()).shape == (count, 12) and np.asarray(b.action_masks()).all()


def test_solve_reset_and_apply():
    b = tv.PuzzleBatch(CUBE3, 4, seed=0, scramble=5)
    assert tv.PuzzleBatch(CUBE3, 1).undo().tolist() == [False]
    b.solve([0, 0, 2])
    assert b.move_counts == [0, 5, 0, 5] and b.solved().tolist() == [True, False, True, False]
    b.reset_where([False, True, False, False], scramble=2)
    assert b.move_counts == [0, 2, 0, 5]
    b.reset_one(3)
    assert b.move_counts == [0, 2, 0, 0]
    b.reset()
    assert b.apply("A B2' A'") == 4 and b.history(0) == [0, 3, 3, 1]
    assert b.undo().tolist() == [True] * 4 and b.history(2) == [0, 3, 3]
    b.solve([True, True, True, True])
    assert b.solved().tolist() == [True] * 4 and b.move_counts == [0] * 4


def test_constructor_seed_and_scramble_equal_seed_all_then_reset():
    a = tv.PuzzleBatch(CUBE3, 16, seed=77, scramble=12)
    b = tv.PuzzleBatch(CUBE3, 16)
    b.step([1] * 16)
    b.seed_all(77)
    b.reset(scramble=12)
    assert a.sticker_ids().to_bytes() == b.sticker_ids().to_bytes()
    b.seed(3, 77 + 3)
    b.reset_where([3], scramble=12)
    assert a.sticker_ids().to_bytes() == b.sticker_ids().to_bytes()


# ---- arrays ----

def test_arrays_are_views_numpy_shares():
    b = tv.PuzzleBatch(CUBE3, 5, seed=1, scramble=3)
    made = [b.observations(), b.sticker_ids(), b.one_hot(), b.action_masks(), b.solved(), b.permutations,
            *b.step([0] * 5), b.undo()]
    views = [(a, np.asarray(a)) for a in made]
    del b
    gc.collect()
    dtypes = {"|b1": np.bool_, "|u1": np.uint8, "<u2": "<u2", "<u4": "<u4"}
    for a, view in views:
        assert view.base is a and view.ctypes.data == a.__array_interface__["data"][0]
        assert list(a.__array_interface__) == ["shape", "typestr", "version", "data"]
        assert np.array_equal(view, np.frombuffer(a.to_bytes(), dtypes[a.typestr]).reshape(a.shape))
        assert a.tolist() == view.ravel().tolist() and len(a) == a.shape[0] and a.size == view.size
        assert a[-1] == (view[-1].ravel().tolist() if view.ndim > 1 else view[-1].item())
        assert a.size == len(a.to_bytes()) // a.itemsize
    assert repr(views[4][0]) == "<Array shape=(5,) dtype=|b1>"
    assert repr(views[0][0]) == "<Array shape=(5, 54) dtype=|u1>"
    for key in (5, -6, 2**100):
        with pytest.raises(IndexError, match="^index out of range$"):
            views[0][0][key]
    with pytest.raises(TypeError):
        tv.Array()


def test_widths_follow_the_sticker_count():
    b = tv.PuzzleBatch("7x7x7 Cube", 2, seed=0, scramble=3)
    assert b.sticker_count == 294
    assert (b.sticker_ids().typestr, b.permutations.typestr, b.observations().typestr) == ("<u2", "<u2", "|u1")
    assert np.array_equal(np.asarray(b.observations()), np.array(b.solved_stickers)[np.asarray(b.sticker_ids())])


def test_empty_blocks_have_an_address():
    b = tv.PuzzleBatch("?shell=C$1", 3)
    masks = b.action_masks()
    assert masks.shape == (3, 0) and masks.__array_interface__["data"][0] != 0
    assert np.asarray(masks).shape == (3, 0)
    b.scramble(4)
    b.reset(scramble=2)
    assert b.move_counts == [0, 0, 0]


# ---- reading arrays: every way in, against a small model ----

def read_model(obj):
    """What step() reads from `obj`: the flat values, or the exception type and a message start."""
    face = getattr(obj, "__array_interface__", None)
    if isinstance(face, dict) and face.get("strides") is None and "typestr" in face:
        values = np.frombuffer(bytes(obj), dtype=np.dtype(face["typestr"])).astype(np.int64)
        if (values < 0).any():
            return ValueError, "a sticker, a face and a move are all counted from zero"
        return values.tolist()
    flat = list(obj) if isinstance(obj, bytes) else [int(v) for v in np.ravel(np.asarray(obj))]
    if any(v < 0 for v in flat):
        return TypeError, "expected an array, a buffer"
    return flat


layouts = st.sampled_from(["c", "f", "strided", "list", "tuple", "rows", "bytes"])


@settings(max_examples=150, deadline=None)
@given(hnp.arrays(hnp.integer_dtypes(endianness="?"), (2, 3), elements=st.integers(-1, 11)) |
       hnp.arrays(hnp.unsigned_integer_dtypes(endianness="?"), (2, 3), elements=st.integers(0, 11)), layouts)
def test_read_array_ways(values, layout):
    b = tv.PuzzleBatch(CUBE3, 6)
    if layout == "bytes":
        if values.min() < 0:
            return
        obj = bytes(values.astype(np.uint8).ravel().tolist())
    else:
        obj = {"c": values, "f": np.asfortranarray(values), "strided": np.repeat(values, 2, axis=1)[:, ::2],
               "list": values.ravel().tolist(), "tuple": tuple(values.ravel().tolist()),
               "rows": values.tolist()}[layout]
    expected = read_model(obj)
    before = b.sticker_ids().to_bytes()
    if isinstance(expected, tuple):
        with pytest.raises(expected[0], match="^" + expected[1]):
            b.step(obj)
        assert b.sticker_ids().to_bytes() == before
    else:
        assert expected == values.ravel().tolist()
        b.step(obj)
        assert [h[-1] for h in map(b.history, range(6))] == expected


@pytest.mark.parametrize("actions, error, message", [
    ([0, 1, 2], ValueError, "got 3 actions for 4 puzzles"),
    ([0, 1, 2, 99], ValueError, "action 99 out of range (have 12)"),
    ([1, -1, 0, 0], TypeError, "expected an array, a buffer, or a sequence of whole numbers"),
    ("abcd", TypeError, "expected an array, a buffer, or a sequence of whole numbers"),
    (np.array([0, 1, 2, 3.0]), TypeError, "expected an array of whole numbers, not one of <f8"),
    (np.array([0, 1, 2, -1]), ValueError, "a sticker, a face and a move are all counted from zero, and this array "
                                          "holds a negative number"),
    (np.array([0, 1, 2, 2**32]), ValueError, "this array holds a number too large for a sticker slot"),
    ([[0, 1], [2], [3]], None, None),
])
def test_step_arguments(cube, actions, error, message):
    before = cube.sticker_ids().to_bytes()
    if error is None:
        cube.step(actions)
        cube.undo()
        return
    with pytest.raises(error) as info:
        cube.step(actions)
    assert str(info.value) == message
    assert cube.sticker_ids().to_bytes() == before


def test_arrays_read_back_and_refuse_flags(cube):
    ids = cube.sticker_ids()
    with pytest.raises(TypeError) as info:
        cube.step(cube.solved())
    assert str(info.value) == "expected an array of whole numbers, not one of |b1"
    cube.step(tv.PuzzleBatch(CUBE3, 4).sticker_ids()[0][:4])
    cube.undo()
    assert cube.sticker_ids().to_bytes() == ids.to_bytes()


class Face:
    def __init__(self, typestr, data=b"\x00\x00\x00\x00"):
        self.__array_interface__ = {"typestr": typestr, "shape": (4,), "version": 3}
        self.data = data

    def __bytes__(self):
        return self.data


@pytest.mark.parametrize("typestr", ["<", "", "<ux", "<u3", "<f4", "<u16", ">c1"])
def test_hand_made_interfaces(cube, typestr):
    with pytest.raises(TypeError) as info:
        cube.step(Face(typestr))
    assert str(info.value) == "expected an array of whole numbers, not one of " + typestr


def test_big_endian_interfaces_and_partial_tails(cube):
    cube.step(Face(">u2", b"\x00\x01\x00\x02\x00\x03\x00\x04\x09"))
    assert [cube.history(i)[-1] for i in range(4)] == [1, 2, 3, 4]
    cube.undo()


# ---- selectors and argument errors ----

@pytest.mark.parametrize("which, error, message", [
    ([], ValueError, "got 0 flags for 4 puzzles"),
    ([True, False], ValueError, "got 2 flags for 4 puzzles"),
    ([4], IndexError, "puzzle 4 out of range (have 4)"),
    ("ab", TypeError, "Can't extract `str` to `Vec`"),
    (3, TypeError, "expected a list of flags, a list of indices, or None"),
    ([0, -1], TypeError, "expected a list of flags, a list of indices, or None"),
    ([np.True_, 1], TypeError, "expected a list of flags, a list of indices, or None"),
])
def test_which_errors(cube, which, error, message):
    for method in (cube.solve, cube.undo, cube.reset_where):
        with pytest.raises(error) as info:
            method(which)
        assert str(info.value) == message


def test_which_mixes_flags_and_indices_as_indices():
    b = tv.PuzzleBatch(CUBE3, 4, seed=0, scramble=3)
    b.solve([True, 2])
    assert b.move_counts == [3, 0, 0, 3]
    b.solve(np.array([True, False, False, False]))
    assert b.move_counts == [0, 0, 0, 3]


@pytest.mark.parametrize("call, error, message", [
    (lambda: tv.PuzzleBatch(CUBE3, 0), ValueError, "a batch needs at least one puzzle"),
    (lambda: tv.PuzzleBatch(CUBE3, -1), OverflowError, None),
    (lambda: tv.PuzzleBatch(3, -1), OverflowError, None),
    (lambda: tv.PuzzleBatch(3, 1), TypeError, "expected a recipe query string, a catalog name or a Recipe, not int"),
    (lambda: tv.PuzzleBatch(CUBE3, 2**62), ValueError, None),
    (lambda: tv.PuzzleBatch(CUBE3, 1).scramble(2**32), TypeError, "expected a number of moves, or one per puzzle"),
    (lambda: tv.PuzzleBatch(CUBE3, 1).scramble(-1), TypeError, "expected a number of moves, or one per puzzle"),
    (lambda: tv.PuzzleBatch(CUBE3, 2).scramble([1]), ValueError, "got 1 depths for 2 puzzles"),
    (lambda: tv.PuzzleBatch(CUBE3, 2).history(2), IndexError, "puzzle 2 out of range (have 2)"),
    (lambda: tv.PuzzleBatch(CUBE3, 2).reset_one(5), IndexError, "puzzle 5 out of range (have 2)"),
    (lambda: tv.PuzzleBatch(CUBE3, 2).seed(2, 0), IndexError, "puzzle 2 out of range (have 2)"),
    (lambda: tv.PuzzleBatch(CUBE3, 2).apply("A G"), tv.PuzzleError, None),
])
def test_argument_errors(call, error, message):
    with pytest.raises(error) as info:
        call()
    if message is not None:
        assert str(info.value) == message
    if error is OverflowError:
        assert "while processing 'count'" in info.value.__notes__


def test_ctrl_c_interrupts_a_long_apply(interrupted):
    interrupted(lambda: tv.PuzzleBatch(CUBE3, 1).apply("A4000000000"))


def test_apply_fails_whole_before_any_move(cube):
    before = cube.sticker_ids().to_bytes()
    with pytest.raises(tv.PuzzleError):
        cube.apply("A B Q")
    assert cube.sticker_ids().to_bytes() == before


def test_properties_and_repr(cube):
    assert (cube.is_tabular, cube.sticker_count, len(cube), cube.action_count, cube.color_count) == (True, 54, 4, 12, 6)
    assert cube.query == CUBE3 and cube.actions[:3] == ["A", "A'", "B"] and cube.grip_names == list("ABCDEF")
    assert cube.action_index("B'") == 3 and cube.action_index("Z") is None
    assert repr(cube) == f"<PuzzleBatch 4 of {CUBE3} stickers=54 actions=12 tabular>"
    assert tv.PuzzleBatch("Rubik's Cube (3x3x3)", 1).query == CUBE3


def digest(b):
    parts = [b.sticker_ids(), b.solved(), b.one_hot()]
    return b"".join(a.to_bytes() for a in parts), b.move_counts, [b.history(i) for i in range(len(b))]


def test_a_busy_batch_refuses_other_threads_and_refusals_change_nothing():
    b = tv.PuzzleBatch(CUBE3, 6, seed=3, scramble=4)
    entered, leave = threading.Event(), threading.Event()

    class Waiting:
        def __index__(self):
            entered.set()
            leave.wait(10)
            return 2

    worker = threading.Thread(target=lambda: b.reset_one(Waiting(), scramble=1))
    worker.start()
    assert entered.wait(10)
    try:
        for call, message in [(lambda: b.step([0] * 6), "Already borrowed"),
                              (lambda: b.scramble(3), "Already borrowed"),
                              (lambda: b.solved(), "Already borrowed"),
                              (lambda: b.history(0), "Already mutably borrowed"),
                              (lambda: b.move_counts, "Already mutably borrowed")]:
            with pytest.raises(RuntimeError) as info:
                call()
            assert str(info.value) == message
    finally:
        leave.set()
        worker.join()
    twin = tv.PuzzleBatch(CUBE3, 6, seed=3, scramble=4)
    twin.reset_one(2, scramble=1)
    assert digest(b) == digest(twin) and b.move_counts == [4, 4, 1, 4, 4, 4]
    for failing in [lambda: b.step([0, 1, 2, 3, 4, 99]), lambda: b.step([0] * 5), lambda: b.scramble([1] * 7),
                    lambda: b.apply("A B Q"), lambda: b.reset_where([True] * 5, scramble=2), lambda: b.undo([6])]:
        now = digest(b)
        with pytest.raises((ValueError, IndexError, tv.PuzzleError)):
            failing()
        assert digest(b) == now


# ---- the same bytes on any number of threads ----

DIGEST = """
import hashlib, torvane as tv
b = tv.PuzzleBatch("?shell=C$1&cut=C$1/3", 3000, seed=4, scramble=17)
h = hashlib.sha256()
for part in [b.sticker_ids(), b.observations(), b.one_hot(), b.solved(), *b.step([i % 12 for i in range(3000)]),
             b.undo([i % 5 == 0 for i in range(3000)])]:
    h.update(part.to_bytes())
b.reset_where([i % 7 for i in range(3000)], scramble=9)
b.scramble([i % 4 for i in range(3000)])
h.update(b.sticker_ids().to_bytes())
h.update(repr([b.history(i) for i in range(3000)]).encode())
g = tv.PuzzleBatch("Helicopter Cube", 24, seed=6, scramble=5)
for call in [lambda: g.step([i % 24 for i in range(24)]), g.observations, g.action_masks, g.one_hot,
             lambda: g.undo([i % 3 == 0 for i in range(24)]), lambda: g.set_states(g.solved_stickers * 24),
             lambda: [g.history(i) for i in range(24)], g.solve, g.sticker_ids]:
    try:
        out = call()
        parts = out if isinstance(out, tuple) else [out]
        h.update(repr([p.to_bytes() if hasattr(p, "to_bytes") else p for p in parts]).encode())
    except (tv.PuzzleError, ValueError) as error:
        h.update(str(error).encode())
print(tv.thread_count(), h.hexdigest())
"""


def test_results_do_not_depend_on_the_thread_count():
    digests = set()
    for threads in ("1", "2", "8"):
        env = dict(os.environ, RAYON_NUM_THREADS=threads)
        out = subprocess.run([sys.executable, "-c", DIGEST], env=env, capture_output=True, text=True, check=True)
        count, digest = out.stdout.split()
        assert count == threads
        digests.add(digest)
    assert len(digests) == 1

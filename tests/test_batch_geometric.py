"""Batches of puzzles whose moves are not fixed permutations, states put into batches, and the
view of a batch. Single Puzzles and NumPy/SymPy are the oracles."""
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
import sympy.combinatorics as comb

import torvane as tv

CUBE3 = "?shell=C$1&cut=C$1/3"
LITTLE_CHOP = "?shell=C$3*sqrt(2)/4&cut=jC$0"
HELICOPTER = "?shell=C$3*sqrt(2)/4&cut=jC$1/2"
PYRAMORPHIX = "?shell=T$sqrt(2)&cut=C$0"
MASK64 = (1 << 64) - 1
NOT_ARRANGEABLE = ("this batch turns geometry instead of arrays, because its puzzle's moves are not fixed "
                   "permutations, so there is no arrangement to put it into")


def splitmix(state):
    state = (state + 0x9E3779B97F4A7C15) & MASK64
    z = state
    z = ((z ^ (z >> 30)) * 0xBF58476D1CE4E5B9) & MASK64
    z = ((z ^ (z >> 27)) * 0x94D049BB133111EB) & MASK64
    return state, z ^ (z >> 31)


def model_walk(puzzle, state, last, depth, actions):
    """A walk of one copy on a single Puzzle: eight draws a move, refused draws spent."""
    made, budget = [], 8 * depth
    while len(made) < depth and budget > 0:
        budget -= 1
        state, z = splitmix(state)
        a = z % actions
        if actions >= 3 and last is not None and a ^ last == 1:
            a = (a + 2) % actions
        if puzzle.apply_action(a):
            made.append(a)
            last = a
    return made, state, last


def outcome(call):
    """The array's rows, or the PuzzleError's message."""
    try:
        return np.asarray(call()).tolist()
    except tv.PuzzleError as error:
        return str(error)


def puzzles_outcome(puzzles, query):
    for p in puzzles:
        try:
            p.stickers()
        except tv.PuzzleError as error:
            return str(error)
    return [query(p) for p in puzzles]


# ---- the batch of simulators against single puzzles ----

@pytest.mark.parametrize("query", [LITTLE_CHOP, HELICOPTER, PYRAMORPHIX])
def test_walks_and_steps_follow_single_puzzles_and_come_back(query):
    count = 3
    b = tv.PuzzleBatch(query, count, seed=2**64 - 2)
    assert not b.is_tabular and b.permutations is None
    puzzles = [tv.Puzzle(query) for _ in range(count)]
    states, lasts, histories = [(2**64 - 2 + i) & MASK64 for i in range(count)], [None] * count, [[]] * count
    for depth in (6, 0, 9):
        b.scramble(depth)
        for i, p in enumerate(puzzles):
            made, states[i], lasts[i] = model_walk(p, states[i], lasts[i], depth, b.action_count)
            histories[i] = histories[i] + made
    assert [b.history(i) for i in range(count)] == histories
    rng = np.random.default_rng(7)
    for actions in rng.integers(0, b.action_count, (4, count)):
        for forward in (actions, actions ^ 1):  # off the lattice, then mostly back
            applied = [p.apply_action(int(a)) for p, a in zip(puzzles, forward)]
            expected = puzzles_outcome(puzzles, lambda p: p.is_solved)
            try:
                solved, made = b.step(forward)
                assert (np.asarray(solved).tolist(), np.asarray(made).tolist()) == (expected, applied)
            except tv.PuzzleError as error:
                assert str(error) == expected
            assert np.asarray(b.action_masks()).tolist() == [p.action_mask() for p in puzzles]
            assert outcome(b.observations) == puzzles_outcome(puzzles, lambda p: p.stickers())
            assert outcome(b.sticker_ids) == puzzles_outcome(puzzles, lambda p: p.sticker_ids())
    assert b.move_counts == [p.history_length for p in puzzles]
    assert b.apply(" ".join(b.actions[:3]) + " " + b.actions[0] + "2") == 5
    counts = b.move_counts
    undone = np.asarray(b.undo([0, 2])).tolist()
    assert undone == [c in (0, 2) for c in range(count)]
    assert b.move_counts == [n - u for n, u in zip(counts, undone)]
    b.solve([1])
    b.reset_where([True, False, True], scramble=0)
    assert np.asarray(b.solved()).all() and b.move_counts == [0] * count
    assert np.array_equal(b.observations(), np.tile(b.solved_stickers, (count, 1)))


def test_a_move_onto_a_locked_layer_is_refused_without_error():
    b = tv.PuzzleBatch(LITTLE_CHOP, 2, seed=3)
    b.apply(b.actions[0])
    locked = np.flatnonzero(~np.asarray(b.action_masks())[0])
    assert locked.size > 0, "a turn of the Little Chop locks the layers across it"
    assert b.apply(b.actions[locked[0]]) == 1
    assert b.move_counts == [1, 1]
    b.scramble([0, 30])
    assert b.move_counts[0] == 1 and 1 < b.move_counts[1] <= 31


def test_every_catalog_recipe_gets_the_engine_its_moves_call_for():
    steady = set(tv.non_jumbling())
    recipes = [row[3] for row in tv.catalog()]
    with ThreadPoolExecutor(2) as pool:
        engines = dict(zip(recipes, pool.map(lambda q: tv.PuzzleBatch(q, 2).is_tabular, recipes)))
    assert [q for q, tabular in engines.items() if tabular != (q in steady)] == []
    assert sum(engines.values()) == 36
    assert repr(tv.PuzzleBatch(PYRAMORPHIX, 2)) == f"<PuzzleBatch 2 of {PYRAMORPHIX} stickers=16 actions=12 geometric>"


# ---- states in ----

def test_states_round_trip_deal_colors_and_compose_with_steps():
    b = tv.PuzzleBatch(CUBE3, 3, seed=1, scramble=12)
    ids, colors = np.asarray(b.sticker_ids()), np.asarray(b.observations())
    c = tv.PuzzleBatch(CUBE3, 3, seed=9, scramble=2)
    c.set_states(b.sticker_ids(), ids=True)
    assert np.array_equal(c.sticker_ids(), ids) and c.move_counts == [0] * 3
    c.set_states(colors)
    assert np.array_equal(c.observations(), colors)
    # Solved colors run in blocks, so dealing each color's stickers out in slot order is a rank.
    assert np.array_equal(c.sticker_ids(), np.argsort(np.argsort(colors, axis=1, kind="stable"), axis=1, kind="stable"))
    perms = np.asarray(c.permutations)
    group = comb.PermutationGroup([comb.Permutation(list(p)) for p in perms])
    start = np.array([group.random().array_form for _ in range(3)])
    c.set_states(start.ravel().tolist(), ids=True)
    for actions in np.random.default_rng(3).integers(0, c.action_count, (4, 3)):
        c.step(actions)
        start = np.take_along_axis(start, perms[actions], axis=1)
    assert np.array_equal(c.sticker_ids(), start) and c.move_counts == [4] * 3


def wrong_colors(b):
    colors = np.tile(b.solved_stickers, (3, 1))
    colors[2, 0] = b.color_count  # a color the puzzle lacks
    colors[1, 0] = colors[1, -1]  # one sticker too many of the last color
    return colors.ravel()


ARRANGEMENT_REFUSED = (tv.PuzzleError, NOT_ARRANGEABLE)


# Each case: the values for a batch of 3, ids or colors, and what the tabular and the geometric
# batch answer (None: taken). A length or a color beats the engine; an arrangement does not.
@pytest.mark.parametrize("make, ids, tabular, geometric", [
    (lambda b: np.zeros(3 * b.sticker_count - 1, np.uint8), False, (ValueError, "a state of this puzzle is {n} "
     "colors and this batch holds 3 of them, so {length} values is not a state each"), "same"),
    (lambda b: np.zeros(3 * b.sticker_count + 1, np.uint16), True, (ValueError, "a state of this puzzle is {n} "
     "slots and this batch holds 3 of them, so {length} values is not a state each"), "same"),
    (wrong_colors, False, (ValueError, "row 1 does not have the colors of this puzzle: every state of it has as "
     "many stickers of each color as the solved one"), "same"),
    (lambda b: b.solved_stickers, False, None, ARRANGEMENT_REFUSED),  # one row for every copy
    (lambda b: np.concatenate([np.arange(b.sticker_count)] * 2 + [np.zeros(b.sticker_count, int)]), True,
     (ValueError, "row 2 is not an arrangement of this puzzle's {n} stickers"), ARRANGEMENT_REFUSED),
    (lambda b: np.arange(b.sticker_count) // [[1], [2], [3]], True,
     (ValueError, "row 1 is not an arrangement of this puzzle's {n} stickers"), ARRANGEMENT_REFUSED),
])
@pytest.mark.parametrize("query", [CUBE3, PYRAMORPHIX])
def test_states_refused_in_order_and_nothing_changes(query, make, ids, tabular, geometric):
    b = tv.PuzzleBatch(query, 3, seed=1, scramble=2)
    n, values = b.sticker_count, np.ravel(make(b))
    expected = tabular if b.is_tabular or geometric == "same" else geometric
    before = (outcome(b.sticker_ids), b.move_counts)
    if expected is None:
        b.set_states(values, ids=ids)
        assert np.asarray(b.solved()).all() and b.move_counts == [0] * 3
        return
    with pytest.raises(expected[0]) as info:
        b.set_states(values, ids=ids)
    assert str(info.value) == expected[1].format(n=n, length=len(values))
    assert (outcome(b.sticker_ids), b.move_counts) == before


# ---- the view ----

def test_view_keywords_configure_and_camera_agree():
    given = dict(fov=30.0, distance=20.0, yaw=30.0, pitch=-15.0)
    for query in (CUBE3, PYRAMORPHIX):
        built = tv.PuzzleBatch(query, 2, background=(1, 2, 3, 4), supersample=0, show_edges=False, **given)
        configured = tv.PuzzleBatch(query, 2)
        configured.configure(**given)
        assert built.camera == configured.camera
        single = tv.Puzzle(query, **given)
        assert built.camera == (single.camera_position, single.camera_target, single.camera_up, 30.0)
        position, target, up, fov = built.camera
        configured.configure(distance=1.0)
        configured.configure()
        configured.configure(camera_position=position, camera_target=target, camera_up=up, fov=fov)
        assert configured.camera == built.camera
        configured.configure(camera_position=(1.0, 2.0, 3.0), distance=2.0, yaw=10.0)
        assert configured.camera[0] == (1.0, 2.0, 3.0)

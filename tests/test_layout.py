import hashlib
import itertools
import os
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
import sympy.combinatorics as comb
from hypothesis import given, settings, strategies as st

import torvane as tv

CUBES = {2: "?shell=C$1&cut=C$0", 3: "?shell=C$1&cut=C$1/3", 4: "?shell=C$1&cut=C$0&cut=C$1/2",
         5: "?shell=C$1&cut=C$1/5&cut=C$3/5"}
MASK64 = (1 << 64) - 1


@pytest.fixture(scope="module")
def cube():
    return tv.Layout()


def splitmix(state):
    """One SplitMix64 draw on a Python int state; returns (state, output)."""
    state = (state + 0x9E3779B97F4A7C15) & MASK64
    z = state
    z = ((z ^ (z >> 30)) * 0xBF58476D1CE4E5B9) & MASK64
    z = ((z ^ (z >> 27)) * 0x94D049BB133111EB) & MASK64
    return state, z ^ (z >> 31)


def python_walk(layout, seed, row, depth):
    """Row `row`'s walk, move by move: the draw, sent on by one when it would undo the last move."""
    state = (((seed + row) * 0x9E3779B97F4A7C15) & MASK64) | 1
    moves, previous, count = [], None, layout.move_count
    for _ in range(depth):
        state, z = splitmix(state)
        a = z % count
        if count >= 3 and previous is not None and layout.inverses[previous] == a:
            a = (a + 1) % count
        moves.append(a)
        previous = a
    return moves


def replay(layout, state, moves):
    for m in moves:
        state = np.asarray(layout.next_states(state, m))
    return state


# ---- conventions ----

def test_the_default_layout_is_the_numbered_3x3x3(cube):
    assert (repr(cube), cube.size, cube.is_cube, cube.face_count) == ("<Layout cube 3x3x3 facelets=54 moves=12>", 3,
                                                                      True, 6)
    assert cube.faces == ["U", "D", "L", "R", "B", "F"]
    assert cube.move_names == [f + d for f in "UDLRBF" for d in ("-1", "1")]
    assert np.array_equal(cube.goal_colors, np.arange(54) // 9) and np.array_equal(cube.goal_ids, np.arange(54))
    assert np.array_equal(cube.face_sizes, [9] * 6)
    # R1 brings F up into U: the last row of U, at +x, now shows F.
    assert np.asarray(cube.next_states(cube.goal_colors, cube.move_index("R")))[:9].tolist() == [0] * 6 + [5] * 3


@pytest.mark.parametrize("name, index", [(" U' ", 0), ("U-1", 0), ("U", 1), ("\u3000U1\n", 1), ("F+1", 11),
                                         ("B'", 8), ("U2", None), ("X", None), ("", None), ("u", None)])
def test_move_index(cube, name, index):
    assert cube.move_index(name) == index


def test_move_index_on_macros_finds_face_turns_only_by_their_names(cube):
    macros = cube.with_moves([[], [0], [7, 1]])
    assert macros.move_names == [".", "U-1", "R1 U1"]
    assert (macros.move_index("U'"), macros.move_index("R"), macros.move_index("R1 U1")) == (1, None, 2)
    assert tv.Layout("Megaminx").move_index("U") is None


@pytest.mark.parametrize("size", sorted(CUBES))
def test_face_turns_agree_with_exact_turning(size):
    """Every move with an action is what the simulator does, the inner slices included."""
    layout, puzzle = tv.Layout(CUBES[size]), tv.Puzzle(CUBES[size])
    assert layout.size == size and layout.facelet_count == 6 * size * size
    # each action is one face turn or one move of its own, named with a colon
    assert sorted(layout.actions) == list(range(len(puzzle.action_permutations())))
    assert all(name.startswith(":") for name in layout.move_names[12:])
    for m, a in enumerate(layout.actions):
        puzzle.reset()
        puzzle.apply_action(a)
        expected = np.asarray(layout.next_states(layout.goal_ids, m))
        assert np.array_equal(layout.to_facelet_ids(puzzle.sticker_ids()), expected), layout.move_names[m]
    rng = np.random.default_rng(size)
    puzzle.reset()
    moves = rng.integers(0, layout.move_count, 25).tolist()
    for a in layout.moves_to_actions(moves):
        puzzle.apply_action(a)
    assert np.array_equal(layout.to_facelets(puzzle.stickers()), replay(layout, layout.goal_colors, moves))


def group(layout, moves):
    return comb.PermutationGroup([comb.Permutation(np.asarray(layout.moves)[m].tolist()) for m in moves])


def test_group_orders_of_the_face_turns(cube):
    assert group(cube, range(12)).order() == 43252003274489856000
    assert group(tv.Layout(CUBES[2]), range(12)).order() == 88179840
    assert comb.Permutation(np.asarray(cube.with_moves([[7, 1]]).moves)[0].tolist()).order() == 105


# ---- the solver's view: Kociemba's facelet string ----

# Kociemba's net: each face seen from outside, U with B at the top, the side faces with U at the
# top, D with F at the top; facelets read left to right, top to bottom.
KOCIEMBA = {"U": ((0, 1, 0), (1, 0, 0), (0, 0, 1)), "R": ((1, 0, 0), (0, 0, -1), (0, -1, 0)),
            "F": ((0, 0, 1), (1, 0, 0), (0, -1, 0)), "D": ((0, -1, 0), (1, 0, 0), (0, 0, -1)),
            "L": ((-1, 0, 0), (0, 0, 1), (0, -1, 0)), "B": ((0, 0, -1), (-1, 0, 0), (0, -1, 0))}
# The layout's numbering: face normal and the axes its rows and columns grow along.
NUMBERING = [((0, 1, 0), (1, 0, 0), (0, 0, -1)), ((0, -1, 0), (1, 0, 0), (0, 0, 1)),
             ((-1, 0, 0), (0, 0, 1), (0, 1, 0)), ((1, 0, 0), (0, 0, -1), (0, 1, 0)),
             ((0, 0, -1), (-1, 0, 0), (0, 1, 0)), ((0, 0, 1), (1, 0, 0), (0, 1, 0))]


def kociemba_order():
    """For each place of Kociemba's string, the layout's facelet there."""
    order = []
    for normal, right, down in KOCIEMBA.values():
        for i in range(9):
            # faces at +-3, facelet centres at -2, 0, 2
            p = 3 * np.array(normal) + 2 * (i % 3 - 1) * np.array(right) + 2 * (i // 3 - 1) * np.array(down)
            face = [k for k, (n, _, _) in enumerate(NUMBERING) if p @ n == 3][0]
            _, row, col = (np.array(v) for v in NUMBERING[face])
            order.append((face * 3 + p @ row // 2 + 1) * 3 + p @ col // 2 + 1)
    return order


def test_kociemba_solves_what_the_layout_scrambles(cube):
    kociemba = pytest.importorskip("kociemba")
    order = kociemba_order()
    for state in np.asarray(cube.scrambled(4, 25, seed=3)):
        text = "".join(cube.faces[v] for v in state[order])
        for token in kociemba.solve(text).split():
            turn = cube.move_index(token[0] + ("'" if token.endswith("'") else ""))
            state = replay(cube, state, [turn] * (2 if token.endswith("2") else 1))
        assert np.array_equal(state, cube.goal_colors)


# ---- macros ----

@settings(max_examples=60)
@given(st.lists(st.lists(st.integers(0, 11), max_size=6), min_size=1, max_size=5), st.integers(0, 2**32))
def test_macros_are_their_moves_in_order(sequences, seed):
    cube = tv.Layout()
    macros = cube.with_moves(sequences)
    start = np.asarray(cube.scrambled(1, 5, seed=seed))[0]
    perms = np.asarray(cube.moves)
    for m, sequence in enumerate(sequences):
        assert np.array_equal(macros.next_states(start, m), replay(cube, start, sequence))
        product = comb.Permutation(53)
        for k in sequence:
            product = comb.Permutation(perms[k].tolist()) * product
        assert np.asarray(macros.moves)[m].tolist() == product.array_form
    assert macros.actions == [None] * len(sequences)


def brute_inverses(perms):
    identity = np.arange(perms.shape[1])
    found = []
    for m, p in enumerate(perms):
        if np.array_equal(p[p], identity):
            found.append(m)
            continue
        hits = [k for k, q in enumerate(perms) if np.array_equal(p[q], identity)]
        found.append(hits[0] if hits else None)
    return found


def test_moves_may_come_as_arrays(cube):
    _, walks = cube.trajectories(3, 2, seed=1)
    expected = cube.with_moves(np.asarray(walks).tolist())
    for sequences in (walks, np.asarray(walks), [walks[0], np.asarray(walks)[1]]):
        assert np.array_equal(cube.with_moves(sequences).moves, expected.moves)
    inverse = cube.inverse_moves(range(12))
    assert cube.moves_to_actions(inverse) == cube.moves_to_actions(np.asarray(inverse)) == [
        cube.actions[m] for m in cube.inverses]


@pytest.mark.parametrize("sequences", [[[0, 1], [2], [0, 1], [3]], [[0, 0], [0, 0], [1]], [[], [0], []]])
def test_inverses_match_a_brute_force(cube, sequences):
    macros = cube.with_moves(sequences)
    assert macros.inverses == brute_inverses(np.asarray(macros.moves).astype(np.int64))


def test_every_triple_of_face_turns_has_an_inverse(cube):
    macros = cube.with_moves(list(itertools.product(range(12), repeat=3)))
    assert macros.move_count == 1728 and None not in macros.inverses
    assert np.array_equal(macros.inverse_moves(range(1728)), macros.inverses)


# ---- walks ----

def test_walks_follow_the_published_rule(cube):
    assert splitmix(0)[1] == 0xE220A8397B1DCDAF
    states, moves = cube.trajectories(7, 6, seed=123)
    states, moves = np.asarray(states), np.asarray(moves)
    for row in range(6):
        assert moves[row].tolist() == python_walk(cube, 123, row, 7)
        for t, m in enumerate(moves[row]):
            assert np.array_equal(states[row, t + 1], cube.next_states(states[row, t], int(m)))
            assert t == 0 or cube.inverses[moves[row, t - 1]] != m
    assert np.array_equal(cube.scrambled(6, 7, seed=123), states[:, -1])


def test_depth_ranges_are_drawn_row_by_row(cube):
    state, depths = 99 ^ 0x51ED2701A5C61B3D, []
    for _ in range(5):
        state, z = splitmix(state)
        depths.append(2 + z % 4)
    states, moves = cube.trajectories((2, 5), 5, seed=99)
    assert (np.asarray(moves) < 12).sum(axis=1).tolist() == depths
    last = np.asarray(states)[np.arange(5), depths]
    assert np.array_equal(last, cube.scrambled(5, (2, 5), seed=99))
    assert np.array_equal(last, cube.scrambled(5, depths, seed=99))


def test_short_walks_repeat_their_last_state_and_mark_missing_moves(cube):
    states, moves = cube.trajectories([0, 2], 2, seed=1)
    states, moves = np.asarray(states), np.asarray(moves)
    assert states.shape == (2, 3, 54) and moves[0].tolist() == [12, 12]
    assert all(np.array_equal(s, cube.goal_colors) for s in states[0])
    empty_states, empty_moves = cube.trajectories(0)
    assert (empty_states.shape, np.asarray(empty_moves).tolist()) == ((1, 1, 54), [[12]])
    assert np.array_equal(cube.scrambled(5, 0, seed=1), np.tile(cube.goal_colors, (5, 1)))


def test_walks_are_the_same_on_any_number_of_threads():
    code = ("import hashlib, torvane as tv; L = tv.Layout('4x4x4 Cube'); s, m = L.trajectories((2, 30), 300, seed=7);"
            "print(hashlib.sha256(s.to_bytes() + m.to_bytes() + L.scrambled(500, 40, seed=3).to_bytes()).hexdigest())")
    digests = {subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True,
                              env={**os.environ, "RAYON_NUM_THREADS": str(n), "PYTHONPATH": os.pathsep.join(sys.path)}
                              ).stdout for n in (1, 2)}
    assert len(digests) == 1


# ---- states ----

def test_state_conversions_round_trip_and_match_numpy(cube):
    colors = np.asarray(cube.from_facelets(cube.scrambled(8, 20, seed=5)))
    assert np.array_equal(cube.from_facelets(cube.to_facelets(colors)), colors)
    facelets = np.asarray(cube.to_facelets(colors))
    hot = np.asarray(cube.one_hot(facelets)).reshape(8, 54, 6)
    assert np.array_equal(hot, np.eye(6, dtype=np.uint8)[facelets])
    assert np.asarray(cube.one_hot(facelets[0])).shape == (324,)
    blocks = np.vstack([facelets, cube.goal_colors])
    assert np.array_equal(cube.solved(blocks), (blocks == cube.goal_colors).all(axis=1))
    assert cube.solved(cube.goal_colors).shape == (1,)


def test_values_past_the_faces_set_no_indicator(cube):
    state = np.asarray(cube.goal_colors).copy()
    state[3] = 7
    assert np.asarray(cube.one_hot(state)).reshape(54, 6)[3].tolist() == [0] * 6


def test_widths(cube):
    assert cube.next_states(list(range(54)), 0).typestr == "|u1"
    assert cube.next_states(list(range(300, 354)), 0).typestr == "<u2"
    assert cube.next_states(np.arange(54, dtype=np.uint32), 0).typestr == "|u1"  # not an Array: narrowest
    wide = cube.with_moves([[m] for m in range(12)] * 30).inverse_moves(range(54))
    assert wide.typestr == "<u2" and max(wide.tolist()) < 12
    assert cube.next_states(wide, 0).typestr == "<u2"  # an Array keeps its width
    assert cube.next_states(cube.moves, np.arange(12)).shape == (12, 54)
    seven = tv.Layout("7x7x7 Cube")
    assert (seven.moves.typestr, seven.goal_ids.typestr, seven.goal_colors.typestr) == ("<u2", "<u2", "|u1")


def test_solved_text(cube):
    assert cube.text(cube.goal_colors) == "\n".join(f"{f} {f * 3}/{f * 3}/{f * 3}" for f in "UDLRBF")
    megaminx = tv.Layout("Megaminx")
    assert megaminx.text(megaminx.goal_colors).splitlines()[11] == "11 " + "B" * 11
    assert cube.text([6, 61, 62]).splitlines()[0] == "U 6z?/???/???"


# ---- other puzzles ----

def test_megaminx_keeps_its_own_order():
    layout, puzzle = tv.Layout("Megaminx"), tv.Puzzle("Megaminx")
    assert (repr(layout), layout.size, layout.faces) == ("<Layout faces=12 facelets=132 moves=24>", None,
                                                          [str(k) for k in range(12)])
    assert np.asarray(layout.moves).tolist() == [list(p) for p in puzzle.action_permutations()]
    assert np.array_equal(layout.goal_colors, puzzle.solved_stickers)
    assert layout.actions == list(range(24)) and layout.inverses == [m ^ 1 for m in range(24)]


def catalog_case(row):
    name, _, _, query = row
    try:
        layout = tv.Layout(query)
    except tv.PuzzleError as error:
        layout = str(error)
    batch = tv.PuzzleBatch(query, 1)
    if not isinstance(layout, str):
        batch.same_puzzle(layout)
    return name, query, layout, batch.is_tabular


def test_catalog_layouts_exist_exactly_for_tabular_puzzles_and_cubes():
    with ThreadPoolExecutor(4) as pool:
        cases = list(pool.map(catalog_case, tv.catalog()))
    cubes = []
    for name, query, layout, tabular in cases:
        if isinstance(layout, str):
            assert not tabular and "nothing to number face by face" in layout, name
        elif layout.is_cube:
            cubes.append(name)
            assert (None in layout.actions) == (not tabular), name
        else:
            assert tabular, name
    assert {"2x2x2 Cube", "Rubik's Cube (3x3x3)", "4x4x4 Cube", "5x5x5 Cube"} <= set(cubes)


# ---- batches in a layout's numbering ----

@pytest.mark.parametrize("recipe", [CUBES[3], CUBES[4], "Megaminx"])
def test_batches_read_and_write_facelets(recipe):
    layout = tv.Layout(recipe)
    batch = tv.PuzzleBatch(layout.query, 6, seed=2, scramble=9)
    assert np.array_equal(batch.facelets(layout), layout.to_facelets(batch.observations()))
    assert np.array_equal(batch.facelet_ids(layout), layout.to_facelet_ids(batch.sticker_ids()))
    states = np.asarray(layout.scrambled(6, 11, seed=4))
    batch.set_facelets(layout, states)
    assert np.array_equal(batch.facelets(layout), states)
    batch.set_facelets(layout, layout.goal_colors)
    assert all(batch.solved().tolist()) and batch.move_counts == [0] * 6
    assert tv.PuzzleBatch(layout.query, 1).facelets(layout).shape == (1, layout.facelet_count)


def test_a_batch_refuses_a_layout_of_another_puzzle(cube):
    batch = tv.PuzzleBatch(CUBES[2], 2)
    with pytest.raises(ValueError, match=r"this layout describes \?shell=C\$1&cut=C\$1/3, and this batch holds "
                                         r"\?shell=C\$1&cut=C\$0"):
        batch.facelets(cube)
    with pytest.raises(TypeError, match="'str' object is not an instance of 'Layout'"):
        batch.same_puzzle("Megaminx")
    with pytest.raises(ValueError, match="54 values, and 53 is not"):
        tv.PuzzleBatch(CUBES[3], 2).set_facelets(cube, [0] * 53)


# ---- what bad input gets ----

@pytest.mark.parametrize("call, error, text", [
    (lambda L: tv.Layout(3), TypeError, "expected a recipe query string, a catalog name or a Recipe, not int"),
    (lambda L: L.to_facelets([0] * 53), ValueError,
     "a state of this puzzle is 54 values, and 53 is not a whole number of them"),
    (lambda L: L.with_moves([]), ValueError, "a layout needs at least one move"),
    (lambda L: L.with_moves([[12]]), ValueError, "move 12 out of range (have 12)"),
    (lambda L: L.with_moves([[0, 1], [2]]).inverse_moves([1]), ValueError, "nothing in this layout undoes D-1"),
    (lambda L: L.inverse_moves([12]), ValueError, "move 12 out of range (have 12)"),
    (lambda L: L.to_facelets([6] + [0] * 53), ValueError, "6 is not one of this puzzle's 6 colors"),
    (lambda L: L.to_facelet_ids([54] + [0] * 53), ValueError, "54 is not one of this puzzle's 54 slots"),
    (lambda L: L.from_facelets([0] * 53 + [6]), ValueError, "6 is not one of this puzzle's 6 faces"),
    (lambda L: L.next_states(L.goal_colors, [1, 2]), ValueError, "got 2 moves for 1 states"),
    (lambda L: L.next_states(L.goal_colors, 12), ValueError, "move 12 out of range (have 12)"),
    (lambda L: L.next_states(L.goal_colors, -1), ValueError, "move -1 out of range (have 12)"),
    (lambda L: L.next_states(L.goal_colors, "U"), TypeError, "expected a move, or one per state"),
    (lambda L: L.next_states(L.goal_colors, np.array([-1])), ValueError, "counted from zero"),
    (lambda L: L.moves_to_actions([0, 12]), ValueError, "move 12 has no action of this puzzle"),
    (lambda L: L.with_moves([[0]]).moves_to_actions([0]), ValueError, "move 0 has no action of this puzzle"),
    (lambda L: L.scrambled(3, (2, 1)), ValueError, "a scramble range runs from low to high, and 2 to 1 does not"),
    (lambda L: L.scrambled(3, [1, 2]), ValueError, "got 2 depths for 3 states"),
    (lambda L: L.scrambled(3, "far"), TypeError, "expected a number of moves, a (low, high) range, or one per state"),
    (lambda L: L.scrambled(3, -1), TypeError, "expected a number of moves, a (low, high) range, or one per state"),
    (lambda L: L.scrambled(3, (0, 2**32)), TypeError, "expected a number of moves, a (low, high) range"),
    (lambda L: L.trajectories(10**6, 10**6), ValueError, "there is not enough memory"),
    (lambda L: L.scrambled(2**62, 1), ValueError, "there is not enough memory"),
    (lambda L: L.scrambled(2**40, 1), ValueError, "there is not enough memory"),
    (lambda L: L.text([256]), ValueError, "256 does not fit the 256 values"),
])
def test_messages(cube, call, error, text):
    with pytest.raises(error) as caught:
        call(cube)
    assert text in str(caught.value)


def test_a_jumbling_cube_keeps_its_face_turns_and_a_jumbling_non_cube_is_refused():
    jumbling = [row[3] for row in tv.catalog() if row[0] == "Master Little Chop"][0]
    with pytest.raises(tv.PuzzleError, match="it jumbles, or a layer of it locks"):
        tv.Layout(jumbling)

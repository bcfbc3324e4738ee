import math
import threading
from concurrent.futures import ThreadPoolExecutor

import pytest
from hypothesis import given, settings, strategies as st
from sympy.combinatorics import Permutation, PermutationGroup

import torvane as tv

CUBE3 = "?shell=C$1&cut=C$1/3"


@pytest.fixture(scope="module")
def cube():
    return tv.Puzzle(CUBE3)


def test_every_form_of_recipe_builds_the_same_puzzle():
    forms = [tv.Puzzle(CUBE3), tv.Puzzle("Rubik's Cube (3x3x3)"), tv.Puzzle(shell="C$1", cuts=["C$1/3"]),
             tv.Puzzle(tv.Recipe.parse(CUBE3)), tv.Puzzle.named("Rubik's Cube (3x3x3)"),
             tv.Puzzle.from_recipe(tv.Recipe.parse(CUBE3)), tv.Recipe.parse(CUBE3).build()]
    assert {(p.piece_count, p.grip_count, p.query) for p in forms} == {(26, 6, CUBE3)}
    assert repr(forms[0]) == "<Puzzle 26 pieces, 6 grips>"


@pytest.mark.parametrize("call, error, message", [
    (lambda: tv.Puzzle(), TypeError, "give a recipe, or a shell and its cuts"),
    (lambda: tv.Puzzle(CUBE3, shell="C$1"), TypeError, "give either a recipe or a shell and cuts, not both"),
    (lambda: tv.Puzzle(3), TypeError, "expected a recipe query string, a catalog name or a Recipe, not int"),
    (lambda: tv.Puzzle(CUBE3, seed=-1), OverflowError, ""),
    (lambda: tv.Puzzle(CUBE3, background=(1, 2, 3)), ValueError, "expected tuple of length 4"),
    (lambda: tv.Puzzle.from_recipe(CUBE3), TypeError, "'str' object is not an instance of 'Recipe'"),
    (lambda: tv.Puzzle(CUBE3).turn(6), ValueError, "grip index 6 out of range (have 6)"),
    (lambda: tv.Puzzle(CUBE3).turn_to(0, 4), ValueError, "stop index 4 out of range (grip 0 has 4)"),
    (lambda: tv.Puzzle(CUBE3).turn(0, 2**31), OverflowError, "out of range integral type conversion attempted"),
    (lambda: tv.Puzzle(CUBE3).grip(6), IndexError, "grip index out of range"),
    (lambda: tv.Puzzle(CUBE3).piece(26), IndexError, "piece index out of range"),
    (lambda: tv.Puzzle(CUBE3).apply_action(12), ValueError, "action 12 out of range (have 12)"),
    (lambda: tv.Puzzle(CUBE3).apply("A G"), tv.PuzzleError, "'G' is not a move of this puzzle. Its grips are A, B, C, D, E, F"),
    (lambda: tv.Puzzle(CUBE3).apply("A0"), tv.PuzzleError, "move 'A0' repeats zero times"),
    (lambda: tv.Puzzle(CUBE3).apply("A4294967296'"), tv.PuzzleError, "move 'A4294967296'' has an unreadable repeat count"),
    (lambda: tv.Puzzle(CUBE3).apply("12"), tv.PuzzleError, "'12' is not a move"),
    (lambda: tv.jumbles(3.0), TypeError, "not float"),
])
def test_bad_input_raises_its_own_error(call, error, message):
    with pytest.raises(error) as raised:
        call()
    assert message in str(raised.value)


def test_a_bad_token_changes_nothing_and_a_lock_keeps_the_moves_made():
    p = tv.Puzzle(CUBE3)
    with pytest.raises(tv.PuzzleError):
        p.apply("A B A4x")
    assert p.move_count == 0
    chop = tv.Puzzle.named("Helicopter Cube")
    names = chop.actions
    for first in range(len(names)):
        chop.reset()
        chop.apply_action(first)
        blocked = [a for a, free in enumerate(chop.action_mask()) if not free]
        if blocked:
            break
    else:
        pytest.fail("a Helicopter Cube turn locks some layer")
    chop.reset()
    with pytest.raises(tv.PuzzleError, match=f"move '{names[blocked[0]]}' cannot be made: that layer is locked"):
        chop.apply(f"{names[first]} {names[blocked[0]]}")
    assert chop.history_length == 1
    assert chop.action_grip(blocked[0]) is None and chop.apply_action(blocked[0]) is False


@pytest.mark.parametrize("name, stickers, colors, moved", [
    ("2x2x2 Cube", 24, 6, {12}), ("Rubik's Cube (3x3x3)", 54, 6, {20}), ("4x4x4 Cube", 96, 6, {32, 48}),
    ("5x5x5 Cube", 150, 6, {44, 64}), ("Megaminx", 132, 12, {25}),
])
def test_sticker_counts_and_action_rows(name, stickers, colors, moved):
    p = tv.Puzzle.named(name)
    solved = p.solved_stickers
    assert p.sticker_count == stickers and p.color_count == colors and len(p.palette) == colors
    assert solved == sorted(solved) and all(solved.count(c) == stickers // colors for c in range(colors))
    assert p.sticker_ids() == list(range(stickers)) and p.stickers() == solved and p.is_solved
    rows = p.action_permutations()
    assert len(rows) == p.action_count == len(p.actions)
    for k in range(0, len(rows), 2):
        forward, back = rows[k], rows[k + 1]
        assert sorted(forward) == list(range(stickers))
        assert [forward[back[i]] for i in range(stickers)] == list(range(stickers))
    assert {sum(i != s for i, s in enumerate(row)) for row in rows} == moved
    assert p.move_count == 2 * len(rows) and p.history_length == 0 and p.is_solved


@pytest.mark.parametrize("name, order", [
    ("2x2x2 Cube", 88179840),
    ("Rubik's Cube (3x3x3)", 43252003274489856000),
    ("Pyraminx", 75582720),
    ("Megaminx", math.factorial(20) // 2 * 3**19 * math.factorial(30) // 2 * 2**29),
])
def test_action_groups_have_the_puzzle_group_order(name, order):
    p = tv.Puzzle.named(name)
    group = PermutationGroup([Permutation(row) for row in p.action_permutations()])
    assert group.order() == order
    p.seed(5)
    p.scramble(30)
    p.settle()
    assert group.contains(Permutation(p.sticker_ids()))


@settings(max_examples=50)
@given(st.lists(st.integers(0, 11), max_size=12))
def test_sticker_ids_compose_the_action_rows(actions):
    p = tv.Puzzle(CUBE3)
    rows = p.action_permutations()
    state = list(range(54))
    for a in actions:
        assert p.apply_action(a)
        state = [state[rows[a][i]] for i in range(54)]
    assert p.sticker_ids() == state
    assert p.stickers() == [p.solved_stickers[i] for i in state]
    assert p.restore() and p.sticker_ids() == list(range(54))


WHITE = [" ", "\t", "\n", "\u00a0", "\u2003", "\u3000", "  \r\n"]


@settings(max_examples=50)
@given(st.data())
def test_written_moves_make_the_same_turns_as_actions(data):
    p = tv.Puzzle.named(data.draw(st.sampled_from(["Rubik's Cube (3x3x3)", "4x4x4 Cube"])))
    names = p.actions
    assert [p.action_index(n) for n in names] == list(range(len(names)))
    moves = data.draw(st.lists(st.tuples(st.integers(0, len(names) - 1), st.integers(1, 3)), max_size=8))
    text = ""
    for action, repeat in moves:
        name = names[action]
        stem, prime = (name[:-1], "'") if name.endswith("'") else (name, "")
        token = name if repeat == 1 else f"{stem}{repeat}{prime}"
        text += data.draw(st.sampled_from(WHITE)) + token
    twin = tv.Puzzle(p.query)
    assert p.apply(text + data.draw(st.sampled_from(WHITE))) == sum(r for _, r in moves)
    for action, repeat in moves:
        for _ in range(repeat):
            twin.apply_action(action)
    assert p.sticker_ids() == twin.sticker_ids() and p.move_count == twin.move_count


def test_move_names_and_digits():
    p = tv.Puzzle.named("4x4x4 Cube")
    names = p.grip_names
    assert {"A1", "A2"} <= set(names) and "A" not in names
    assert p.action_index("A2'") == 2 * names.index("A2") + 1 and p.action_index("'") is None
    # "A12" is no name: the longest name that leaves a count wins, A1 twice.
    assert p.apply("A12") == 2 and p.apply("\u2003A13\u3000") == 3
    with pytest.raises(tv.PuzzleError, match="is not a move"):
        p.apply("A1\x1cA1")  # a separator for str.split(), but not Unicode white space
    assert p.apply("   ") == 0


def test_slots_follow_the_pieces():
    p = tv.Puzzle(CUBE3)
    positions = p.sticker_positions()
    for index in range(p.piece_count):
        piece = p.piece(index)
        assert list(piece) == ["vertices", "faces", "rotation"]
        for face in piece["faces"]:
            if face["interior"]:
                continue
            corners = [piece["vertices"][v] for v in face["vertices"]]
            centre = tuple(sum(c[k] for c in corners) / len(corners) for k in range(3))
            slot = min(range(len(positions)), key=lambda s: math.dist(positions[s], centre))
            assert math.dist(positions[slot], centre) < 1e-12
            assert p.palette[p.solved_stickers[slot]] == face["color"]
    p.turn(0)
    p.turn(3, -1)
    p.settle()
    first_read = p.stickers()
    again = tv.Puzzle(CUBE3)
    again.turn(0)
    again.turn(3, -1)
    again.stickers()
    assert first_read == again.stickers() and not p.is_solved


def test_grips_describe_their_planes():
    p = tv.Puzzle(CUBE3)
    grips = p.grips()
    assert [g.index for g in grips] == list(range(6))
    g = grips[0]
    assert g.piece_count == 9 and g.other_count == 17 and g.plane == p.grip(0)
    assert math.isclose(math.hypot(*g.axis), 1.0) and g.offset > 0
    assert repr(g).startswith("<Grip 0 axis=(") and repr(g).endswith(" pieces=9>")
    assert p.stops(0) == pytest.approx([0, 90, 180, 270])
    with pytest.raises(TypeError):
        tv.Grip()


def test_turning_scrambling_and_undoing():
    p = tv.Puzzle(CUBE3, seed=0, scramble=0)
    assert p.move_count == 0
    p.turn(0, 1, repeat=0)
    assert p.history_length == 0
    p.turn(0, 1, repeat=3)
    assert p.history_length == 3 and p.animating
    p.advance(1000.0)
    p.advance(1.0)
    assert not p.animating
    assert p.undo() and p.history_length == 2 and p.move_count == 4
    a, b = tv.Puzzle(CUBE3, seed=9, scramble=20), tv.Puzzle(CUBE3)
    b.seed(9)
    b.scramble(20)
    b.settle()
    assert a.sticker_ids() == b.sticker_ids() and a.history_length == 20
    assert a.restore() and a.is_solved
    a.reset()
    assert a.move_count == 0


def test_jumbling_puzzles_raise_off_the_lattice_and_recover():
    p = tv.Puzzle.named("Helicopter Cube")
    before = p.stickers()
    for action in range(p.action_count):
        p.apply_action(action)
        try:
            p.stickers()
        except tv.PuzzleError as error:
            assert "lattice" in str(error)
            assert p.undo() and p.stickers() == before
            return
        p.undo()
    pytest.fail("a single Helicopter Cube turn leaves the lattice")


def test_jumbles_agrees_with_the_catalog():
    steady = set(tv.non_jumbling())
    recipes = [row[3] for row in tv.catalog()]
    with ThreadPoolExecutor(4) as pool:
        answers = dict(zip(recipes, pool.map(tv.jumbles, recipes)))
    assert [r for r, j in answers.items() if j == (r in steady)] == []
    assert sum(answers.values()) == 49
    assert tv.jumbles("?shell=C$1") is False and tv.Puzzle("?shell=C$1").action_permutations() == []


def test_a_busy_puzzle_refuses_other_threads():
    p = tv.Puzzle(CUBE3)
    entered, leave = threading.Event(), threading.Event()

    class Waiting:
        def __index__(self):
            entered.set()
            leave.wait(10)
            return 0

    worker = threading.Thread(target=lambda: p.turn(Waiting()))
    worker.start()
    assert entered.wait(10)
    try:
        with pytest.raises(RuntimeError, match="Already borrowed"):
            p.stickers()
        with pytest.raises(RuntimeError, match="Already mutably borrowed"):
            p.grip(0)
    finally:
        leave.set()
        worker.join()
    assert p.history_length == 1


@pytest.mark.parametrize("long_call", [
    lambda: tv.Puzzle(CUBE3).apply("A4000000000"),
    lambda: tv.Puzzle(CUBE3, scramble=2**32 - 1),
])
def test_ctrl_c_interrupts_long_sequences(long_call, interrupted):
    interrupted(long_call)

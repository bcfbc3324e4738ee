"""Grip arrows in pixels, the ray test against the picture, and the pointer's press, release
and drag, against the turn they stand for and a model of the pointer's states."""

import numpy as np
import pytest
from hypothesis import settings, strategies as st
from hypothesis.stateful import RuleBasedStateMachine, invariant, precondition, rule

from torvane import Puzzle

CUBE = "?shell=C$1&cut=C$1/3"
SIZE = 64


def decode(c):
    c = np.asarray(c, float) / 255.0
    return np.where(c <= 0.04045, c / 12.92, ((c + 0.055) / 1.055) ** 2.4)


def word(linear, alpha):
    """An arrow color as the renderer packs it: brightened by half in linear light, sRGB bytes."""
    v = np.clip(np.asarray(linear) * 1.5, 0.0, 1.0)
    c = np.where(v <= 0.0031308, v * 12.92, 1.055 * v ** (1 / 2.4) - 0.055)
    return tuple(int(x) for x in np.round(c * 255.0)) + (int(np.floor(alpha * 255.0 + 0.5)),)


LIGHT = (word((1.0, 1.0, 1.0), 0.3), word((1.0, 1.0, 0.6038273388475408), 0.9))
DARK = (word((0.012983032338510335, 0.02217388478862708, 0.04373502925049377), 0.45),
        word((0.018500220124016652, 0.12477181755144427, 0.8307698767709715), 0.9))


def div255(t):
    return (t + (t >> 8)) >> 8


def over(d, s):
    a = s[3]
    rgb = tuple(div255(s[i] * a + d[i] * (255 - a) + 127) for i in range(3))
    return rgb + (div255(255 * a + d[3] * (255 - a) + 127),)


def reachable(background, normal, hover, layers=6):
    """Every color of the background blended over by up to `layers` arrows, then the hovered one."""
    colors, c = set(), tuple(background)
    for _ in range(layers):
        c = over(c, normal)
        colors.add(c)
        h = c
        for _ in range(layers):
            h = over(h, hover)
            colors.add(h)
    h = tuple(background)
    for _ in range(layers):
        h = over(h, hover)
        colors.add(h)
    return colors


def arrows_only(puzzle, background=(0, 0, 0, 255)):
    return np.asarray(puzzle.render(SIZE, SIZE, background=background, supersample=1, show_pieces=False,
                                    show_edges=False))


def centre(row, column):
    return (column + 0.5) / SIZE * 2.0 - 1.0, 1.0 - (row + 0.5) / SIZE * 2.0


def hit_map(puzzle):
    return np.array([[-1 if (a := puzzle.arrow_at(*centre(r, c))) is None else a for c in range(SIZE)]
                     for r in range(SIZE)])


@pytest.fixture(scope="module")
def cube_hits():
    puzzle = Puzzle(CUBE, yaw=30, pitch=25)
    return hit_map(puzzle)


@pytest.mark.parametrize("background, pair", [
    ((235, 235, 235, 255), DARK), ((20, 20, 40, 255), LIGHT), ((128, 128, 128, 255), LIGHT)])
def test_arrow_pixels_are_the_background_under_a_few_layers_of_the_arrow_color(background, pair, cube_hits):
    puzzle = Puzzle(CUBE, yaw=30, pitch=25)
    image = arrows_only(puzzle, background)
    shown = (image != background).any(axis=2)
    assert shown.sum() > 50
    normal_only = reachable(background, pair[0], pair[0])
    assert {tuple(p) for p in image[shown]} <= normal_only
    target = np.argwhere(cube_hits >= 0)[len(np.argwhere(cube_hits >= 0)) // 2]
    puzzle.pointer_move(*centre(*target))
    hovered = puzzle.hovered_arrow
    assert hovered == cube_hits[tuple(target)]
    image = arrows_only(puzzle, background)
    assert {tuple(p) for p in image[(image != background).any(axis=2)]} <= reachable(background, *pair)
    assert tuple(image[tuple(target)]) not in normal_only


def test_the_ray_finds_an_arrow_exactly_where_one_is_drawn(cube_hits):
    image = arrows_only(Puzzle(CUBE, yaw=30, pitch=25))
    drawn = (image != (0, 0, 0, 255)).any(axis=2)
    hit = cube_hits >= 0
    padded = np.pad(drawn, 1)
    near_border = np.zeros_like(drawn)
    for dr in (-1, 0, 1):
        for dc in (-1, 0, 1):
            near_border |= padded[1 + dr:SIZE + 1 + dr, 1 + dc:SIZE + 1 + dc] != drawn
    assert hit.sum() > 50
    assert not ((hit != drawn) & ~near_border).any()


def test_the_ray_keeps_a_square_view_and_follows_the_stored_flag():
    puzzle = Puzzle(CUBE)
    before = [puzzle.arrow_at(x / 10, y / 10) for x in range(-10, 11, 2) for y in range(-10, 11, 2)]
    puzzle.frame(16.0, 200, 50)
    puzzle.render(50, 20, show_arrows=False)
    assert [puzzle.arrow_at(x / 10, y / 10) for x in range(-10, 11, 2) for y in range(-10, 11, 2)] == before
    assert any(a is not None for a in before)
    puzzle.show_arrows = False
    assert all(puzzle.arrow_at(x / 10, y / 10) is None for x in range(-10, 11, 2) for y in range(-10, 11, 2))
    assert puzzle.arrow_count == 2 * puzzle.grip_count
    assert puzzle.pointer_down(0.9, 0.9) is False


def points_of_arrows(hits):
    found = {}
    for r, c in np.argwhere(hits >= 0):
        found.setdefault(int(hits[r, c]), centre(r, c))
    return found


def test_a_click_on_an_arrow_turns_its_grip_as_turn_does(cube_hits):
    points = points_of_arrows(cube_hits)
    assert len(points) >= 4
    for arrow, point in sorted(points.items())[:6]:
        puzzle, twin = Puzzle(CUBE, yaw=30, pitch=25), Puzzle(CUBE)
        assert puzzle.pointer_down(*point) is True and puzzle.hovered_arrow == arrow
        grip, direction = arrow // 2, 1 if arrow % 2 else -1
        assert puzzle.pointer_up(*point) == (grip, direction)
        assert puzzle.hovered_arrow is None  # the turn rebuilt the arrows
        twin.turn(grip, direction)
        assert puzzle.stickers() == twin.stickers()


def test_release_elsewhere_or_without_a_press_turns_nothing_and_clear_hover_keeps_the_press(cube_hits):
    points = points_of_arrows(cube_hits)
    (first, p), (second, q) = sorted(points.items())[:2]
    puzzle = Puzzle(CUBE, yaw=30, pitch=25)
    assert puzzle.pointer_up(*p) is None and puzzle.history_length == 0
    puzzle.pointer_down(*p)
    assert puzzle.pointer_up(*q) is None and puzzle.history_length == 0
    assert puzzle.hovered_arrow == second
    puzzle.pointer_down(*p)
    puzzle.clear_hover()
    assert puzzle.hovered_arrow is None
    assert puzzle.pointer_up(*p) is not None and puzzle.history_length == 1


def test_a_puzzle_without_grips_has_no_arrows_and_every_press_drags():
    puzzle = Puzzle("?shell=C$1")
    assert puzzle.arrow_count == 0 and puzzle.arrow_at(0.0, 0.0) is None
    assert puzzle.pointer_down(0.0, 0.0) is False
    before = puzzle.camera_position
    puzzle.pointer_move(0.2, 0.1)
    puzzle.advance()
    assert puzzle.camera_position != before


class PointerMachine(RuleBasedStateMachine):
    """The pointer against a model of its state table: what is pressed, hovered and turned."""

    def __init__(self):
        super().__init__()
        self.puzzle = Puzzle(CUBE, yaw=30, pitch=25)
        self.pressed = None
        self.hovered = None
        self.turns = 0

    points = st.tuples(st.floats(-1.2, 1.2), st.floats(-1.2, 1.2))

    @rule(point=points)
    def move(self, point):
        self.puzzle.pointer_move(*point)
        self.hovered = self.puzzle.arrow_at(*point)

    @rule(point=points)
    def down(self, point):
        hit = self.puzzle.arrow_at(*point)
        assert self.puzzle.pointer_down(*point) == (hit is not None)
        self.pressed = self.hovered = hit

    @rule(point=points)
    def up(self, point):
        hit = self.puzzle.arrow_at(*point)
        made = self.puzzle.pointer_up(*point)
        if hit is not None and hit == self.pressed:
            assert made == (hit // 2, 1 if hit % 2 else -1)
            self.turns += 1
            self.hovered = None
        else:
            assert made is None
            self.hovered = hit
        self.pressed = None

    @rule()
    def clear(self):
        self.puzzle.clear_hover()
        self.hovered = None

    @precondition(lambda self: self.puzzle.animating)
    @rule()
    def settle(self):
        self.puzzle.settle()

    @invariant()
    def matches(self):
        assert self.puzzle.hovered_arrow == self.hovered
        assert self.puzzle.history_length == self.turns


PointerMachine.TestCase.settings = settings(max_examples=30, stateful_step_count=20, deadline=None)
test_pointer_state_table = PointerMachine.TestCase

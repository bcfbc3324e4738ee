"""Frames of a puzzle checked by structure: sticker colors where a pinhole camera projects the
sticker centres, the view properties around render's one-frame overrides, and the camera rule."""

import math
import os
import subprocess
import sys

import numpy as np
import pytest

from torvane import Puzzle

CUBES = ["?shell=C$1&cut=C$0", "?shell=C$1&cut=C$1/3", "?shell=C$1&cut=C$1/5&cut=C$3/5"]
SIDES = [(0, 0), (90, 0), (180, 0), (-90, 0), (0, 90), (0, -90)]


def pixels(image):
    return np.asarray(image)


def look_at(position, target=(0.0, 0.0, 0.0), up=(0.0, 1.0, 0.0)):
    """The camera's rows x, y, z (z pointing back at the viewer), with the nudge that rescues a
    line of sight along up."""
    position, up = np.asarray(position, float), np.asarray(up, float)
    z = position - np.asarray(target, float)
    z /= np.linalg.norm(z)
    x = np.cross(up, z)
    if not x.any():
        z[0 if abs(up[2]) == 1.0 else 2] += 0.0001
        z /= np.linalg.norm(z)
        x = np.cross(up, z)
    x /= np.linalg.norm(x)
    return np.array([x, np.cross(z, x), z])


def project(points, position, fov, size):
    """Pixel coordinates (column, row) of world points seen by a square pinhole camera."""
    rows = look_at(position)
    camera = (np.asarray(points, float) - np.asarray(position, float)) @ rows.T
    focal = 1.0 / math.tan(math.radians(fov) / 2.0)
    ndc = camera[:, :2] * focal / -camera[:, 2:3]
    return np.stack([(ndc[:, 0] + 1.0) * 0.5 * size, (1.0 - ndc[:, 1]) * 0.5 * size], axis=1)


def decode(byte):
    c = byte / 255.0
    return np.where(c <= 0.04045, c / 12.92, ((c + 0.055) / 1.055) ** 2.4)


def encode(linear):
    linear = np.clip(linear, 0.0, 1.0)
    c = np.where(linear <= 0.0031308, linear * 12.92, 1.055 * linear ** (1 / 2.4) - 0.055)
    return np.round(c * 255.0)


def brightened(rgb):
    """A palette color as the renderer paints it: half again as bright in linear light."""
    channels = np.array([(rgb >> 16) & 0xFF, (rgb >> 8) & 0xFF, rgb & 0xFF], float)
    return encode(decode(channels) * 1.5)


def spherical(yaw, pitch, d):
    y, p = math.radians(yaw), math.radians(pitch)
    return (d * math.cos(p) * math.sin(y), d * math.sin(p), d * math.cos(p) * math.cos(y))


@pytest.mark.parametrize("recipe", CUBES)
def test_each_face_shows_its_sticker_colors_at_the_projected_centres(recipe):
    size = 256
    puzzle = Puzzle(recipe, show_arrows=False, supersample=1)
    positions = np.array(puzzle.sticker_positions()) * puzzle.scale
    colors = [puzzle.palette[c] for c in puzzle.stickers()]
    for yaw, pitch in SIDES:
        puzzle.look_from(yaw, pitch)
        camera = puzzle.camera_position
        direction = np.array(camera) / np.linalg.norm(camera)
        depth = positions @ direction
        front = np.flatnonzero(depth > depth.max() - 1e-9)
        assert len(front) in (4, 9, 25)
        image = pixels(puzzle.render(size, size))
        for slot, (column, row) in zip(front, project(positions[front], camera, puzzle.fov, size)):
            pixel = image[int(row), int(column)]
            assert pixel[3] == 255
            assert np.abs(pixel[:3].astype(int) - brightened(colors[slot])).max() <= 1, (yaw, pitch, slot)
        if len(front) == 9:
            off_axis = positions[front] - np.outer(positions[front] @ direction, direction)
            centre = front[np.argmin(np.linalg.norm(off_axis, axis=1))]
            middle = image[size // 2, size // 2, :3].astype(int)
            assert np.abs(middle - brightened(colors[centre])).max() <= 1


@pytest.mark.parametrize("recipe", CUBES)
@pytest.mark.parametrize("fov, distance", [(15.0, 12.0), (40.0, 5.0)])
def test_the_silhouette_is_the_projected_front_face(recipe, fov, distance):
    size = 96
    puzzle = Puzzle(recipe, show_arrows=False, supersample=1, fov=fov, distance=distance)
    half = np.abs(np.array(puzzle.sticker_positions())).max() * puzzle.scale
    corners = project([(-half, half, half), (half, -half, half)], (0.0, 0.0, distance), fov, size)
    centres = np.arange(size) + 0.5
    inside_x = (centres >= corners[0, 0]) & (centres <= corners[1, 0])
    inside_y = (centres >= corners[0, 1]) & (centres <= corners[1, 1])
    expected = np.outer(inside_y, inside_x)
    covered = pixels(puzzle.render(size, size))[:, :, 3] > 0
    border = np.zeros_like(expected)
    padded = np.pad(expected, 1)
    for dr in (-1, 0, 1):
        for dc in (-1, 0, 1):
            border |= padded[1 + dr:size + 1 + dr, 1 + dc:size + 1 + dc] != expected
    assert expected.sum() > 100
    assert not ((covered != expected) & ~border).any()


@pytest.mark.parametrize("supersample, soft", [(1, False), (2, True)])
def test_a_default_frame_is_transparent_around_the_puzzle(supersample, soft):
    puzzle = Puzzle("?shell=C$1&cut=C$1/3", show_arrows=False, supersample=supersample)
    alpha = pixels(puzzle.render(128, 128))[:, :, 3]
    assert alpha[0, 0] == 0 and alpha[64, 64] == 255
    assert ((alpha > 0) & (alpha < 255)).any() == soft


def test_hiding_pieces_edges_and_arrows_leaves_the_background():
    background = (10, 20, 30, 255)
    image = Puzzle("?shell=C$1&cut=C$1/3").render(
        32, 32, background=background, show_pieces=False, show_edges=False, show_arrows=False)
    assert (pixels(image) == background).all()


PROPERTIES = {
    "background": (255, 255, 255, 255),
    "supersample": 3,
    "show_arrows": False,
    "show_edges": False,
    "show_pieces": False,
    "line_width": 2.5,
    "fov": 30.0,
    "distance": 7.0,
}


def view_of(puzzle):
    names = list(PROPERTIES) + ["camera_position", "camera_up", "camera_target"]
    return {name: getattr(puzzle, name) for name in names}


def test_render_overrides_hold_for_one_frame_only():
    puzzle = Puzzle("?shell=C$1&cut=C$1/3")
    puzzle.camera_up = (0.0, 0.6, 0.8)
    before = view_of(puzzle)
    puzzle.render(16, 16, yaw=30, pitch=20, **PROPERTIES)
    assert view_of(puzzle) == before


@pytest.mark.parametrize("yaw, pitch, distance", [(30, 20, None), (-75, 10, 9.0), (0, 0, None), (180, -45, 20.0)])
def test_render_angles_draw_what_look_from_then_render_draws(yaw, pitch, distance):
    one, twin = Puzzle("?shell=C$1&cut=C$1/3", seed=5, scramble=6), Puzzle("?shell=C$1&cut=C$1/3", seed=5, scramble=6)
    drawn = one.render(64, 48, yaw=yaw, pitch=pitch, distance=distance)
    twin.look_from(yaw, pitch, distance)
    assert drawn.to_bytes() == twin.render(64, 48).to_bytes()
    assert twin.camera_position == pytest.approx(spherical(yaw, pitch, distance or 12.0), abs=1e-12)
    assert twin.camera_up == (0.0, 1.0, 0.0)


def test_constructor_keywords_set_the_view_and_reset_keeps_it():
    puzzle = Puzzle("?shell=C$1&cut=C$1/3", background=(1, 2, 3, 4), supersample=0, show_edges=False,
                    line_width=3.0, fov=20.0, yaw=90, pitch=0, distance=10.0)
    assert puzzle.supersample == 1 and puzzle.background == (1, 2, 3, 4) and not puzzle.show_edges
    assert puzzle.camera_position == pytest.approx((10.0, 0.0, 0.0), abs=1e-12)
    before = view_of(puzzle)
    puzzle.turn(0)
    puzzle.reset()
    assert view_of(puzzle) == before and puzzle.history_length == 0


def test_distance_scales_the_position_and_zero_collapses_it_until_angles_are_given():
    puzzle = Puzzle("?shell=C$1&cut=C$1/3", yaw=40, pitch=25)
    puzzle.distance = 6.0
    assert puzzle.distance == pytest.approx(6.0) and puzzle.camera_position == pytest.approx(spherical(40, 25, 6.0))
    puzzle.distance = 0.0
    puzzle.distance = 5.0
    assert puzzle.camera_position == (0.0, 0.0, 0.0)
    puzzle.render(8, 8)
    puzzle.look_from(10, 0, 4.0)
    assert puzzle.camera_position == pytest.approx(spherical(10, 0, 4.0))


def test_setters_convert_before_storing():
    puzzle = Puzzle("?shell=C$1&cut=C$1/3")
    puzzle.supersample = 0
    assert puzzle.supersample == 1
    puzzle.fov = 20  # an int has a float value
    assert puzzle.fov == 20.0
    with pytest.raises(OverflowError):
        puzzle.background = (0, 0, 0, 256)
    with pytest.raises(TypeError):
        puzzle.background = [0, 0, 0, 0]
    with pytest.raises(ValueError):
        puzzle.camera_up = (0.0, 1.0)
    with pytest.raises(TypeError):
        puzzle.show_edges = 1
    with pytest.raises(AttributeError):
        del puzzle.fov
    assert puzzle.background == (0, 0, 0, 0)


@pytest.mark.parametrize("change", [
    {"fov": 0.0}, {"fov": float("nan")}, {"line_width": 1e300}, {"distance": float("inf")},
    {"camera_up": (0.0, 0.0, 0.0)}, {"camera_up": (0.0, 0.0, 2.0)}, {"camera_position": (float("nan"), 0.0, 1.0)},
    {"camera_position": (0.0, 0.0, 0.0)}, {"fov": 179.9}, {"distance": -12.0},
])
def test_degenerate_views_still_give_an_image(change):
    puzzle = Puzzle("?shell=C$1&cut=C$1/3")
    for name, value in change.items():
        setattr(puzzle, name, value)
    image = puzzle.render(40, 30)
    assert (image.width, image.height) == (40, 30)


def test_a_zero_side_vector_draws_background_only():
    puzzle = Puzzle("?shell=C$1&cut=C$1/3", background=(9, 9, 9, 255))
    puzzle.camera_up = (0.0, 0.0, 2.0)
    assert (pixels(puzzle.render(16, 16)) == (9, 9, 9, 255)).all()


@pytest.mark.parametrize("width, height, supersample", [(0, 10, 2), (10, 0, 3), (0, 0, 1)])
def test_an_empty_frame_is_an_empty_image(width, height, supersample):
    image = Puzzle("?shell=C$1&cut=C$0").render(width, height, supersample=supersample)
    assert image.width * image.height == 0


@pytest.mark.parametrize("width, height, supersample", [(100000, 100000, 1), (4294967295, 1, 2), (20000, 20000, 2)])
def test_frames_too_large_are_refused_before_allocating(width, height, supersample):
    with pytest.raises(ValueError, match="working pixels"):
        Puzzle("?shell=C$1&cut=C$0").render(width, height, supersample=supersample)


def test_frame_advances_then_draws_and_render_does_not_advance():
    one, twin = Puzzle("?shell=C$1&cut=C$1/3"), Puzzle("?shell=C$1&cut=C$1/3")
    for p in (one, twin):
        p.turn(0)
    still = one.render(48, 48)
    assert one.animating and one.render(48, 48).to_bytes() == still.to_bytes()
    moved = one.frame(100.0, 48, 48)
    twin.advance(100.0)
    assert moved.to_bytes() == twin.render(48, 48).to_bytes() != still.to_bytes()


FRAMES = """
import hashlib, sys
from torvane import Puzzle
p = Puzzle("?shell=C$1&cut=C$1/3", seed=3, scramble=5)
p.turn(1)
h = hashlib.sha256()
for dt in (0.0, 60.0, 60.0, 200.0):
    h.update(p.frame(dt, 96, 80).to_bytes())
h.update(p.render(64, 64, supersample=3, yaw=30, pitch=-20).to_bytes())
print(h.hexdigest())
"""


def test_frames_are_the_same_bytes_on_one_and_two_threads():
    digests = set()
    for threads in ("1", "2"):
        env = dict(os.environ, RAYON_NUM_THREADS=threads)
        run = subprocess.run([sys.executable, "-c", FRAMES], env=env, capture_output=True, text=True, check=True)
        digests.add(run.stdout)
    assert len(digests) == 1


def angle_between(u, v):
    u, v = np.asarray(u), np.asarray(v)
    return math.atan2(np.linalg.norm(np.cross(u, v)), u @ v)


@pytest.mark.parametrize("dt_ms", [0.0, 16.0, 1000.0])
def test_orbit_glides_on_slowing_by_a_fixed_share_whatever_the_step(dt_ms):
    puzzle = Puzzle("?shell=C$1&cut=C$1/3", yaw=20, pitch=0)  # up starts orthogonal to the eye
    puzzle.orbit(0.1, -0.05)
    positions = [puzzle.camera_position]
    for _ in range(6):
        puzzle.advance(dt_ms)
        positions.append(puzzle.camera_position)
        up, eye = np.array(puzzle.camera_up), np.array(puzzle.camera_position)
        assert np.linalg.norm(eye) == pytest.approx(12.0, abs=1e-12)
        assert np.linalg.norm(up) == pytest.approx(1.0, abs=1e-12) and abs(up @ eye) < 1e-9
    steps = [angle_between(a, b) for a, b in zip(positions, positions[1:])]
    for first, second in zip(steps, steps[1:]):
        assert second / first == pytest.approx(0.8, abs=1e-9)


def test_look_from_after_orbit_resets_up_and_keeps_the_distance():
    puzzle = Puzzle("?shell=C$1&cut=C$1/3")
    puzzle.orbit(0.3, 0.2)
    assert puzzle.camera_up != (0.0, 1.0, 0.0)
    puzzle.look_from(0, 0)
    assert puzzle.camera_up == (0.0, 1.0, 0.0)
    assert puzzle.camera_position == pytest.approx((0.0, 0.0, 12.0), abs=1e-12)


def test_a_written_target_holds_until_the_camera_steps():
    puzzle = Puzzle("?shell=C$1&cut=C$1/3")
    puzzle.camera_target = (1.0, 0.0, 0.0)
    puzzle.render(8, 8)
    assert puzzle.camera_target == (1.0, 0.0, 0.0)
    puzzle.frame(16.0, 8, 8)
    assert puzzle.camera_target == (0.0, 0.0, 0.0)

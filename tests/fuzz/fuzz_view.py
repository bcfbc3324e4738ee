"""The drawing, camera and pointer surface of a Puzzle, and render_many, driven by arbitrary
arguments: frames have the size asked for, per-frame keywords leave the stored view as it was,
the pointer only ever names an arrow that exists and turns a grip that exists, and a list gives
one picture per entry."""

import math

import atheris

with atheris.instrument_imports():
    import harness
import torvane as tv

VIEW = ["background", "supersample", "show_arrows", "show_edges", "show_pieces", "line_width", "fov", "distance",
        "camera_position", "camera_target", "camera_up"]


def real(p: atheris.FuzzedDataProvider) -> float:
    return p.PickValueInList([p.ConsumeFloatInRange(-2.0, 2.0), p.ConsumeRegularFloat(), math.nan, math.inf,
                              -math.inf, 0.0, -0.0, 1e-300, 180.0, 90.0])


def size(p: atheris.FuzzedDataProvider) -> int:
    return p.PickValueInList([p.ConsumeIntInRange(0, 40), -1, 2**32, 3000])


def vector(p: atheris.FuzzedDataProvider):
    return p.PickValueInList([(real(p), real(p), real(p)), (real(p), real(p)), (1, 2, 3), "xyz"])


def setting(p: atheris.FuzzedDataProvider, name: str):
    if name == "background":
        return tuple(p.ConsumeIntInRange(-1, 256) for _ in range(p.PickValueInList([4, 4, 3])))
    if name == "supersample":
        return p.PickValueInList([0, 1, 2, 3, -1, 2**32])
    if name.startswith("show_"):
        return p.PickValueInList([True, False, None, 1])
    if name.startswith("camera_"):
        return vector(p)
    return real(p)


def keywords(p: atheris.FuzzedDataProvider) -> dict:
    names = VIEW[:8] + ["yaw", "pitch"]
    return {name: setting(p, name) for name in names if p.ConsumeBool()}


def stored(puzzle) -> str:
    return repr([getattr(puzzle, name) for name in VIEW])


def render(puzzle, p):
    width, height, extra = size(p), size(p), keywords(p)
    before = stored(puzzle)
    try:
        image = puzzle.render(width, height, **extra)
    finally:
        assert stored(puzzle) == before, (extra, before, stored(puzzle))
    assert (image.width, image.height) == (width, height)


def pointer(puzzle, p):
    event = p.PickValueInList(["move", "down", "up", "at", "clear"])
    x, y = real(p), real(p)
    if event == "clear":
        return puzzle.clear_hover()
    answer = getattr(puzzle, "arrow_at" if event == "at" else "pointer_" + event)(x, y)
    if event == "at":
        assert answer is None or 0 <= answer < puzzle.arrow_count
    if event == "up" and answer is not None:
        grip, direction = answer
        assert 0 <= grip < puzzle.grip_count and direction in (-1, 1)


ENTRIES = ["?shell=C$1&cut=C$1/2", "Pyraminx", "?shell=Q$1", "no such puzzle", 7, None, "?shell=T$1&cut=T$1/4"]


def render_list(puzzle, p):
    entries = [p.PickValueInList(ENTRIES) for _ in range(p.ConsumeIntInRange(0, 3))]
    width, height = p.ConsumeIntInRange(0, 24), p.ConsumeIntInRange(0, 24)
    extra = {name: value for name, value in [
        ("supersample", p.PickValueInList([0, 1, 2, -1])), ("scramble", p.PickValueInList([0, 3, -1, 2**32])),
        ("seed", p.PickValueInList([None, 0, 2**64 - 1, 2**64])), ("distance", p.PickValueInList([None, real(p)])),
        ("yaw", real(p)), ("pitch", real(p)), ("background", setting(p, "background"))] if p.ConsumeBool()}
    images = tv.render_many(entries, width, height, **extra)
    assert [(i.width, i.height) for i in images] == [(width, height)] * len(entries)


BATCH = tv.PuzzleBatch("?shell=C$1&cut=C$1/2", 3)


def batch_pictures(puzzle, p):
    width, height = p.ConsumeIntInRange(0, 24), p.ConsumeIntInRange(0, 24)
    channels = p.PickValueInList([3, 4, 0, 2, 2**40])
    first = p.ConsumeBool()
    dtype = p.PickValueInList(["u1", "uint8", "f4", "float32", "float64", 'a"\\', ""])
    kind = p.PickValueInList(["render", "states", "frames"])
    if kind == "frames":
        assert all((i.width, i.height) == (width, height) for i in BATCH.frames(width, height))
        return
    if kind == "states":
        states = [p.ConsumeIntInRange(-1, 300) for _ in range(p.PickValueInList([0, 24, 48, 7]))]
        block = BATCH.render_states(states, width, height, channels=channels, channels_first=first, dtype=dtype)
        rows = len(states) // 24
    else:
        block = BATCH.render(width, height, channels=channels, channels_first=first, dtype=dtype)
        rows = len(BATCH)
    assert block.shape == ((rows, channels, height, width) if first else (rows, height, width, channels))


OPERATIONS = [
    render_list,
    batch_pictures,
    render,
    lambda puzzle, p: setattr(puzzle, p.PickValueInList(VIEW), setting(p, p.PickValueInList(VIEW))),
    lambda puzzle, p: puzzle.frame(real(p), size(p), size(p)),
    lambda puzzle, p: puzzle.look_from(real(p), real(p), p.PickValueInList([None, real(p)])),
    lambda puzzle, p: puzzle.orbit(real(p), real(p)),
    lambda puzzle, p: puzzle.advance(real(p)),
    lambda puzzle, p: puzzle.turn(p.ConsumeIntInRange(-1, 6), p.PickValueInList([-1, 1, 2])),
    pointer,
    pointer,
]


def test_one_input(data: bytes) -> None:
    p = atheris.FuzzedDataProvider(data)
    puzzle = tv.Puzzle("?shell=C$1&cut=C$1/2")
    for _ in range(p.ConsumeIntInRange(0, 10)):
        try:
            p.PickValueInList(OPERATIONS)(puzzle, p)
        except harness.DOCUMENTED:
            pass
    puzzle.settle()
    puzzle.render(8, 8)


if __name__ == "__main__":
    harness.main(test_one_input)

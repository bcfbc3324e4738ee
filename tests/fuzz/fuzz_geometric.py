"""States, view settings and moves of PuzzleBatch on both kinds of batch (rows and simulators):
a refused call changes no state, a state put in comes back out, histories and move counts stay
in step, and a camera vector given to configure is the one stored."""

import math

import atheris

with atheris.instrument_imports():
    import harness
import torvane as tv

RECIPES = [("?shell=C$1&cut=C$0", 3), ("?shell=T$sqrt(2)&cut=C$0", 2)]  # rows, and simulators


def number(p: atheris.FuzzedDataProvider):
    return p.PickValueInList([p.ConsumeIntInRange(-2, 30), 2**32, 2**64, -1, 1.5, True, None, "3", math.nan])


def values(p: atheris.FuzzedDataProvider, b):
    n = p.PickValueInList([b.sticker_count, b.sticker_count * len(b), p.ConsumeIntInRange(0, 60)])
    out = [p.PickValueInList([p.ConsumeIntInRange(0, b.sticker_count), p.ConsumeIntInRange(0, b.color_count),
                              number(p)]) for _ in range(n)]
    return p.PickValueInList([out, bytes(v % 256 for v in out if isinstance(v, int) and v >= 0), tuple(out), 5])


def snapshot(b):
    try:
        ids = b.sticker_ids().to_bytes()
    except tv.PuzzleError as error:
        ids = str(error)
    return repr((ids, b.move_counts, [b.history(i) for i in range(len(b))], b.camera))  # repr: a NaN equals itself


def set_states(b, p):
    ids, states = p.ConsumeBool(), values(p, b)
    before = snapshot(b)
    try:
        b.set_states(states, ids=ids)
    except harness.DOCUMENTED:
        assert snapshot(b) == before
        raise
    assert b.is_tabular and b.move_counts == [0] * len(b)
    if ids and len(states) == b.sticker_count * len(b):
        assert b.sticker_ids().tolist() == [int(v) for v in states]


def configure(b, p):
    vector = tuple(p.ConsumeRegularFloat() for _ in range(p.PickValueInList([3, 3, 2])))
    extra = {name: value for name, value in [
        ("fov", p.ConsumeRegularFloat()), ("distance", p.ConsumeRegularFloat()), ("yaw", number(p)),
        ("supersample", number(p)), ("background", tuple(p.ConsumeIntInRange(-1, 256) for _ in range(4))),
        ("camera_position", vector)] if p.ConsumeBool()}
    b.configure(**extra)
    if "camera_position" in extra:
        assert b.camera[0] == vector or any(map(math.isnan, vector))


OPERATIONS = [
    set_states,
    set_states,
    configure,
    lambda b, p: b.step(values(p, b) if p.ConsumeBool() else [p.ConsumeIntInRange(0, 30) for _ in range(len(b))]),
    lambda b, p: b.scramble(p.PickValueInList([number(p), [number(p) for _ in range(len(b))]])),
    lambda b, p: b.undo(p.PickValueInList([None, [p.ConsumeBool() for _ in range(len(b))], [number(p)]])),
    lambda b, p: b.solve(p.PickValueInList([None, [number(p), number(p)], "ab"])),
    lambda b, p: b.reset_where([p.ConsumeBool() for _ in range(len(b))], scramble=number(p)),
    lambda b, p: b.reset_one(number(p), scramble=number(p)),
    lambda b, p: b.apply(p.ConsumeUnicodeNoSurrogates(12)),
    lambda b, p: b.seed(number(p), number(p)),
    lambda b, p: b.history(number(p)),
]


def test_one_input(data: bytes) -> None:
    p = atheris.FuzzedDataProvider(data)
    query, count = p.PickValueInList(RECIPES)
    b = tv.PuzzleBatch(query, count, seed=1)
    for _ in range(p.ConsumeIntInRange(0, 8)):
        try:
            p.PickValueInList(OPERATIONS)(b, p)
        except harness.DOCUMENTED:
            pass
        assert len(b.move_counts) == len(b) and all(len(b.history(i)) == n for i, n in enumerate(b.move_counts))
    b.reset(scramble=p.ConsumeIntInRange(0, 3))


if __name__ == "__main__":
    harness.main(test_one_input)

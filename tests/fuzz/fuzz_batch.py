"""PuzzleBatch methods with arbitrary array, selector and depth arguments: NumPy arrays of every
integer dtype, byte order and layout, hand-made __array_interface__ objects, buffers, nested
sequences and Arrays. A call either succeeds or raises a documented error having changed
nothing; every row stays a permutation and every history matches the move counts."""

import re

import atheris

with atheris.instrument_imports():
    import harness
import numpy as np
import torvane as tv

BATCHES = [tv.PuzzleBatch("?shell=C$1&cut=C$1/3", 5, seed=1), tv.PuzzleBatch("?shell=C$1&cut=1,0,0$-1/6", 3)]
DTYPES = [np.int8, np.uint8, np.int16, np.uint16, np.int32, np.uint32, np.int64, np.uint64, np.bool_, np.float32]
TYPESTRS = ["<i8", ">u2", "|u1", "<u4", "|b1", "<f4", "u1", "", "<u16", "<i3", "<ux", "|V8", ">i8"]


def number(p: atheris.FuzzedDataProvider) -> int:
    return p.PickValueInList([p.ConsumeIntInRange(-2, 14), p.ConsumeIntInRange(0, 300), 2**32 - 1, 2**32, 2**64,
                              -2**63, 2**100])


def numbers(p: atheris.FuzzedDataProvider) -> list:
    return [number(p) for _ in range(p.PickValueInList([p.ConsumeIntInRange(0, 7), 5, 3]))]


def depth(p: atheris.FuzzedDataProvider):
    """A walk length: small ones (a walk of 2^32 - 1 moves is allowed, only slow), and ones refused."""
    return p.PickValueInList([p.ConsumeIntInRange(0, 40), -1, 2**32, 2**100, 2.0])


def depths(p: atheris.FuzzedDataProvider, batch):
    chosen = [depth(p) for _ in range(p.PickValueInList([len(batch), p.ConsumeIntInRange(0, 6)]))]
    return p.PickValueInList([chosen, tuple(chosen), np.array([d % 41 for d in chosen if isinstance(d, int)]), "3"])


class Interface:
    """An object exporting a hand-made __array_interface__ over bytes."""

    def __init__(self, interface, data: bytes):
        self.__array_interface__, self.data = interface, data

    def __bytes__(self):
        return self.data


def move_text(p: atheris.FuzzedDataProvider) -> str:
    """Move text whose repeat counts stay small: a long repeat is allowed, only slow."""
    return re.sub(r"\d{3,}", "99", p.ConsumeUnicodeNoSurrogates(p.ConsumeIntInRange(0, 12)))


class Refused(Exception):
    """What a caller's own __array_interface__ raises; it passes through the module unchanged."""


class Raising:
    @property
    def __array_interface__(self):
        raise Refused()


def numpy_array(p: atheris.FuzzedDataProvider):
    dtype = np.dtype(p.PickValueInList(DTYPES))
    if dtype.itemsize > 1 and p.ConsumeBool():
        dtype = dtype.newbyteorder()
    values = np.array([v % 2**16 for v in numbers(p)], dtype=np.int64).astype(dtype)
    layout = p.ConsumeIntInRange(0, 3)
    if layout == 1:
        return values.reshape(1, -1).T.copy(order="F")
    if layout == 2:
        return np.repeat(values, 2)[::2]
    return values


def array_like(p: atheris.FuzzedDataProvider, batch):
    kind = p.ConsumeIntInRange(0, 11)
    if kind == 0:
        return numbers(p)
    if kind == 1:
        return tuple(numbers(p))
    if kind == 2:
        return p.ConsumeBytes(p.ConsumeIntInRange(0, 12))
    if kind == 3:
        return numpy_array(p)
    if kind == 4:
        return [numbers(p) for _ in range(p.ConsumeIntInRange(0, 3))]
    if kind == 5:
        interface = {"typestr": p.PickValueInList(TYPESTRS), "shape": (len(batch),), "version": 3}
        if p.ConsumeBool():
            interface["strides"] = p.PickValueInList([None, (8,), ()])
        return Interface(interface, p.ConsumeBytes(p.ConsumeIntInRange(0, 40)))
    if kind == 6:
        return Raising()
    if kind == 7:
        return p.PickValueInList([batch.solved(), batch.sticker_ids(), batch.action_masks(), batch.permutations])
    if kind == 8:
        return [p.PickValueInList([True, False, np.True_, 1, -1, "a", None]) for _ in range(len(batch))]
    if kind == 9:
        return memoryview(np.array(numbers(p), dtype=np.int64) % 12)
    if kind == 10:
        return [True] * p.ConsumeIntInRange(0, 6)
    return p.PickValueInList([None, "01", 3.0, 7, object()])


OPERATIONS = [
    lambda b, p: b.step(array_like(p, b)),
    lambda b, p: b.undo(array_like(p, b)),
    lambda b, p: b.solve(array_like(p, b)),
    lambda b, p: b.reset_where(array_like(p, b), scramble=depth(p)),
    lambda b, p: b.reset(scramble=depth(p)),
    lambda b, p: b.scramble(p.PickValueInList([depth(p), depths(p, b)])),
    lambda b, p: b.reset_one(number(p), scramble=depth(p)),
    lambda b, p: b.seed(number(p), number(p)),
    lambda b, p: b.history(number(p)),
    lambda b, p: b.apply(move_text(p)),
]


def snapshot(batch) -> tuple:
    ids = batch.sticker_ids()
    return ids.to_bytes(), batch.move_counts, [batch.history(i) for i in range(len(batch))]


def check(batch) -> None:
    ids = np.asarray(batch.sticker_ids())
    assert (np.sort(ids, axis=1) == np.arange(batch.sticker_count)).all()
    assert [len(batch.history(i)) for i in range(len(batch))] == batch.move_counts


def test_one_input(data: bytes) -> None:
    p = atheris.FuzzedDataProvider(data)
    batch = BATCHES[p.ConsumeIntInRange(0, len(BATCHES) - 1)]
    for _ in range(p.ConsumeIntInRange(1, 6)):
        before = snapshot(batch)
        try:
            p.PickValueInList(OPERATIONS)(batch, p)
        except (*harness.DOCUMENTED, Refused):
            assert snapshot(batch) == before
        check(batch)
    if max(batch.move_counts) > 2000:
        batch.solve()


if __name__ == "__main__":
    harness.main(test_one_input)

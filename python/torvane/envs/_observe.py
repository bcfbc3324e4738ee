"""What an environment shows its agent: four kinds of observation, their spaces, and how each is
read from one `Puzzle` or from a whole `PuzzleBatch`.

A batch's observation is `np.asarray` of a fresh `Array`, so it costs no copy and is a new object
on every call. A single puzzle's is built from the same facts so that its bytes, and its dtype, are
those of one row of the batch's.
"""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
from gymnasium import spaces

import torvane as tv

KINDS = ("colors", "one_hot", "ids", "pixels")


def whole_number_dtype(bound: int) -> type[np.unsignedinteger]:
    """The element type the package gives a block of whole numbers below `bound`."""
    if bound <= 256:
        return np.uint8
    if bound <= 65536:
        return np.uint16
    return np.uint32


def checked_kind(obs: str) -> str:
    if obs not in KINDS:
        choices = ", ".join(repr(kind) for kind in KINDS[:-1])
        raise ValueError(f"obs must be {choices} or {KINDS[-1]!r}, not {obs!r}")
    return obs


def checked_render_mode(render_mode: str | None) -> str | None:
    if render_mode not in (None, "rgb_array"):
        raise ValueError(f"render_mode must be None or 'rgb_array', not {render_mode!r}")
    return render_mode


@dataclass(frozen=True)
class Observation:
    kind: str
    sticker_count: int
    color_count: int
    width: int
    height: int

    def space(self) -> spaces.Space:
        n, colors = self.sticker_count, self.color_count
        if self.kind == "colors":
            return spaces.MultiDiscrete(np.full(n, colors), dtype=whole_number_dtype(colors))
        if self.kind == "one_hot":
            return spaces.MultiBinary(n * colors)
        if self.kind == "ids":
            return spaces.MultiDiscrete(np.full(n, n), dtype=whole_number_dtype(n))
        return spaces.Box(0, 255, (self.height, self.width, 3), np.uint8)

    def of_batch(self, batch: tv.PuzzleBatch) -> np.ndarray:
        if self.kind == "colors":
            return np.asarray(batch.observations())
        if self.kind == "one_hot":
            # MultiBinary holds int8; the same bytes, viewed.
            return np.asarray(batch.one_hot()).view(np.int8)
        if self.kind == "ids":
            return np.asarray(batch.sticker_ids())
        return np.asarray(batch.render(self.width, self.height, channels=3))

    def of_puzzle(self, puzzle: tv.Puzzle) -> np.ndarray:
        if self.kind == "colors":
            return np.array(puzzle.stickers(), dtype=whole_number_dtype(self.color_count))
        if self.kind == "one_hot":
            hot = np.zeros((self.sticker_count, self.color_count), dtype=np.int8)
            hot[np.arange(self.sticker_count), puzzle.stickers()] = 1
            return hot.reshape(-1)
        if self.kind == "ids":
            return np.array(puzzle.sticker_ids(), dtype=whole_number_dtype(self.sticker_count))
        return np.array(np.asarray(puzzle.render(self.width, self.height))[:, :, :3])

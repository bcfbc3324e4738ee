"""The batch's random walk, written over one `Puzzle`, and the scramble and seed arguments that
both environments take.

`PuzzleBatch` walks copy i with its own SplitMix64 state, never letting a draw undo the move
before it. A `Puzzle` that walks by the same rule from the same state makes the same moves, which is
what lets a `SyncVectorEnv` of single environments match the vector environment byte for byte.
"""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np
from gymnasium.utils import seeding

import torvane as tv

MASK_64 = (1 << 64) - 1
GOLDEN_GAMMA = 0x9E3779B97F4A7C15


def splitmix64(state: int) -> tuple[int, int]:
    """The next state and its output."""
    state = (state + GOLDEN_GAMMA) & MASK_64
    z = state
    z = ((z ^ (z >> 30)) * 0xBF58476D1CE4E5B9) & MASK_64
    z = ((z ^ (z >> 27)) * 0x94D049BB133111EB) & MASK_64
    return state, z ^ (z >> 31)


class Walker:
    """One copy's generator state and last move, driving `apply_action` on a puzzle."""

    def __init__(self, state: int = 0) -> None:
        self.state = state
        self.last: int | None = None

    def draw(self, action_count: int) -> int:
        self.state, z = splitmix64(self.state)
        action = z % action_count
        if action_count >= 3 and self.last is not None and action ^ self.last == 1:
            action = (action + 2) % action_count
        return action

    def walk(self, puzzle: tv.Puzzle, action_count: int, depth: int) -> int:
        """Makes up to `depth` moves; a refused move spends its draw, and after 8 * depth draws
        the walk gives up, as a batch of a puzzle that locks does. Returns the moves made."""
        made = 0
        if action_count == 0:
            return made
        for _ in range(8 * depth):
            if made == depth:
                break
            action = self.draw(action_count)
            if puzzle.apply_action(action):
                self.last = action
                made += 1
        return made


def checked_seed(seed: int | None) -> int | None:
    """Seeds are 64-bit: a negative one gets Gymnasium's own refusal, a larger one ours."""
    if seed is not None and seed < 0:
        seeding.np_random(seed)
    if seed is not None and seed > MASK_64:
        raise ValueError(f"a seed must be from 0 to 2**64 - 1, not {seed}")
    return seed


class Scramble:
    """A fixed walk depth, or a (low, high) range, both ends included, drawn per reset."""

    def __init__(self, scramble: int | Sequence[int]) -> None:
        if isinstance(scramble, (int, np.integer)) and not isinstance(scramble, bool):
            low = high = int(scramble)
        elif isinstance(scramble, Sequence) and len(scramble) == 2:
            low, high = (int(end) for end in scramble)
        else:
            raise TypeError(f"scramble must be a number of moves or a (low, high) pair, not {scramble!r}")
        if not 0 <= low <= high <= 0xFFFFFFFF:
            raise ValueError(f"scramble depths must satisfy 0 <= low <= high < 2**32, not {scramble!r}")
        self.low, self.high = low, high

    @property
    def fixed(self) -> bool:
        return self.low == self.high

    def draw(self, rng: np.random.Generator, count: int) -> np.ndarray:
        return rng.integers(self.low, self.high, size=count, endpoint=True, dtype=np.uint32)

    def __repr__(self) -> str:
        return str(self.low) if self.fixed else f"({self.low}, {self.high})"


def drawn_seed(rng: np.random.Generator) -> int:
    """A walk seed for a reset that was given none before any that was."""
    return int(rng.integers(0, MASK_64, endpoint=True, dtype=np.uint64))

"""`PuzzleEnv`: a Gymnasium environment over one `Puzzle`.

An episode starts from the solved puzzle walked `scramble` random moves and ends when a move
solves it, with reward 1. A move onto a layer that cannot turn changes nothing and is reported as
`info["applied"]`. The walk is the batch's own (see `_walk`), so a `SyncVectorEnv` of these
environments is an independent check of `PuzzleVectorEnv`.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import gymnasium as gym
import numpy as np

import torvane as tv
from torvane.envs._observe import Observation, checked_kind, checked_render_mode
from torvane.envs._walk import Scramble, Walker, checked_seed, drawn_seed

RENDER_FPS = 30


class PuzzleEnv(gym.Env):
    """One puzzle as a Gymnasium environment.

    `recipe` is a catalog name, a query string or a `Recipe`. `obs` is "colors" (the color in each
    sticker slot), "one_hot", "ids" (which sticker sits in each slot) or "pixels" (a
    `height` x `width` RGB picture). `scramble` is the walk depth of a reset, or a (low, high)
    range drawn from `np_random`. Actions are the puzzle's action numbers.
    """

    metadata = {"render_modes": ["rgb_array"], "render_fps": RENDER_FPS}

    def __init__(
        self,
        recipe: str | tv.Recipe,
        *,
        obs: str = "colors",
        scramble: int | Sequence[int] = 20,
        render_mode: str | None = None,
        width: int = 64,
        height: int = 64,
    ) -> None:
        kind = checked_kind(obs)
        self._scramble = Scramble(scramble)
        self.render_mode = checked_render_mode(render_mode)
        self._puzzle = tv.Puzzle(recipe, show_arrows=False)
        self._jumbles = tv.jumbles(self._puzzle.query)
        if self._jumbles and kind != "pixels":
            raise ValueError(
                f"obs={kind!r} reads stickers from their solved slots, and this puzzle leaves them: "
                "use obs='pixels'"
            )
        self._action_count = self._puzzle.action_count
        self._observation = Observation(
            kind, self._puzzle.sticker_count, self._puzzle.color_count, width, height
        )
        self.observation_space = self._observation.space()
        self.action_space = gym.spaces.Discrete(self._action_count)
        self._walker: Walker | None = None

    @property
    def puzzle(self) -> tv.Puzzle:
        return self._puzzle

    def reset(
        self, *, seed: int | None = None, options: dict[str, Any] | None = None
    ) -> tuple[np.ndarray, dict[str, Any]]:
        super().reset(seed=checked_seed(seed))
        if seed is not None:
            self._walker = Walker(seed)
        elif self._walker is None:
            self._walker = Walker(drawn_seed(self.np_random))
        self._back_to_solved()
        self._walker.last = None
        depth = self._scramble.low if self._scramble.fixed else int(self._scramble.draw(self.np_random, 1)[0])
        self._walker.walk(self._puzzle, self._action_count, depth)
        return self._observation.of_puzzle(self._puzzle), {}

    def step(self, action: Any) -> tuple[np.ndarray, float, bool, bool, dict[str, Any]]:
        if self._walker is None:
            raise gym.error.ResetNeeded("call reset() before step()")
        applied = self._puzzle.apply_action(int(action))
        solved = self._is_solved()
        observation = self._observation.of_puzzle(self._puzzle)
        return observation, 1.0 if solved else 0.0, solved, False, {"applied": applied}

    def render(self) -> np.ndarray | None:
        if self.render_mode is None:
            return None
        width, height = self._observation.width, self._observation.height
        return np.array(np.asarray(self._puzzle.render(width, height))[:, :, :3])

    def _back_to_solved(self) -> None:
        # Undoing the turns is cheaper than a rebuild, and exact; a layer that locks halfway
        # leaves only the rebuild.
        if not self._puzzle.restore():
            self._puzzle.reset()
        self._puzzle.settle()

    def _is_solved(self) -> bool:
        if not self._jumbles:
            return self._puzzle.is_solved
        try:
            return self._puzzle.is_solved
        except tv.PuzzleError:
            return False  # off the solved lattice, so not solved

"""`PuzzleVectorEnv`: a Gymnasium vector environment over one `PuzzleBatch`.

Every copy of the batch is one sub-environment. A step is one `step` of the batch, then one
`reset_where` of the copies whose episode ended: the batch's generator does not move in `step`, and
`solve` puts a copy back exactly, so a copy restarted after a step is byte for byte what it would
be if it had been left out of the step. That is what keeps this class equal to a `SyncVectorEnv` of
`PuzzleEnv`s under the same seeds, in each autoreset mode.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
from gymnasium.spaces import Discrete
from gymnasium.vector import AutoresetMode, VectorEnv
from gymnasium.vector.utils import batch_space

import torvane as tv
from torvane.envs._observe import Observation, checked_kind, checked_render_mode
from torvane.envs._walk import MASK_64, Scramble, checked_seed, drawn_seed
from torvane.envs.single import RENDER_FPS


class PuzzleVectorEnv(VectorEnv):
    """`num_envs` copies of one puzzle as a Gymnasium vector environment.

    The arguments are those of `PuzzleEnv`, plus `max_episode_steps` (the truncation limit that
    `TimeLimit` would give each copy) and `autoreset_mode`. Observations are zero-copy NumPy
    views of the batch's arrays, new on every call. Actions are anything `np.asarray` takes: a
    list, a NumPy array, a CPU tensor. `batch` is the `PuzzleBatch` underneath.
    """

    def __init__(
        self,
        recipe: str | tv.Recipe,
        num_envs: int,
        *,
        obs: str = "colors",
        scramble: int | Sequence[int] = 20,
        max_episode_steps: int | None = None,
        autoreset_mode: AutoresetMode | str = AutoresetMode.NEXT_STEP,
        render_mode: str | None = None,
        width: int = 64,
        height: int = 64,
    ) -> None:
        kind = checked_kind(obs)
        self._scramble = Scramble(scramble)
        self.autoreset_mode = AutoresetMode(autoreset_mode)
        self.render_mode = checked_render_mode(render_mode)
        self.metadata = {
            "autoreset_mode": self.autoreset_mode,
            "render_modes": ["rgb_array"],
            "render_fps": RENDER_FPS,
        }
        self.batch = tv.PuzzleBatch(recipe, num_envs)
        self.num_envs = len(self.batch)
        self.max_episode_steps = max_episode_steps
        self._observation = Observation(
            kind, self.batch.sticker_count, self.batch.color_count, width, height
        )
        self.single_observation_space = self._observation.space()
        self.observation_space = batch_space(self.single_observation_space, self.num_envs)
        self.single_action_space = Discrete(self.batch.action_count)
        self.action_space = batch_space(self.single_action_space, self.num_envs)
        self._seeded = False
        self._steps = np.zeros(self.num_envs, dtype=np.int64)
        # Copies whose episode ended on the last step; NEXT_STEP restarts them on this one.
        self._ended = np.zeros(self.num_envs, dtype=np.bool_)

    def reset(
        self,
        *,
        seed: int | Sequence[int | None] | None = None,
        options: dict[str, Any] | None = None,
    ) -> tuple[np.ndarray, dict[str, Any]]:
        mask = self._reset_mask(options)
        seeds = self._seeds(seed)
        super().reset(seed=seed if isinstance(seed, int) else None)
        if isinstance(seed, int) and mask.all():
            self.batch.seed_all(seed)  # copy i from seed + i, as SyncVectorEnv seeds its envs
        elif seeds is not None:
            for index in np.flatnonzero(mask).tolist():
                if seeds[index] is not None:
                    self.batch.seed(index, seeds[index])
        elif not self._seeded:
            self.batch.seed_all(drawn_seed(self.np_random))
        self._seeded = True
        self._restart(mask)
        return self._observation.of_batch(self.batch), {}

    def step(
        self, actions: Any
    ) -> tuple[np.ndarray, np.ndarray, np.ndarray, np.ndarray, dict[str, Any]]:
        if self.autoreset_mode == AutoresetMode.DISABLED and self._ended.any():
            raise AssertionError(
                "copies whose episode ended must be reset with options={'reset_mask': ...} before "
                f"the next step: {np.flatnonzero(self._ended).tolist()}"
            )
        solved, applied = (np.asarray(flags) for flags in self.batch.step(np.asarray(actions)))
        if self.autoreset_mode == AutoresetMode.NEXT_STEP:
            restarted = self._ended.copy()
            if restarted.any():
                self._restart(restarted)
        else:
            restarted = np.zeros(self.num_envs, dtype=np.bool_)
        live = ~restarted
        self._steps = np.where(live, self._steps + 1, 0)
        terminated = solved & live
        truncated = self._out_of_time() & live
        rewards = terminated.astype(np.float64)
        observations = self._observation.of_batch(self.batch)
        ended = terminated | truncated
        infos: dict[str, Any] = {}
        if self.autoreset_mode == AutoresetMode.SAME_STEP and ended.any():
            infos["final_obs"] = final_rows(observations, ended)
            infos["_final_obs"] = ended
            infos["final_info"] = masked_info(applied, ended)
            infos["_final_info"] = ended.copy()
            self._restart(ended)
            observations = self._observation.of_batch(self.batch)
            live = ~ended
        else:
            self._ended = ended
        infos.update(masked_info(applied, live))
        return observations, rewards, terminated, truncated, infos

    def render(self) -> tuple[np.ndarray, ...] | None:
        if self.render_mode is None:
            return None
        width, height = self._observation.width, self._observation.height
        return tuple(np.asarray(self.batch.render(width, height, channels=3)))

    def _out_of_time(self) -> np.ndarray:
        # As TimeLimit does: the limit truncates whether or not the same step also solved.
        if self.max_episode_steps is None:
            return np.zeros(self.num_envs, dtype=np.bool_)
        return self._steps >= self.max_episode_steps

    def _restart(self, mask: np.ndarray) -> None:
        """Solves the copies in `mask` and walks them from there."""
        chosen = np.flatnonzero(mask)
        which = None if len(chosen) == self.num_envs else chosen.tolist()
        if self._scramble.fixed:
            self.batch.reset_where(which, scramble=self._scramble.low)
        else:
            depths = np.zeros(self.num_envs, dtype=np.uint32)
            depths[chosen] = self._scramble.draw(self.np_random, len(chosen))
            self.batch.solve(which)
            self.batch.scramble(depths)
        self._steps[chosen] = 0
        self._ended[chosen] = False

    def _reset_mask(self, options: dict[str, Any] | None) -> np.ndarray:
        """The copies to reset: all, or `options["reset_mask"]`, checked as SyncVectorEnv does."""
        if options is None or "reset_mask" not in options:
            return np.ones(self.num_envs, dtype=np.bool_)
        mask = options["reset_mask"]
        if not isinstance(mask, np.ndarray):
            raise TypeError(f"`options['reset_mask']` must be a numpy array, got {type(mask)}")
        if mask.shape != (self.num_envs,):
            raise ValueError(
                f"`options['reset_mask']` must have shape `({self.num_envs},)`, got {mask.shape}"
            )
        if mask.dtype != np.bool_:
            raise TypeError(f"`options['reset_mask']` must have `dtype=np.bool_`, got {mask.dtype}")
        if not mask.any():
            raise ValueError(
                "`options['reset_mask']` must contain a boolean array with at least one True "
                f"value, got reset_mask={mask}"
            )
        return mask

    def _seeds(self, seed: int | Sequence[int | None] | None) -> list[int | None] | None:
        """One seed or None per copy, checked before anything changes; None for no seed."""
        if seed is None:
            return None
        if isinstance(seed, int):
            checked_seed(seed)
            return [(seed + index) & MASK_64 for index in range(self.num_envs)]
        seeds = list(seed)
        if len(seeds) != self.num_envs:
            raise ValueError(
                "If seeds are passed as a list the length must match "
                f"num_envs={self.num_envs} but got length={len(seeds)}."
            )
        return [checked_seed(None if s is None else int(s)) for s in seeds]


def masked_info(applied: np.ndarray, mask: np.ndarray) -> dict[str, np.ndarray]:
    """`info["applied"]` of the copies in `mask`, laid out as Gymnasium's vector infos are."""
    if not mask.any():
        return {}
    return {"applied": applied & mask, "_applied": mask.copy()}


def final_rows(observations: np.ndarray, ended: np.ndarray) -> np.ndarray:
    rows = np.full(len(ended), None, dtype=object)
    for index in np.flatnonzero(ended):
        rows[index] = observations[index]
    return rows

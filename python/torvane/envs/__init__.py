"""Gymnasium environments of torvane's puzzles: `pip install torvane[gym]`.

`PuzzleEnv` is one `Puzzle`; `PuzzleVectorEnv` is a whole `PuzzleBatch` behind Gymnasium's vector
interface. Importing this module registers five puzzles:

    import gymnasium as gym
    env = gym.make("torvane.envs:torvane/Cube3x3x3-v0")
    envs = gym.make_vec("torvane.envs:torvane/Cube3x3x3-v0", num_envs=4096)

The "torvane.envs:" prefix makes Gymnasium import this module first.
"""

try:
    import gymnasium
except ImportError as error:  # pragma: no cover - depends on what is installed
    raise ImportError("torvane.envs needs Gymnasium: pip install torvane[gym]") from error

from torvane.envs.single import PuzzleEnv
from torvane.envs.vector import PuzzleVectorEnv

__all__ = ["PuzzleEnv", "PuzzleVectorEnv", "REGISTERED"]

# Environment id -> (catalog name, steps before an episode is truncated).
REGISTERED = {
    "torvane/Cube2x2x2-v0": ("2x2x2 Cube", 50),
    "torvane/Cube3x3x3-v0": ("Rubik's Cube (3x3x3)", 100),
    "torvane/Pyraminx-v0": ("Pyraminx", 50),
    "torvane/Skewb-v0": ("Skewb", 50),
    "torvane/Megaminx-v0": ("Megaminx", 200),
}


def _register() -> None:
    for env_id, (name, limit) in REGISTERED.items():
        if env_id not in gymnasium.registry:
            gymnasium.register(
                id=env_id,
                entry_point="torvane.envs.single:PuzzleEnv",
                vector_entry_point="torvane.envs.vector:PuzzleVectorEnv",
                max_episode_steps=limit,
                kwargs={"recipe": name},
            )


_register()

"""The Gymnasium vector environment on the 3x3x3 against the loops it competes with, timed in
the same run and interleaved, at 4096 and 65536 copies and 1 and 2 worker threads (each thread
count in its own process, since the pool's size is fixed on first use). Actions are drawn ahead as
int64, as `action_space.sample()` gives them; episodes are scrambled 20 moves and truncated after
100 steps, so restarts happen on the way.

- PuzzleVectorEnv.step against the same loop written on the batch (step, observations,
  reset_where of the copies that ended), and against bare PuzzleBatch.step;
- against a NumPy vector env of the kind RL code writes: uint8 identity rows, one
  take_along_axis per step, a colors gather, a solved test and an np.where restart from
  scrambled rows drawn ahead;
- at 64 copies, against Gymnasium's SyncVectorEnv of PuzzleEnvs.

Each pair is checked to give the same observations before it is timed.

    PYTHONPATH=python .venv/bin/python bench/gym_vector.py
"""
import os
import subprocess
import sys
import time

import numpy as np

CUBE3 = "Rubik's Cube (3x3x3)"
DEPTH, LIMIT, STEPS = 20, 100, 40


def best(loops, repeat):
    """Times each loop `repeat` times, alternating; the best of each, per step."""
    times = [float("inf")] * len(loops)
    for _ in range(repeat):
        for k, loop in enumerate(loops):
            start = time.perf_counter()
            loop()
            times[k] = min(times[k], time.perf_counter() - start)
    return [t / STEPS for t in times]


class BatchLoop:
    """What the adapter does, written straight on the batch."""

    def __init__(self, tv, count):
        self.batch = tv.PuzzleBatch(CUBE3, count, seed=7, scramble=DEPTH)
        self.steps = np.zeros(count, dtype=np.int64)
        self.ended = np.zeros(count, dtype=np.bool_)

    def step(self, actions):
        solved, _ = self.batch.step(actions)
        restart = self.ended
        if restart.any():
            self.batch.reset_where(np.flatnonzero(restart).tolist(), scramble=DEPTH)
        self.steps = np.where(restart, 0, self.steps + 1)
        self.ended = (np.asarray(solved) | (self.steps >= LIMIT)) & ~restart
        return np.asarray(self.batch.observations())


class NumpyEnv:
    """A vector env over uint8 identity rows, restarting from scrambled rows drawn ahead."""

    def __init__(self, batch, count):
        self.perms = np.asarray(batch.permutations).astype(np.intp)
        self.colors = np.array(batch.solved_stickers, dtype=np.uint8)
        self.starts = np.asarray(batch.sticker_ids()).copy()
        self.ids = self.starts.copy()
        self.steps = np.zeros(count, dtype=np.int64)

    def step(self, actions):
        self.ids = np.take_along_axis(self.ids, self.perms[actions], axis=1)
        observations = self.colors[self.ids]
        solved = (observations == self.colors).all(axis=1)
        self.steps += 1
        done = solved | (self.steps >= LIMIT)
        self.ids = np.where(done[:, None], self.starts, self.ids)
        self.steps = np.where(done, 0, self.steps)
        return self.colors[self.ids]


def loop(step, actions):
    return lambda: [step(a) for a in actions]


def measure():
    import gymnasium as gym

    import torvane as tv
    from torvane.envs import PuzzleVectorEnv

    print(f"threads {tv.thread_count()}")
    for count in (4096, 65536):
        actions = np.random.default_rng(0).integers(0, 12, (STEPS, count))
        env = PuzzleVectorEnv(CUBE3, count, scramble=DEPTH, max_episode_steps=LIMIT)
        env.reset(seed=7)
        written = BatchLoop(tv, count)
        bare = tv.PuzzleBatch(CUBE3, count, seed=7, scramble=DEPTH)
        numpy_env = NumpyEnv(bare, count)
        for a in actions[:3]:
            assert np.array_equal(env.step(a)[0], written.step(a))
            bare.step(a)
            assert np.array_equal(numpy_env.step(a), np.asarray(bare.observations()))
        adapter, batch_loop, bare_step, numpy_loop = best(
            [loop(env.step, actions), loop(written.step, actions), loop(bare.step, actions),
             loop(numpy_env.step, actions)], 3)
        print(f"  {count:>6} copies: adapter {count / adapter / 1e6:7.2f} M steps/s, "
              f"overhead {adapter / batch_loop - 1:6.1%} over the batch loop, x{adapter / bare_step:5.2f} "
              f"the time of bare step; NumPy vector env x{numpy_loop / adapter:5.1f} slower")
    count = 64
    actions = np.random.default_rng(1).integers(0, 12, (STEPS, count))
    env = PuzzleVectorEnv(CUBE3, count, scramble=DEPTH, max_episode_steps=LIMIT)
    sync = gym.make_vec("torvane.envs:torvane/Cube3x3x3-v0", count, vectorization_mode="sync",
                        scramble=DEPTH, max_episode_steps=LIMIT)
    assert np.array_equal(env.reset(seed=3)[0], sync.reset(seed=3)[0])
    assert np.array_equal(env.step(actions[0])[0], sync.step(actions[0])[0])
    adapter, synced = best([loop(env.step, actions), loop(sync.step, actions)], 2)
    print(f"      64 copies: adapter {count / adapter / 1e6:7.3f} M steps/s, "
          f"SyncVectorEnv of PuzzleEnvs x{synced / adapter:6.1f} slower")


if __name__ == "__main__":
    if len(sys.argv) > 1 and sys.argv[1] == "--measure":
        measure()
    else:
        for threads in ("1", "2"):
            env = dict(os.environ, RAYON_NUM_THREADS=threads)
            subprocess.run([sys.executable, __file__, "--measure"], env=env, check=True)

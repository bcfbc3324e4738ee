"""Batch costs on the 3x3x3, against what a NumPy user writes, timed in the same run and
interleaved, at 1 and 2 worker threads (each in its own process, since the pool's size is
fixed on first use). Every pair is checked to give the same answer before it is timed.

- step (NumPy int64 actions) against np.take_along_axis(states, perms[actions], axis=1) on the
  same uint8 states, and against np.copyto of the same count * 54 bytes (the memory bound);
- walks of depth 20 and 100 (reset(scramble=d)) against a vectorised NumPy walk: SplitMix64
  draws, the no-inversion rule by np.where, one gather per depth;
- observations and one_hot against NumPy indexing of the identities.

    PYTHONPATH=python .venv/bin/python bench/bench_batch.py
"""
import os
import subprocess
import sys
import time

import numpy as np

CUBE3 = "?shell=C$1&cut=C$1/3"


def best(pairs, repeat):
    """Times each of (ours, theirs) `repeat` times, alternating; the best of each."""
    times = [float("inf")] * len(pairs)
    for _ in range(repeat):
        for k, function in enumerate(pairs):
            start = time.perf_counter()
            function()
            times[k] = min(times[k], time.perf_counter() - start)
    return times


def splitmix(state):
    with np.errstate(over="ignore"):
        state = state + np.uint64(0x9E3779B97F4A7C15)
        z = (state ^ (state >> np.uint64(30))) * np.uint64(0xBF58476D1CE4E5B9)
        z = (z ^ (z >> np.uint64(27))) * np.uint64(0x94D049BB133111EB)
        return state, z ^ (z >> np.uint64(31))


def numpy_walk(perms, seed, count, depth):
    states = np.uint64(seed) + np.arange(count, dtype=np.uint64)
    ids = np.tile(np.arange(54, dtype=np.uint8), (count, 1))
    last = np.full(count, -1)
    n = np.uint64(len(perms))
    for _ in range(depth):
        states, z = splitmix(states)
        a = (z % n).astype(np.int64)
        a = np.where((last >= 0) & ((a ^ last) == 1), (a + 2) % len(perms), a)
        ids = np.take_along_axis(ids, perms[a], axis=1)
        last = a
    return ids


def measure():
    import torvane as tv

    print(f"threads {tv.thread_count()}")
    for count in (4096, 2**20):
        b = tv.PuzzleBatch(CUBE3, count, seed=1)
        perms = np.asarray(b.permutations).astype(np.intp)
        colors = np.array(b.solved_stickers, dtype=np.uint8)
        actions = np.random.default_rng(0).integers(0, 12, count)
        states = np.asarray(b.sticker_ids()).copy()
        b.step(actions)
        assert np.array_equal(np.asarray(b.sticker_ids()), np.take_along_axis(states, perms[actions], axis=1))
        target = np.empty_like(states)
        repeat = 30 if count == 4096 else 5
        ours, gather, copy = best([lambda: b.step(actions),
                                   lambda: np.take_along_axis(states, perms[actions], axis=1),
                                   lambda: np.copyto(target, states)], repeat)
        print(f"  step {count:>8} copies: {ours * 1e3:8.3f} ms   take_along_axis x{gather / ours:6.1f}   "
              f"copyto rate {copy / ours:6.1%}")
        ids = np.asarray(b.sticker_ids())
        obs, eye = b.observations(), np.eye(6, dtype=np.uint8)
        assert np.array_equal(np.asarray(obs), colors[ids])
        assert np.array_equal(np.asarray(b.one_hot()), eye[colors[ids]].reshape(count, -1))
        ours_obs, numpy_obs, ours_hot, numpy_hot = best(
            [b.observations, lambda: colors[ids], b.one_hot, lambda: eye[colors[ids]].reshape(count, -1)], repeat)
        print(f"  observations x{numpy_obs / ours_obs:6.1f}   one_hot x{numpy_hot / ours_hot:6.1f}")
    count = 2**16
    b = tv.PuzzleBatch(CUBE3, count)
    perms = np.asarray(b.permutations).astype(np.intp)
    for depth in (20, 100):
        b.seed_all(5)
        b.reset(scramble=depth)
        assert np.array_equal(np.asarray(b.sticker_ids()), numpy_walk(perms, 5, count, depth))

        def ours():
            b.seed_all(5)
            b.reset(scramble=depth)

        mine, theirs = best([ours, lambda: numpy_walk(perms, 5, count, depth)], 3)
        print(f"  walk depth {depth:>3}, {count} copies: {mine * 1e3:8.2f} ms   numpy walk x{theirs / mine:6.1f}")


if __name__ == "__main__":
    if len(sys.argv) > 1 and sys.argv[1] == "--measure":
        measure()
    else:
        for threads in ("1", "2"):
            env = dict(os.environ, RAYON_NUM_THREADS=threads)
            subprocess.run([sys.executable, __file__, "--measure"], env=env, check=True)

"""Layout costs, against what a NumPy user writes, timed in the same run and interleaved, at 1
and 2 worker threads (each in its own process, since the pool's size is fixed on first use).
Every pair is checked to give the same answer before it is timed.

- scrambled and trajectories (10^4 and 10^5 walks, depth 20 and 30) on the 3x3x3 against a
  NumPy generator of the kind learning code writes: SplitMix64 draws vectorised over the batch,
  np.where to dodge the inverse, one take_along_axis gather per step, the steps stacked for
  trajectories;
- next_states on a block of states against take_along_axis;
- to_facelets against fancy indexing;
- construction of the 3x3x3, 4x4x4 and Megaminx layouts, and with_moves of 1728 macro-moves
  (printed as times: there is nothing to compare them with).

    PYTHONPATH=python .venv/bin/python bench/bench_layout.py
"""
import itertools
import os
import subprocess
import sys
import time

import numpy as np

GAMMA = np.uint64(0x9E3779B97F4A7C15)


def best(pairs, repeat):
    """Times each function `repeat` times, alternating; the best of each."""
    times = [float("inf")] * len(pairs)
    for _ in range(repeat):
        for k, function in enumerate(pairs):
            start = time.perf_counter()
            function()
            times[k] = min(times[k], time.perf_counter() - start)
    return times


def splitmix(state):
    with np.errstate(over="ignore"):
        state = state + GAMMA
        z = (state ^ (state >> np.uint64(30))) * np.uint64(0xBF58476D1CE4E5B9)
        z = (z ^ (z >> np.uint64(27))) * np.uint64(0x94D049BB133111EB)
        return state, z ^ (z >> np.uint64(31))


def numpy_walks(goal, perms, inverses, seed, count, depth, keep):
    """The layout's walks, vectorised over rows; every position when `keep`, else the last."""
    with np.errstate(over="ignore"):
        states = ((np.uint64(seed) + np.arange(count, dtype=np.uint64)) * GAMMA) | np.uint64(1)
    rows = np.tile(goal, (count, 1))
    previous = None
    n = len(perms)
    positions, moves = [rows], []
    for _ in range(depth):
        states, z = splitmix(states)
        a = (z % np.uint64(n)).astype(np.int64)
        if previous is not None:
            a = np.where(inverses[previous] == a, (a + 1) % n, a)
        rows = np.take_along_axis(rows, perms[a], axis=1)
        previous = a
        if keep:
            positions.append(rows)
            moves.append(a)
    if keep:
        return np.stack(positions, axis=1), np.stack(moves, axis=1)
    return rows


def measure():
    import torvane as tv

    print(f"threads {tv.thread_count()}")
    cube = tv.Layout()
    goal = np.asarray(cube.goal_colors)
    perms = np.asarray(cube.moves).astype(np.intp)
    inverses = np.array(cube.inverses)
    for count in (10**4, 10**5):
        for depth in (20, 30):
            ours = np.asarray(cube.scrambled(count, depth, seed=3))
            assert np.array_equal(ours, numpy_walks(goal, perms, inverses, 3, count, depth, False))
            states, moves = cube.trajectories(depth, count, seed=3)
            theirs = numpy_walks(goal, perms, inverses, 3, count, depth, True)
            assert np.array_equal(states, theirs[0]) and np.array_equal(moves, theirs[1])
            s_ours, s_numpy, t_ours, t_numpy = best(
                [lambda: cube.scrambled(count, depth, seed=3),
                 lambda: numpy_walks(goal, perms, inverses, 3, count, depth, False),
                 lambda: cube.trajectories(depth, count, seed=3),
                 lambda: numpy_walks(goal, perms, inverses, 3, count, depth, True)], 3)
            print(f"  {count:>6} walks of {depth}: scrambled {s_ours * 1e3:7.2f} ms x{s_numpy / s_ours:6.1f}   "
                  f"trajectories {t_ours * 1e3:7.2f} ms x{t_numpy / t_ours:6.1f}")

    count = 10**5
    block = np.asarray(cube.scrambled(count, 20, seed=1))
    moves = np.random.default_rng(0).integers(0, 12, count)
    assert np.array_equal(cube.next_states(block, moves), np.take_along_axis(block, perms[moves], axis=1))
    colors = np.asarray(cube.from_facelets(block))
    slot_of_facelet = np.asarray(cube.slot_of_facelet).astype(np.intp)
    solved_colors = np.asarray(cube.from_facelets(goal))
    face_of_color = np.zeros(6, np.uint8)
    face_of_color[solved_colors[slot_of_facelet]] = goal
    assert np.array_equal(cube.to_facelets(colors), face_of_color[colors[:, slot_of_facelet]])
    n_ours, n_numpy, f_ours, f_numpy = best(
        [lambda: cube.next_states(block, moves), lambda: np.take_along_axis(block, perms[moves], axis=1),
         lambda: cube.to_facelets(colors), lambda: face_of_color[colors[:, slot_of_facelet]]], 5)
    print(f"  {count} states: next_states {n_ours * 1e3:6.2f} ms x{n_numpy / n_ours:5.1f} (take_along_axis)   "
          f"to_facelets {f_ours * 1e3:6.2f} ms x{f_numpy / f_ours:5.1f} (fancy indexing)")

    for name in ("Rubik's Cube (3x3x3)", "4x4x4 Cube", "Megaminx"):
        (seconds,) = best([lambda: tv.Layout(name)], 3)
        print(f"  Layout({name!r}): {seconds * 1e3:7.1f} ms")
    triples = list(itertools.product(range(12), repeat=3))
    (seconds,) = best([lambda: cube.with_moves(triples)], 3)
    print(f"  with_moves of 1728 triples: {seconds * 1e3:7.1f} ms")


if __name__ == "__main__":
    if len(sys.argv) > 1 and sys.argv[1] == "--measure":
        measure()
    else:
        for threads in ("1", "2"):
            env = dict(os.environ, RAYON_NUM_THREADS=threads)
            subprocess.run([sys.executable, __file__, "--measure"], env=env, check=True)

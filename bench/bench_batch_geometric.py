"""Batches of simulators against single Puzzles, and their use of a second thread.

    PYTHONPATH=python .venv/bin/python bench/bench_batch_geometric.py [--catalog]

1. Per copy on one thread: a batch's step against apply_action plus the solved test on one
   Puzzle of the same recipe, the same actions, interleaved; aim near 1.
2. Two threads against one (subprocesses with RAYON_NUM_THREADS 1 and 2): step, walks and
   construction; aim 1.8 on two idle cores.
3. Construction of a batch of permutations against Puzzle plus action_permutations().
4. With --catalog: the per-copy step cost of every recipe that needs simulators, slowest first.
Every timed run checks its answer against the single puzzles or the other run."""
import json
import os
import subprocess
import sys
import time

import torvane as tv

RECIPES = {
    "Little Chop": "?shell=C$3*sqrt(2)/4&cut=jC$0",
    "Helicopter Cube": "?shell=C$3*sqrt(2)/4&cut=jC$1/2",
    "Pyramorphix": "?shell=T$sqrt(2)&cut=C$0",
    "Chopasaurus": "?shell=D$1&cut=I$0",
}


def actions_for(count, steps, seed=5):
    """Pairs of an action and its inverse, so that copies keep coming back to solved."""
    state, out = seed, []
    for _ in range(steps // 2):
        state = (state * 6364136223846793005 + 1442695040888963407) % 2**64
        out += [state >> 33, (state >> 33) ^ 1]
    return [a % count for a in out]


def solved_or_error(call):
    try:
        return call()
    except tv.PuzzleError as error:
        return str(error)


# Per-copy figures run on a pool of one thread, the calling one, and count its CPU time, so
# that other work on a shared machine does not land on one side of the comparison.
def time_batch_steps(batch, sequence):
    start = time.process_time()
    for a in sequence:
        solved_or_error(lambda: batch.step([a] * len(batch)))
    return time.process_time() - start


def time_puzzle_steps(puzzle, sequence):
    start = time.process_time()
    for a in sequence:
        puzzle.apply_action(a)
        solved_or_error(lambda: puzzle.is_solved)
    return time.process_time() - start


def per_copy(query, copies=8, steps=40, rounds=3):
    batch, puzzle = tv.PuzzleBatch(query, copies), tv.Puzzle(query)
    sequence = actions_for(batch.action_count, steps)
    best_batch = best_puzzle = float("inf")
    for _ in range(rounds):
        best_batch = min(best_batch, time_batch_steps(batch, sequence) / copies)
        best_puzzle = min(best_puzzle, time_puzzle_steps(puzzle, sequence))
    assert batch.move_counts == [puzzle.history_length] * copies
    return best_batch / len(sequence), best_puzzle / len(sequence)


SCALING = """
import json, sys, time, torvane as tv
query, copies = sys.argv[1], int(sys.argv[2])
start = time.perf_counter(); b = tv.PuzzleBatch(query, copies, seed=3); build = time.perf_counter() - start
start = time.perf_counter(); b.scramble(20); walk = time.perf_counter() - start
step = 0.0
for k in range(10):
    start = time.perf_counter()
    try:
        b.step([(i + k) % b.action_count for i in range(copies)])
    except tv.PuzzleError:
        pass
    step += time.perf_counter() - start
print(json.dumps({"threads": tv.thread_count(), "build": build, "walk": walk, "step": step,
                  "digest": [b.history(i) for i in range(copies)]}))
"""


def scaling(query, copies=32):
    runs = {}
    for threads in ("1", "2", "1", "2"):
        env = dict(os.environ, RAYON_NUM_THREADS=threads)
        out = json.loads(subprocess.run([sys.executable, "-c", SCALING, query, str(copies)], env=env,
                                        capture_output=True, text=True, check=True).stdout)
        best = runs.setdefault(threads, out)
        for key in ("build", "walk", "step"):
            best[key] = min(best[key], out[key])
    assert runs["1"]["digest"] == runs["2"]["digest"], "the same walks on any number of threads"
    return {key: runs["1"][key] / runs["2"][key] for key in ("build", "walk", "step")}


def tabular_construction(query, rounds=3):
    batch_time = single_time = float("inf")
    for _ in range(rounds):
        start = time.perf_counter()
        batch = tv.PuzzleBatch(query, 1)
        batch_time = min(batch_time, time.perf_counter() - start)
        start = time.perf_counter()
        perms = tv.Puzzle(query).action_permutations()
        single_time = min(single_time, time.perf_counter() - start)
    assert batch.is_tabular and batch.permutations.tolist() == [s for row in perms for s in row]
    return batch_time, single_time


def catalog_costs():
    steady = set(tv.non_jumbling())
    costs = []
    for name, _, _, query in tv.catalog():
        if query in steady:
            continue
        batch_step, _ = per_copy(query, copies=4, steps=8, rounds=1)
        costs.append((batch_step, name))
    return sorted(costs, reverse=True)


def main():
    print(f"pool of {tv.thread_count()} threads, load average {os.getloadavg()[0]:.1f}")
    if os.environ.get("RAYON_NUM_THREADS") != "1":
        env = dict(os.environ, RAYON_NUM_THREADS="1")
        subprocess.run([sys.executable, __file__, "--per-copy"], env=env, check=True)
    else:
        for name, query in RECIPES.items():
            batch_step, single_step = per_copy(query)
            print(f"  step per copy, {name:16s} batch {batch_step * 1e6:8.1f} us  puzzle {single_step * 1e6:8.1f} us"
                  f"  ratio {batch_step / single_step:.2f}")
        if "--per-copy" in sys.argv:
            return
    for name in ("Helicopter Cube", "Pyramorphix"):
        ratios = scaling(RECIPES[name])
        print(f"  2 threads against 1, {name:16s} " + "  ".join(f"{k} {v:.2f}x" for k, v in ratios.items()))
    for query in ("?shell=C$1&cut=C$1/3", "?shell=D$1&cut=D$2/(sqrt(5)+1)"):
        batch_time, single_time = tabular_construction(query)
        print(f"  construction of permutations, {query}: batch {batch_time * 1e3:.1f} ms, "
              f"Puzzle + action_permutations {single_time * 1e3:.1f} ms, ratio {batch_time / single_time:.2f}")
    if "--catalog" in sys.argv:
        print("  step per copy on the pool, slowest first:")
        for cost, name in catalog_costs():
            print(f"    {cost * 1e6:9.1f} us  {name}")


if __name__ == "__main__":
    main()

"""build_many and render_many on a list of catalog puzzles, against a Python loop of Puzzle (and
render) and a two-thread ThreadPoolExecutor doing the same, timed interleaved in one child process
per worker-pool size. The results are checked equal first.

    PYTHONPATH=python .venv/bin/python bench/bench_many.py
"""
import concurrent.futures
import os
import subprocess
import sys
import timeit

import torvane as tv

NAMES = ["Rubik's Cube (3x3x3)", "Megaminx", "Pyraminx", "Skewb", "Dino Cube", "Helicopter Cube",
         "2x2x2 Cube", "4x4x4 Cube"] * 2
SIZE = 256
OPTIONS = {"scramble": 10, "seed": 5, "yaw": 30.0, "pitch": 25.0}


def drawn_alone(index, name):
    puzzle = tv.Puzzle(name, background=(255, 255, 255, 255), show_arrows=False, yaw=30.0, pitch=25.0)
    puzzle.seed(OPTIONS["seed"] + index)
    puzzle.scramble(OPTIONS["scramble"])
    puzzle.settle()
    return puzzle.render(SIZE, SIZE)


def loop_render():
    return [drawn_alone(i, name) for i, name in enumerate(NAMES)]


def pool_render(executor):
    return list(executor.map(drawn_alone, range(len(NAMES)), NAMES))


def ours_render():
    return tv.render_many(NAMES, SIZE, SIZE, **OPTIONS)


def best_of(functions, rounds=5):
    times = [[] for _ in functions]
    for _ in range(rounds):
        for k, function in enumerate(functions):
            times[k].append(timeit.timeit(function, number=1))
    return [min(t) for t in times]


def child():
    with concurrent.futures.ThreadPoolExecutor(2) as executor:
        assert [i.to_bytes() for i in ours_render()] == [i.to_bytes() for i in loop_render()]
        ours, loop, threads = best_of([ours_render, loop_render, lambda: pool_render(executor)])
        built, built_loop, built_threads = best_of([
            lambda: tv.build_many(NAMES),
            lambda: [tv.Puzzle(name) for name in NAMES],
            lambda: list(executor.map(tv.Puzzle, NAMES)),
        ])
    print(f"{tv.thread_count()} thread(s), {len(NAMES)} puzzles at {SIZE}x{SIZE}:\n"
          f"  render_many {ours * 1e3:7.1f} ms; Python loop {loop * 1e3:7.1f} ms (x{loop / ours:4.2f}); "
          f"2 Python threads {threads * 1e3:7.1f} ms (x{threads / ours:4.2f})\n"
          f"  build_many  {built * 1e3:7.1f} ms; Python loop {built_loop * 1e3:7.1f} ms (x{built_loop / built:4.2f}); "
          f"2 Python threads {built_threads * 1e3:7.1f} ms (x{built_threads / built:4.2f})")


def main():
    if "--child" in sys.argv:
        child()
        return
    for threads in ("1", "2"):
        subprocess.run([sys.executable, __file__, "--child"], env=dict(os.environ, RAYON_NUM_THREADS=threads),
                       check=True)


if __name__ == "__main__":
    main()

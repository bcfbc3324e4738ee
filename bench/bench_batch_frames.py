"""Batch pictures painted by lookup, in output bytes per second, against NumPy copying a block of
the same size (np.copyto, the memory rate), and against drawing each copy with Puzzle.render,
which is what the lookup table saves; interleaved in one child process per pool size.

    PYTHONPATH=python .venv/bin/python bench/bench_batch_frames.py
"""
import os
import subprocess
import sys
import timeit

import numpy as np

import torvane as tv

CUBE = "Rubik's Cube (3x3x3)"
CASES = [(1024, 64), (256, 256)]


def best_pair(ours, anchor, rounds=7):
    a, b = [], []
    for _ in range(rounds):
        a.append(timeit.timeit(ours, number=1))
        b.append(timeit.timeit(anchor, number=1))
    return min(a), min(b)


def child():
    for count, side in CASES:
        batch = tv.PuzzleBatch(CUBE, count, seed=1, scramble=20)
        for supersample in (1, 2):
            if hasattr(batch, "configure"):
                batch.configure(supersample=supersample)
            elif supersample == 1:
                continue
            for dtype in ("u1", "f4"):
                block = np.asarray(batch.render(side, side, dtype=dtype))
                assert block.shape == (count, side, side, 4)
                source, target = np.ones_like(block), np.empty_like(block)
                ours, copy = best_pair(lambda: batch.render(side, side, dtype=dtype),
                                       lambda: np.copyto(target, source))
                rate = block.nbytes / ours / 1e9
                print(f"  {count} x {side}^2 s={supersample} {dtype}: {ours * 1e3:7.2f} ms, {rate:5.2f} GB/s; "
                      f"np.copyto {copy * 1e3:7.2f} ms; {copy / ours * 100:5.1f}% of its rate")
        single = tv.Puzzle(CUBE, show_arrows=False)
        drawn = timeit.timeit(lambda: single.render(side, side), number=5) / 5
        painted = best_pair(lambda: batch.render(side, side), lambda: None)[0] / count
        print(f"  per copy at {side}^2: painted {painted * 1e6:7.2f} us, drawn by Puzzle.render {drawn * 1e6:8.1f} us "
              f"(x{drawn / painted:5.0f})")


def main():
    if "--child" in sys.argv:
        print(f"{tv.thread_count()} thread(s):")
        child()
        return
    for threads in ("1", "2"):
        subprocess.run([sys.executable, __file__, "--child"], env=dict(os.environ, RAYON_NUM_THREADS=threads),
                       check=True)


if __name__ == "__main__":
    main()

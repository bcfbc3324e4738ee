"""Frame costs: a 512x512 frame of a scrambled 3x3x3 at supersample 2, at rest and mid-animation,
against the memory floor of a frame (NumPy filling the same 1024x1024 color and depth buffers
and box-averaging the colors by reshape), timed interleaved in one process per thread count;
then the five slowest catalog puzzles. The worker pool is sized once per process, so each
thread count runs in a child process.

    PYTHONPATH=python .venv/bin/python bench/bench_frames.py [--catalog]
"""
import argparse
import os
import subprocess
import sys
import timeit

import numpy as np

import torvane as tv

SIZE, SUPERSAMPLE = 512, 2


def best(function, repeat=15):
    return min(timeit.repeat(function, repeat=repeat, number=1))


def memory_floor():
    side = SIZE * SUPERSAMPLE
    color = np.full((side, side), 0xFF201A18, dtype=np.uint32)
    depth = np.full((side, side), np.inf, dtype=np.float32)
    blocks = color.view(np.uint8).reshape(SIZE, SUPERSAMPLE, SIZE, SUPERSAMPLE, 4).sum(axis=(1, 3), dtype=np.uint16)
    return (blocks + 2) // 4, depth


def cube():
    return tv.Puzzle("Rubik's Cube (3x3x3)", seed=7, scramble=20, yaw=35, pitch=28, supersample=SUPERSAMPLE)


def checked(image):
    pixels = np.asarray(image)
    assert pixels.shape == (SIZE, SIZE, 4)
    assert pixels[SIZE // 2, SIZE // 2, 3] == 255 and pixels[0, 0, 3] == 0
    return image


def interleaved(ours, floor, rounds=15):
    ours_times, floor_times = [], []
    for _ in range(rounds):
        ours_times.append(best(ours, repeat=1))
        floor_times.append(best(floor, repeat=1))
    return min(ours_times), min(floor_times)


def child(catalog):
    threads = tv.thread_count()
    still = cube()
    checked(still.render(SIZE, SIZE))
    ours, floor = interleaved(lambda: still.render(SIZE, SIZE), memory_floor)
    print(f"{threads} thread(s): frame at rest {ours * 1e3:7.3f} ms, memory floor {floor * 1e3:7.3f} ms, "
          f"ratio {ours / floor:5.2f}")
    moving = cube()
    moving.turn(0)
    moving.advance(120.0)
    assert moving.animating
    checked(moving.render(SIZE, SIZE))
    ours, floor = interleaved(lambda: moving.render(SIZE, SIZE), memory_floor)
    print(f"{threads} thread(s): mid-animation  {ours * 1e3:7.3f} ms, memory floor {floor * 1e3:7.3f} ms, "
          f"ratio {ours / floor:5.2f}")
    if catalog:
        rows = []
        for name, _, _, recipe in tv.catalog():
            p = tv.Puzzle(recipe, supersample=SUPERSAMPLE)
            rows.append((best(lambda: p.render(SIZE, SIZE), repeat=5), name))
        rows.sort(reverse=True)
        floor = best(memory_floor)
        for seconds, name in rows[:5]:
            print(f"  {seconds * 1e3:7.3f} ms  ratio {seconds / floor:5.2f}  {name}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--catalog", action="store_true", help="also time every catalog puzzle, slowest five")
    parser.add_argument("--child", action="store_true", help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.child:
        child(args.catalog)
        return
    for threads in ("1", "2"):
        env = dict(os.environ, RAYON_NUM_THREADS=threads)
        command = [sys.executable, __file__, "--child"] + (["--catalog"] if args.catalog else [])
        subprocess.run(command, env=env, check=True)


if __name__ == "__main__":
    main()

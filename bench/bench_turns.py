"""A warm exact 3x3x3 turn against magiccube's facelet permutation, in one run.

magiccube (`pip install magiccube`) turns a cube by permuting its 54 facelets; a torvane turn
finds the stops of a layer, rotates its pieces by an exact quaternion and derives every grip
again. The ratio is context, not a race between equals. Needs the driver built first:

    g++ -O2 -std=c++20 -ffp-contract=off -Isrc bench/turn_times.cpp \\
        build/release/libtorvane_core.a -ltbb -lz -lgmp -o build/turn_times
    .venv/bin/python bench/bench_turns.py
"""
import pathlib
import re
import subprocess
import timeit

import magiccube

DRIVER = pathlib.Path(__file__).resolve().parent.parent / "build" / "turn_times"


def torvane_warm_turn_ms():
    out = subprocess.run([DRIVER, "cube"], check=True, capture_output=True, text=True).stdout
    return float(re.search(r"warm ([0-9.]+) ms", out).group(1)), out


def magiccube_turn_ms():
    cube = magiccube.Cube(3)
    cube.rotate("R")
    assert not cube.is_done()
    for _ in range(3):
        cube.rotate("R")
    assert cube.is_done(), "four quarter turns of one face restore the cube"
    n = 2000
    return min(timeit.repeat(lambda: cube.rotate("R"), number=n, repeat=3)) / n * 1000.0


def main():
    ratios = []
    for _ in range(3):
        ours, out = torvane_warm_turn_ms()
        theirs = magiccube_turn_ms()
        ratios.append(ours / theirs)
        print(f"torvane warm turn {ours:.4f} ms, magiccube rotate('R') {theirs:.4f} ms, ratio {ours / theirs:.2f}")
    print(out, end="")
    print(f"best ratio (ours / magiccube): {min(ratios):.2f}")


if __name__ == "__main__":
    main()

"""The pointer's hit test: `Puzzle.arrow_at` against a NumPy Moller-Trumbore vectorised over the
same world-space arrow triangles (written by bench/arrow_triangles.cpp, built here against the
core library when missing), one ray per call as a pointer event gives, timed interleaved.
The answers are checked against each other first.

    PYTHONPATH=python .venv/bin/python bench/bench_arrows.py
"""
import math
import pathlib
import subprocess
import timeit

import numpy as np

import torvane as tv

ROOT = pathlib.Path(__file__).resolve().parent.parent
TOOL = ROOT / "build" / "arrow_triangles"
RECIPES = {"3x3x3": "?shell=C$1&cut=C$1/3", "Megaminx": "Megaminx"}


def triangles(recipe):
    if not TOOL.exists():
        subprocess.run(["g++", "-O2", "-std=c++20", "-ffp-contract=off", "-Isrc", "bench/arrow_triangles.cpp",
                        "build/release/libtorvane_core.a", "-ltbb", "-lz", "-lgmp", "-o", str(TOOL)],
                       cwd=ROOT, check=True)
    recipe = dict((row[0], row[3]) for row in tv.catalog()).get(recipe, recipe)
    data = subprocess.run([str(TOOL), recipe], check=True, capture_output=True).stdout
    arrows, per_arrow = np.frombuffer(data[:8], "<u4")
    return np.frombuffer(data[8:], "<f8").reshape(arrows * per_arrow, 3, 3), int(per_arrow)


class NumpyHits:
    """Moller-Trumbore over every triangle at once, with the hit test's constants."""

    def __init__(self, corners, per_arrow, puzzle):
        self.a = corners[:, 0]
        self.e1, self.e2 = corners[:, 1] - self.a, corners[:, 2] - self.a
        self.per_arrow = per_arrow
        eye, target = np.array(puzzle.camera_position), np.array(puzzle.camera_target)
        forward = (target - eye) / np.linalg.norm(target - eye)
        right = np.cross(forward, puzzle.camera_up)
        right /= np.linalg.norm(right)
        self.eye, self.forward, self.right, self.up = eye, forward, right, np.cross(right, forward)
        self.half = math.tan(math.radians(puzzle.fov) / 2)

    def __call__(self, x, y):
        d = self.forward + self.half * (x * self.right + y * self.up)
        d /= np.linalg.norm(d)
        p = np.cross(d, self.e2)
        det = np.einsum("ij,ij->i", self.e1, p)
        with np.errstate(divide="ignore", invalid="ignore"):
            inv = 1.0 / det
            s = self.eye - self.a
            u = np.einsum("ij,ij->i", s, p) * inv
            q = np.cross(s, self.e1)
            v = (q @ d) * inv
            t = np.einsum("ij,ij->i", self.e2, q) * inv
        hit = (np.abs(det) >= 1e-12) & (u >= 0) & (u <= 1) & (v >= 0) & (u + v <= 1) & (t > 1e-12)
        if not hit.any():
            return None
        return int(np.argmin(np.where(hit, t, np.inf))) // self.per_arrow


def main():
    rng = np.random.default_rng(5)
    for name, recipe in RECIPES.items():
        puzzle = tv.Puzzle(recipe)
        puzzle.look_from(35, 28)
        numpy_hits = NumpyHits(*triangles(recipe), puzzle)
        points = [tuple(p) for p in rng.uniform(-1, 1, (400, 2))]
        answers = [(puzzle.arrow_at(*p), numpy_hits(*p)) for p in points]
        agree = sum(ours == theirs for ours, theirs in answers)
        hits = sum(ours is not None for ours, _ in answers)
        assert agree >= 0.99 * len(points), answers
        ours_times, numpy_times = [], []
        for _ in range(7):
            ours_times.append(timeit.timeit(lambda: [puzzle.arrow_at(*p) for p in points], number=1) / len(points))
            numpy_times.append(timeit.timeit(lambda: [numpy_hits(*p) for p in points], number=1) / len(points))
        ours, anchor = min(ours_times), min(numpy_times)
        print(f"{name}: {len(numpy_hits.a)} triangles, {hits}/{len(points)} points on an arrow, "
              f"{agree}/{len(points)} answers agree; arrow_at {ours * 1e6:6.2f} us, NumPy {anchor * 1e6:7.2f} us, "
              f"ratio {ours / anchor:5.3f}")


if __name__ == "__main__":
    main()

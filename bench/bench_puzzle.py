"""Puzzle costs: every catalog recipe's construction, first turn, warm stickers() and jumbles,
slowest first; then, on the 3x3x3, ratios against baselines timed in the same run:

- apply_action + stickers() against magiccube's rotate (a facelet permutation in Python) and
  a NumPy gather (state[perm]), which is what a batch of copies does per step;
- reading written moves against str.split and a dict: the text ends in a bad token, so the
  whole text is read and nothing moves, which times the reader alone.

    .venv/bin/pip install magiccube
    PYTHONPATH=python .venv/bin/python bench/bench_puzzle.py [--catalog]
"""
import argparse
import random
import time
import timeit

import numpy as np

import torvane as tv


def seconds(function, repeat=5, number=1):
    return min(timeit.repeat(function, repeat=repeat, number=number)) / number


def catalog_rows():
    rows = []
    for name, _, _, recipe in tv.catalog():
        start = time.perf_counter()
        p = tv.Puzzle(recipe)
        built = time.perf_counter() - start
        start = time.perf_counter()
        if p.grip_count:
            p.turn(0)
        turned = time.perf_counter() - start
        p.settle()
        try:
            p.stickers()
            warm = seconds(p.stickers, repeat=3)
        except tv.PuzzleError:
            warm = float("nan")
        jumbles = seconds(lambda: tv.jumbles(recipe), repeat=1)
        rows.append((max(built, turned, jumbles), name, built, turned, warm, jumbles))
    rows.sort(reverse=True)
    print(f"{'build ms':>10} {'turn ms':>9} {'stickers us':>12} {'jumbles ms':>11}  name")
    for _, name, built, turned, warm, jumbles in rows:
        print(f"{built * 1e3:10.2f} {turned * 1e3:9.3f} {warm * 1e6:12.1f} {jumbles * 1e3:11.1f}  {name}")


def cube_ratios():
    import magiccube

    cube = tv.Puzzle("Rubik's Cube (3x3x3)")
    rows = cube.action_permutations()
    table = np.array(rows, dtype=np.int64)
    state = np.arange(54)
    actions = [random.Random(1).randrange(12) for _ in range(1000)]
    check = tv.Puzzle("Rubik's Cube (3x3x3)")
    expected = np.arange(54)
    for a in actions[:50]:
        check.apply_action(a)
        expected = expected[table[a]]
    assert check.sticker_ids() == expected.tolist(), "the gather and the puzzle agree"

    def ours():
        for a in actions:
            cube.apply_action(a)
            cube.stickers()

    def gather():
        s = state
        for a in actions:
            s = s[table[a]]

    facelets = magiccube.Cube(3)
    moves = [["R", "U", "F", "L", "D", "B"][a % 6] + ("'" if a & 1 else "") for a in actions]

    def theirs():
        for m in moves:
            facelets.rotate(m)

    for _ in range(2):
        t_ours, t_gather, t_magic = seconds(ours, 3), seconds(gather, 3), seconds(theirs, 3)
        print(f"apply_action + stickers(): {t_ours / 1e-3:.3f} us each; magiccube rotate {t_magic / 1e-3:.3f} us; "
              f"NumPy gather {t_gather / 1e-3:.3f} us; ours/magiccube {t_ours / t_magic:.2f}, ours/NumPy {t_ours / t_gather:.1f}")

    names = cube.actions
    lookup = {n: i for i, n in enumerate(names)}
    tokens = [names[a] for a in actions]
    text = " ".join(tokens) + " Z"

    def read():
        try:
            cube.apply(text)
        except tv.PuzzleError:
            pass

    def reference():
        [lookup.get(t) for t in text.split()]

    for _ in range(2):
        t_read, t_ref = seconds(read, 5), seconds(reference, 5)
        print(f"reading 1000 moves: {t_read * 1e6:.1f} us; str.split + dict {t_ref * 1e6:.1f} us; ratio {t_read / t_ref:.2f}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--catalog", action="store_true", help="also time every catalog recipe")
    args = parser.parse_args()
    cube_ratios()
    if args.catalog:
        catalog_rows()


if __name__ == "__main__":
    main()

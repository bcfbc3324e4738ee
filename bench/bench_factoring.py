"""Polynomial factoring: torvane's factor_polynomial against python-flint and SymPy.

Runs every library on the same named inputs in one run, checks that all of them find the same
number of distinct irreducible factors before any time is printed, and prints the best time per
call with the ratios torvane / FLINT and SymPy / torvane.

SymPy hands integer polynomials to FLINT when its ground types are "flint" (its default when
python-flint is installed); this benchmark runs SymPy's own factoring, on gmpy2 integers,
unless --sympy-ground-types says otherwise.

    PYTHONPATH=python .venv/bin/python bench/bench_factoring.py [--seconds 0.3] [--no-sympy]
"""

import argparse
import os
import random
import timeit

parser = argparse.ArgumentParser()
parser.add_argument("--seconds", type=float, default=0.3, help="time budget per library and input")
parser.add_argument("--no-sympy", action="store_true", help="leave SymPy out")
parser.add_argument("--sympy-ground-types", default="gmpy", choices=["gmpy", "python", "flint"])
args = parser.parse_args()
# SymPy reads its ground types once, when it is first imported.
os.environ["SYMPY_GROUND_TYPES"] = args.sympy_ground_types

from flint import fmpz_poly  # noqa: E402
from sympy import Poly, factor_list, symbols  # noqa: E402
from sympy.external.gmpy import GROUND_TYPES  # noqa: E402

import torvane as tv  # noqa: E402

x = symbols("x")


def sum_of_roots(radicands, shift=0):
    """Roots shift + sum of +-sqrt(a): irreducible, yet split into pieces of degree at most 2
    modulo every prime, which makes recombination try every subset."""
    X = fmpz_poly([0, 1])
    p = fmpz_poly([-shift, 1])
    for a in radicands:
        even, odd = fmpz_poly([0]), fmpz_poly([0])
        for c in reversed(p.coeffs()):
            even, odd = X * even + a * odd + c, even + X * odd
        p = even * even - a * odd * odd
    return p


def product(*polys):
    result = fmpz_poly([1])
    for p in polys:
        result *= p
    return result


def dense(degree, bound, seed):
    rng = random.Random(seed)
    return fmpz_poly([rng.randint(-bound, bound) for _ in range(degree)] + [1])


def inputs():
    """(name, coefficients) pairs, lowest degree first."""
    cases = [(f"dense irreducible, degree {d}", dense(d, 100, d)) for d in (4, 8, 12, 16, 20, 24)]
    cases += [
        ("x^4 - 10x^2 + 1", sum_of_roots([2, 3])),
        ("sum of 3 square roots, degree 8", sum_of_roots([2, 3, 5])),
        ("sum of 4 square roots, degree 16", sum_of_roots([2, 3, 5, 7])),
        ("three sums of 3 square roots, degree 24",
         product(sum_of_roots([2, 3, 5]), sum_of_roots([2, 3, 7]), sum_of_roots([2, 5, 7]))),
        ("six sums of 2 square roots, degree 24",
         product(*(sum_of_roots(pair) for pair in ([2, 3], [2, 5], [3, 5], [2, 7], [3, 7], [5, 7])))),
        ("x^24 - 1", fmpz_poly([-1] + [0] * 23 + [1])),
        ("(x - 1)(x - 2)...(x - 16)", product(*(fmpz_poly([-i, 1]) for i in range(1, 17)))),
        ("dense 8 * dense 8 * dense 8, degree 24", product(dense(8, 30, 1), dense(8, 30, 2), dense(8, 30, 3))),
        ("sum of 5 square roots, degree 32", sum_of_roots([2, 3, 5, 7, 11])),
        # Inputs with many factors over Q and more modulo every prime; they once took minutes.
        ("x^120 - 1", fmpz_poly([-1] + [0] * 119 + [1])),
        ("x^210 - 1", fmpz_poly([-1] + [0] * 209 + [1])),
        ("(x^105 - 1)(x + 2)", fmpz_poly([-1] + [0] * 104 + [1]) * fmpz_poly([2, 1])),
        ("[-1, 1] * 500, (x^1000 - 1)/(x + 1)", fmpz_poly([-1, 1] * 500)),
    ]
    return [(name, [int(c) for c in p.coeffs()]) for name, p in cases]


def up_to_sign(factors):
    """Factors as a set of integer tuples with positive leading coefficients."""
    result = set()
    for f in factors:
        c = [int(v) for v in f]
        result.add(tuple(-v for v in c) if c[-1] < 0 else tuple(c))
    return result


def best_time(call, seconds):
    once = timeit.timeit(call, number=1)
    if once > seconds:  # a slow input: one more run is enough
        return min(once, timeit.timeit(call, number=1))
    number = max(1, int(seconds / max(once, 1e-9) / 3))
    return min(once, min(timeit.repeat(call, number=number, repeat=3)) / number)


def main():
    print(f"SymPy ground types: {GROUND_TYPES}")
    print(f"{'input':44} {'torvane':>10} {'FLINT':>10} {'SymPy':>10} {'tv/FLINT':>9} {'SymPy/tv':>9}")
    ratios_flint, ratios_sympy = [], []
    for name, coefficients in inputs():
        flint_poly = fmpz_poly(coefficients)
        sympy_poly = Poly(list(reversed(coefficients)), x)
        ours = tv.factor_polynomial(coefficients)
        theirs = flint_poly.factor()[1]
        counts = {"torvane": len(ours), "FLINT": len(theirs)}
        if not args.no_sympy and len(coefficients) <= 100:
            counts["SymPy"] = len(factor_list(sympy_poly)[1])
        if len(set(counts.values())) != 1 or up_to_sign(ours) != up_to_sign(f.coeffs() for f, _ in theirs):
            print(f"{name:44} factors differ: {counts}")
            continue
        t_ours = best_time(lambda: tv.factor_polynomial(coefficients), args.seconds)
        t_flint = best_time(lambda: flint_poly.factor(), args.seconds)
        ratios_flint.append(t_ours / t_flint)
        line = f"{name:44} {t_ours * 1e3:8.3f}ms {t_flint * 1e3:8.3f}ms"
        if args.no_sympy or len(coefficients) > 100:  # SymPy takes minutes on the big ones
            line += f" {'':>10} {t_ours / t_flint:9.1f} {'':>9}"
        else:
            t_sympy = best_time(lambda: factor_list(sympy_poly), args.seconds)
            ratios_sympy.append(t_sympy / t_ours)
            line += f" {t_sympy * 1e3:8.1f}ms {t_ours / t_flint:9.1f} {t_sympy / t_ours:9.0f}"
        print(line + f"   ({counts['torvane']} factors)")

    def geometric_mean(values):
        product_of_values = 1.0
        for v in values:
            product_of_values *= v
        return product_of_values ** (1 / len(values))

    print(f"geometric mean: torvane / FLINT {geometric_mean(ratios_flint):.1f}", end="")
    if ratios_sympy:
        print(f", SymPy / torvane {geometric_mean(ratios_sympy):.0f}", end="")
    print()


if __name__ == "__main__":
    main()

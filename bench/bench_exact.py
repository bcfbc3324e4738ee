"""Exact real numbers: torvane against SymPy's algebraic-number arithmetic, in one run.

Times evaluating the expressions that occur in recipes, unifying two quadratic fields (the sum
of two square roots, which needs a primitive element) and the sign of a difference that is
about 5e-17. Each answer is checked against SymPy's before anything is timed.

    PYTHONPATH=python .venv/bin/python bench/bench_exact.py [--seconds 0.5]
"""

import argparse
import os
import timeit

os.environ.setdefault("SYMPY_USE_CACHE", "no")  # every SymPy call does its work anew, as ours do

import sympy  # noqa: E402
from sympy.polys.numberfields import minimal_polynomial, primitive_element  # noqa: E402

import torvane as tv  # noqa: E402

X = sympy.Symbol("x")
EXPRESSIONS = ["(1+sqrt(5))/2", "sqrt(2)/3", "2/(sqrt(5)+1)", "(7-3*sqrt(5))/2"]
SUMS = [("sqrt(2)", "sqrt(3)"), ("sqrt(5)", "sqrt(2)")]
SIGN = "sqrt(2)-1414213562373095/1000000000000000"


def per_call(function, seconds):
    """Seconds per call, the best of three rounds of about `seconds` each."""
    once = max(timeit.timeit(function, number=1), 1e-7)
    number = max(1, int(seconds / once))
    return min(timeit.repeat(function, number=number, repeat=3)) / number


def check_expression(text):
    ours = tv.evaluate(text)
    theirs = sympy.sympify(text)
    assert abs(float(ours) - float(theirs)) < 1e-12, text


def cases():
    for text in EXPRESSIONS:
        check_expression(text)
        yield (f"evaluate {text}", lambda t=text: tv.evaluate(t),
               lambda t=text: minimal_polynomial(sympy.sympify(t), X))
    for a, b in SUMS:
        check_expression(f"{a}+{b}")
        x, y = tv.evaluate(a), tv.evaluate(b)
        sa, sb = sympy.sympify(a), sympy.sympify(b)
        yield (f"unify {a} + {b}", lambda x=x, y=y: x + y, lambda sa=sa, sb=sb: primitive_element([sa, sb], X))
    assert tv.evaluate(SIGN).sign() == sympy.sign(sympy.sympify(SIGN)) == 1
    yield ("sign of sqrt(2)-1.414213562373095", lambda: tv.evaluate(SIGN).sign(),
           lambda: sympy.sign(sympy.sympify(SIGN)))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--seconds", type=float, default=0.5, help="time per round")
    args = parser.parse_args()
    print(f"{'case':44} {'torvane':>10} {'SymPy':>10} {'SymPy/torvane':>14}")
    for name, ours, theirs in cases():
        t_ours, t_theirs = per_call(ours, args.seconds), per_call(theirs, args.seconds)
        print(f"{name:44} {t_ours * 1e6:8.1f}us {t_theirs * 1e6:8.1f}us {t_theirs / t_ours:14.1f}")


if __name__ == "__main__":
    main()

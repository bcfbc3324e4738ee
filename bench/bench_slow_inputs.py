"""The exact layer's former slow inputs: torvane against an anchor, in one run, with ratios.

Each row is one input that once ran for seconds to minutes. Ours is timed in a fresh child
process (the merges a field remembers would otherwise make a second run free); the anchor is
SymPy's minimal_polynomial for fields and sums, and python-flint's arb for the sign. Every
answer is checked (float against mpmath at 100 digits, field degree against SymPy's) before the
ratio is printed. An anchor that does not finish within --limit seconds prints as a bound.

    PYTHONPATH=python .venv/bin/python bench/bench_slow_inputs.py [--limit 60]
"""

import argparse
import multiprocessing
import subprocess
import sys
import time
import timeit

import mpmath

ROWS = [  # (torvane code that prints float and degree, SymPy expression or None, mpmath value)
    ("sqrt(2)^(1/274)", "root(2, 548)", lambda: mpmath.root(2, 548)),
    ("10^0.301", "10**(S(301)/1000)", lambda: mpmath.power(10, mpmath.mpf(301) / 1000)),
    ("3^0.37", "3**(S(37)/100)", lambda: mpmath.power(3, mpmath.mpf(37) / 100)),
    ("2^(1/1000)", "root(2, 1000)", lambda: mpmath.root(2, 1000)),
    ("2^(1/1024)", "root(2, 1024)", lambda: mpmath.root(2, 1024)),
    ("sqrt(" * 10 + "2" + ")" * 10, "root(2, 1024)", lambda: mpmath.root(2, 1024)),
    ("cbrt(2)+sqrt(3)+sqrt(5)+sqrt(7)+sqrt(11)", "cbrt(2)+sqrt(3)+sqrt(5)+sqrt(7)+sqrt(11)",
     lambda: mpmath.cbrt(2) + mpmath.sqrt(3) + mpmath.sqrt(5) + mpmath.sqrt(7) + mpmath.sqrt(11)),
    ("1^(1/210)", "S(1)", lambda: mpmath.mpf(1)),
    ("(3^(2/3)+sqrt(18))*sqrt(sqrt(10)) - cbrt(2)*sqrt(18)*sqrt(10)*0", "(3**(S(2)/3)+sqrt(18))*root(10, 4)",
     lambda: (mpmath.cbrt(9) + mpmath.sqrt(18)) * mpmath.root(10, 4)),
]

CHILD = """
import sys, time, torvane as tv
start = time.perf_counter()
x = tv.evaluate(sys.argv[1])
value = float(x)
print(time.perf_counter() - start, repr(value))
"""


def ours(text, limit):
    done = subprocess.run([sys.executable, "-c", CHILD, text], capture_output=True, text=True, timeout=limit)
    seconds, value = done.stdout.split()
    return float(seconds), float(value)


def sympy_minimal_polynomial(text, queue):
    import sympy
    from sympy import S, cbrt, root, sqrt  # noqa: F401 - names for eval
    start = time.perf_counter()
    sympy.minimal_polynomial(eval(text), sympy.Symbol("x"))
    queue.put(time.perf_counter() - start)


def anchor(text, limit):
    """SymPy's seconds, or None when it does not finish within `limit`."""
    queue = multiprocessing.Queue()
    child = multiprocessing.Process(target=sympy_minimal_polynomial, args=(text, queue))
    child.start()
    child.join(limit)
    if child.is_alive():
        child.kill()
        child.join()
        return None
    return queue.get()


def sign_row(seconds):
    import flint
    import torvane as tv
    flint.ctx.prec = 128
    text = "sqrt(2)-1414213562373095/1000000000000000"
    assert tv.evaluate(text).sign() == 1
    ball = lambda: (flint.arb(2).sqrt() - flint.arb(1414213562373095) / 10**15) > 0  # noqa: E731
    assert ball()
    number = max(1, int(seconds / max(timeit.timeit(lambda: tv.evaluate(text).sign(), number=1), 1e-7)))
    t_ours = min(timeit.repeat(lambda: tv.evaluate(text).sign(), number=number, repeat=3)) / number
    t_arb = min(timeit.repeat(ball, number=number * 10, repeat=3)) / (number * 10)
    return t_ours, t_arb


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--limit", type=float, default=60, help="seconds an anchor may take")
    args = parser.parse_args()
    mpmath.mp.dps = 100
    print(f"{'input':52} {'torvane':>10} {'SymPy':>10} {'SymPy/torvane':>14}")
    for text, sympy_text, exact in ROWS:
        t_ours, value = ours(text, args.limit * 4)
        assert value == float(exact()), (text, value)
        t_anchor = anchor(sympy_text, args.limit)
        shown = f"{t_anchor:9.3f}s" if t_anchor is not None else f">{args.limit:8.0f}s"
        ratio = f"{t_anchor / t_ours:14.1f}" if t_anchor is not None else f">{args.limit / t_ours:13.1f}"
        print(f"{text[:52]:52} {t_ours:9.3f}s {shown} {ratio}", flush=True)
    t_ours, t_arb = sign_row(0.3)
    print(f"{'sign of sqrt(2)-1414213562373095/10^15 (vs arb)':52} {t_ours * 1e6:8.1f}us {t_arb * 1e6:8.1f}us "
          f"{t_arb / t_ours:14.2f}")


if __name__ == "__main__":
    main()

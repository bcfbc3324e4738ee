"""Fraction arithmetic: torvane against fractions.Fraction (and gmpy2.mpq when installed).

Times add, multiply and compare with 30- and 62-bit parts and with 1000-bit parts (random
signs, and alternating signs, where `<` is decided by the signs), all in one run, and prints
operations per second, our rate over fractions.Fraction's and our time over gmpy2.mpq's.

    PYTHONPATH=python .venv/bin/python bench/bench_fraction.py [--seconds 0.3]
"""

import argparse
import fractions
import operator
import random
import timeit

import torvane as tv

try:
    import gmpy2
except ImportError:
    gmpy2 = None


def build_tv(n, d):
    """A torvane Fraction of any size from 62-bit pieces (the constructor takes 64-bit parts)."""
    def integer(v):
        result, negative, v, shift = tv.Fraction(0), v < 0, abs(v), 0
        while v:
            result = result + tv.Fraction(v & (2**62 - 1)) * power(shift)
            v >>= 62
            shift += 62
        return -result if negative else result
    return integer(n) / integer(d)


def power(k):
    result = tv.Fraction(1)
    for _ in range(k // 62):
        result = result * tv.Fraction(2**62)
    return result * tv.Fraction(2 ** (k % 62))


def operands(rng, bits, count, alternate=False):
    """Random parts below 2^bits; with `alternate`, the signs alternate, so that consecutive
    values always have opposite signs."""
    pairs = []
    for i in range(count):
        n = rng.randrange(-2**bits, 2**bits)
        if alternate:
            n = abs(n) * (-1) ** i or 1
        d = rng.randrange(1, 2**bits)
        pairs.append((n, d))
    return pairs


def rate(op, values, seconds):
    """Operations per second of op over consecutive pairs of values."""
    pairs = list(zip(values, values[1:]))

    def run():
        for a, b in pairs:
            op(a, b)

    number = max(1, int(seconds / max(timeit.timeit(run, number=1), 1e-9)))
    best = min(timeit.repeat(run, number=number, repeat=3))
    return len(pairs) * number / best


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--seconds", type=float, default=0.3, help="time per measurement")
    args = parser.parse_args()
    rng = random.Random(1)
    kinds = {"30-bit": operands(rng, 30, 2000), "62-bit": operands(rng, 62, 2000),
             "1000-bit": operands(rng, 1000, 300), "1000-bit +-": operands(rng, 1000, 300, alternate=True)}
    ops = {"add": operator.add, "mul": operator.mul, "compare": operator.lt}
    print(f"{'case':20} {'torvane op/s':>14} {'fractions op/s':>15} {'ratio':>7}" +
          (f" {'gmpy2 op/s':>12} {'time / gmpy2':>12}" if gmpy2 else ""))
    for kind, pairs in kinds.items():
        ours = [build_tv(n, d) if "1000" in kind else tv.Fraction(n, d) for n, d in pairs]
        theirs = [fractions.Fraction(n, d) for n, d in pairs]
        for value, check in zip(ours, theirs):
            assert (int(value.numerator), int(value.denominator)) == (check.numerator, check.denominator)
        gmp = [gmpy2.mpq(n, d) for n, d in pairs] if gmpy2 else None
        for name, op in ops.items():
            r_ours = rate(op, ours, args.seconds)
            r_theirs = rate(op, theirs, args.seconds)
            line = f"{kind + ' ' + name:20} {r_ours:14.0f} {r_theirs:15.0f} {r_ours / r_theirs:7.2f}"
            if gmp:
                r_gmp = rate(op, gmp, args.seconds)
                line += f" {r_gmp:12.0f} {r_gmp / r_ours:12.2f}"
            print(line)


if __name__ == "__main__":
    main()

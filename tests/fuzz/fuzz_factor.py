"""factor_polynomial on arbitrary integer lists: the distinct factors, each of positive degree,
divide the polynomial, and dividing by them as often as they go leaves a constant."""

from fractions import Fraction

import atheris

with atheris.instrument_imports():
    import harness
import torvane as tv


def divide(a: list[Fraction], b: list[Fraction]) -> tuple[list[Fraction], list[Fraction]]:
    """Quotient and remainder, lowest degree first, the remainder trimmed."""
    remainder, quotient = list(a), [Fraction(0)] * max(len(a) - len(b) + 1, 1)
    while len(remainder) >= len(b) and any(remainder):
        shift, scale = len(remainder) - len(b), remainder[-1] / b[-1]
        quotient[shift] = scale
        for i, c in enumerate(b):
            remainder[shift + i] -= scale * c
        while remainder and remainder[-1] == 0:
            remainder.pop()
    return quotient, remainder


def test_one_input(data: bytes) -> None:
    provider = atheris.FuzzedDataProvider(data)
    bits = provider.ConsumeIntInRange(1, 64)
    count = provider.ConsumeIntInRange(0, 24)
    coefficients = [provider.ConsumeIntInRange(-(2**(bits - 1)), 2**(bits - 1) - 1) for _ in range(count)]
    factors = tv.factor_polynomial(coefficients)
    while coefficients and coefficients[-1] == 0:
        coefficients.pop()
    if len(coefficients) <= 1:
        return
    rest = [Fraction(c) for c in coefficients]
    for factor in factors:
        assert len(factor) >= 2, (coefficients, factors)
        divisor = [Fraction(c) for c in factor]
        quotient, remainder = divide(rest, divisor)
        assert not remainder, (coefficients, factors)
        while not remainder:
            rest = quotient
            quotient, remainder = divide(rest, divisor)
    assert len(rest) == 1, (coefficients, factors)

if __name__ == "__main__":
    harness.main(test_one_input)

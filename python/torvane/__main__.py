"""A short tour of torvane: ``python -m torvane``."""

import torvane as tv


def main() -> None:
    print(f"torvane {tv.__version__}: {len(tv.__all__)} names, worker pool of {tv.thread_count()} threads")
    print()
    print("Exact rationals, always in lowest terms:")
    third, sixth = tv.Fraction(1, 3), tv.Fraction(1, 6)
    print(f"  {third} + {sixth} = {third + sixth}")
    print(f"  {tv.Fraction(2, -4)!r} has numerator {tv.Fraction(2, -4).numerator} "
          f"and denominator {tv.Fraction(2, -4).denominator}")
    big = tv.Fraction(2**62, 3) * tv.Fraction(2**62, 5)
    print(f"  (2^62/3) * (2^62/5) = {big}, about {float(big):.6g}")
    print(f"  float(1/3) = {float(third)!r}, the double nearest to it")
    try:
        tv.Fraction(1, 0)
    except ZeroDivisionError as error:
        print(f"  Fraction(1, 0) raises ZeroDivisionError: {error}")


if __name__ == "__main__":
    main()

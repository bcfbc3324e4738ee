"""A short tour of torvane: ``python -m torvane [--out DIR]``."""

import argparse
import os
import tempfile

import torvane as tv


def show_fractions() -> None:
    print("Exact rationals, always in lowest terms:")
    third, sixth = tv.Fraction(1, 3), tv.Fraction(1, 6)
    print(f"  {third} + {sixth} = {third + sixth};  {tv.Fraction(2, -4)!r}")
    big = tv.Fraction(2**62, 3) * tv.Fraction(2**62, 5)
    print(f"  (2^62/3) * (2^62/5) = {big}, about {float(big):.6g}")
    try:
        tv.Fraction(1, 0)
    except ZeroDivisionError as error:
        print(f"  Fraction(1, 0) raises ZeroDivisionError: {error}")


def show_reals() -> None:
    print("Real algebraic numbers, with exact signs:")
    phi = tv.evaluate("(1+sqrt(5))/2")
    print(f"  (1+sqrt(5))/2 = {phi!r}: {phi}")
    print(f"  phi*phi - phi - 1 has sign {(phi * phi - phi - tv.Real.from_int(1)).sign()}")
    tiny = tv.evaluate("sqrt(2) - 1414213562373095/1000000000000000")
    print(f"  sqrt(2) - 1.414213562373095 has sign {tiny.sign()} and is about {float(tiny):.3g}")
    print(f"  sqrt(8) - 2*sqrt(2) is exactly {tv.evaluate('sqrt(8) - 2*sqrt(2)')!r}")
    total = tv.evaluate("sqrt(2) + sqrt(3)")
    print(f"  sqrt(2) + sqrt(3) lives in {total.field}")


def show_factoring() -> None:
    print("Factoring over the rationals (coefficients lowest degree first):")
    for name, coefficients in [("x^4 - 1", [-1, 0, 0, 0, 1]), ("x^6 - 1", [-1, 0, 0, 0, 0, 0, 1]),
                               ("x^4 - 10x^2 + 1", [1, 0, -10, 0, 1])]:
        factors = tv.factor_polynomial(coefficients)
        print(f"  {name}: {len(factors)} factor(s) {factors}")


def show_recipes() -> None:
    catalog = tv.catalog()
    print(f"Recipes: {len(catalog)} cataloged puzzles over {len(tv.polyhedra())} polyhedra, "
          f"{len(tv.non_jumbling())} of them never jumble. For example:")
    for name in ["Pyraminx", "Megaminx"]:
        recipe = tv.Recipe.named(name)
        print(f"  {name}: {recipe}  ({len(recipe.shell)} shell shape, {len(recipe.cuts)} cut shapes)")


def write_caption_image(directory: str) -> str:
    image = tv.Image(160, 48, (24, 26, 32, 255))
    image.fill_rect(4, 4, 152, 40, (0, 81, 186, 255))
    image.fill_rect(8, 8, 144, 32, (255, 213, 0, 96), mode="over")
    lines = f"torvane {tv.__version__}\n{tv.thread_count()} worker threads"
    image.draw_text(80, 10, lines, color=(255, 255, 255, 255), center=True)
    path = os.path.join(directory, "torvane-demo.png")
    image.save(path)
    return path


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--out", default=tempfile.gettempdir(), help="folder for the demo picture")
    args = parser.parse_args()
    print(f"torvane {tv.__version__}: {len(tv.__all__)} names, worker pool of {tv.thread_count()} threads\n")
    show_fractions()
    print()
    show_reals()
    print()
    show_factoring()
    print()
    show_recipes()
    print()
    print(f"A captioned picture drawn with the built-in font: {write_caption_image(args.out)}")


if __name__ == "__main__":
    main()

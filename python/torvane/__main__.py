"""A short tour of torvane: ``python -m torvane [--out FILE]``.

``python -m torvane view [RECIPE]`` plays a puzzle in the browser instead (see ``_serve``).
"""

import argparse
import os
import sys

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


def polynomial_text(coefficients: list[str]) -> str:
    """The polynomial as a person writes it, highest degree first: x^2 - 1/2*x + 3."""
    terms = []
    for degree in range(len(coefficients) - 1, -1, -1):
        text = coefficients[degree]
        if text == "0":
            continue
        sign, magnitude = ("-", text[1:]) if text.startswith("-") else ("+", text)
        power = "" if degree == 0 else "x" if degree == 1 else f"x^{degree}"
        if power and magnitude == "1":
            magnitude = ""
        elif power:
            magnitude += "*"
        terms.append((sign, magnitude + power))
    if not terms:
        return "0"
    first_sign, first = terms[0]
    return ("-" if first_sign == "-" else "") + first + "".join(f" {sign} {term}" for sign, term in terms[1:])


def show_factoring() -> None:
    print("Factoring over the rationals:")
    for coefficients in [[-1, 0, 0, 0, 1], [-1, 0, 0, 0, 0, 0, 1], [1, 0, -10, 0, 1]]:
        factors = tv.factor_polynomial(coefficients)
        product = " * ".join(f"({polynomial_text(f)})" for f in factors)
        print(f"  {polynomial_text([str(c) for c in coefficients])} = {product}")


def plural(count: int, noun: str) -> str:
    return f"{count} {noun}" if count == 1 else f"{count} {noun}s"


def show_recipes() -> None:
    catalog = tv.catalog()
    print(f"Recipes: {len(catalog)} cataloged puzzles over {len(tv.polyhedra())} polyhedra, "
          f"{len(tv.non_jumbling())} of them never jumble. For example:")
    for name in ["Pyraminx", "Megaminx"]:
        recipe = tv.Recipe.named(name)
        print(f"  {name}: {recipe}  ({plural(len(recipe.shell), 'shell shape')}, "
              f"{plural(len(recipe.cuts), 'cut shape')})")


def show_puzzles() -> None:
    cube = tv.Puzzle("Rubik's Cube (3x3x3)", seed=2026, scramble=20)
    print(f"Puzzles: {cube!r} with {cube.sticker_count} stickers in {cube.color_count} colors; "
          f"moves {' '.join(cube.actions)}")
    runs = [cube.stickers()[k:k + 9] for k in range(0, cube.sticker_count, 9)]
    print("  20 random moves from seed 2026; the color in each slot, nine slots a group:")
    print("    " + "  ".join("".join(map(str, run)) for run in runs))
    print(f"  solved? {cube.is_solved}; after restore(), which undoes every turn exactly: {cube.restore() and cube.is_solved}")
    made = cube.apply("A B2' C")
    print(f"  apply(\"A B2' C\") made {made} turns; the state as a permutation starts {cube.sticker_ids()[:8]}")
    mega = tv.Puzzle.named("Megaminx")
    print(f"  Megaminx: {mega.piece_count} pieces, {mega.grip_count} grips, stops of a face at "
          f"{', '.join(f'{a:.0f}' for a in mega.stops(0))} degrees, every coordinate in Q(sqrt(5))")
    for name in ["Skewb", "Helicopter Cube"]:
        print(f"  does the {name} jumble (leave its own lattice)? {tv.jumbles(name)}")


def show_batch() -> None:
    batch = tv.PuzzleBatch("Rubik's Cube (3x3x3)", 4096, seed=7, scramble=3)
    print(f"Batches: {batch!r}")
    solved, _ = batch.step([batch.action_index("A")] * len(batch))
    print(f"  4096 cubes, each 3 random moves from seed 7, then one turn of A each: "
          f"{sum(solved.tolist())} solved; states come out as a {batch.observations()!r}")
    copters = tv.PuzzleBatch("Helicopter Cube", 64, seed=7, scramble=5)
    free = sum(copters.action_masks().tolist())
    print(f"  {copters!r}: moves that jumble turn each copy's geometry; 5 random moves each made "
          f"{sum(copters.move_counts)} turns, and {free} of {64 * copters.action_count} actions are free now")


def show_layout() -> None:
    layout = tv.Layout()
    print(f"Layouts: {layout!r}, numbered face by face as outside solvers expect;")
    print("  a 3x3x3 20 random moves from seed 7, one line per face:")
    for line in layout.text(layout.scrambled(1, 20, seed=7)[0]).splitlines():
        print(f"    {line}")


def write_cube_picture(path: str) -> str:
    """A scrambled 3x3x3 seen from above and to the right, its grip arrows around it, captioned."""
    cube = tv.Puzzle("Rubik's Cube (3x3x3)", seed=2026, scramble=20, yaw=35, pitch=28,
                     background=(24, 26, 32, 255))
    image = cube.render(512, 512)
    caption = f"torvane {tv.__version__}: 20 random moves from seed 2026"
    image.draw_text(256, 488, caption, color=(255, 255, 255, 255), center=True)
    image.save(path)
    return os.path.abspath(path)


SHEET = ["Rubik's Cube (3x3x3)", "Megaminx", "Pyraminx", "Skewb", "Helicopter Cube", "Dino Cube"]


def write_catalog_sheet(path: str) -> str:
    """Six catalog puzzles, each scrambled from its own seed, drawn at once across the worker pool
    by render_many and laid out three to a row with their names."""
    cell = 256
    images = tv.render_many(SHEET, cell, cell, scramble=12, seed=2026, yaw=30, pitch=25)
    sheet = tv.Image(3 * cell, 2 * cell, (255, 255, 255, 255))
    for k, (name, image) in enumerate(zip(SHEET, images)):
        x, y = cell * (k % 3), cell * (k // 3)
        sheet.blit(image, x, y)
        sheet.draw_text(x + cell // 2, y + cell - 20, name, color=(40, 40, 40, 255), center=True)
    sheet.save(path)
    return os.path.abspath(path)


def main() -> None:
    parser = argparse.ArgumentParser(prog="python -m torvane", description="A short tour of torvane.",
                                     epilog="python -m torvane view [RECIPE] plays a puzzle in the browser "
                                            "(python -m torvane view --help).")
    parser.add_argument("--out", default="torvane-demo.png",
                        help="where to write the demo picture (default: torvane-demo.png in the current folder)")
    parser.add_argument("--sheet", default="torvane-sheet.png",
                        help="where to write the picture of six puzzles (default: torvane-sheet.png)")
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
    show_puzzles()
    print()
    show_batch()
    print()
    show_layout()
    print()
    print(f"The scrambled cube with its grip arrows, drawn by the built-in rasterizer: {write_cube_picture(args.out)}")
    print(f"Six puzzles scrambled and drawn at once by render_many: {write_catalog_sheet(args.sheet)}")


if __name__ == "__main__":
    if sys.argv[1:2] == ["view"]:
        from torvane import _serve
        _serve.main(sys.argv[2:])
    else:
        main()

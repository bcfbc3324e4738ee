"""evaluate and Real.parse on arbitrary text; the canonical text of a parsed expression is a
fixed point, and without a written decimal it evaluates to the same number as the text it came
from (a decimal under `^` or right of `/` prints as a fraction that reads back as another tree)."""

import atheris

with atheris.instrument_imports():
    import harness
import torvane as tv


def test_one_input(data: bytes) -> None:
    text = data.decode("utf-8", "replace")
    value = tv.evaluate(text)
    assert tv.Real.parse(text) == value
    canonical = str(tv.Shape.polyhedron("C", text))[2:]
    again = str(tv.Shape.polyhedron("C", canonical))[2:]
    assert again == canonical, (text, canonical, again)
    if "." not in text:
        assert tv.evaluate(canonical) == value, (text, canonical)


if __name__ == "__main__":
    harness.main(test_one_input)

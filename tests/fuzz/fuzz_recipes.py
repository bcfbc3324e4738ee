"""Recipe and shape text: a parsed recipe prints a query that parses back to the same text,
and to an equal recipe when no decimal is written (a decimal inside an operator prints as a
fraction that reads back as another tree)."""

import atheris

with atheris.instrument_imports():
    import harness
import torvane as tv


def test_one_input(data: bytes) -> None:
    text = data.decode("utf-8", "replace")
    if text.startswith("?"):
        parsed = tv.Recipe.parse(text)
        printed = str(parsed)
        again = tv.Recipe.parse(printed)
    else:
        parsed = tv.Shape.parse(text)
        printed = str(parsed)
        again = tv.Shape.parse(printed)
    assert str(again) == printed, (text, printed, str(again))
    if "." not in text:
        assert again == parsed and hash(again) == hash(parsed), (text, printed)


if __name__ == "__main__":
    harness.main(test_one_input)

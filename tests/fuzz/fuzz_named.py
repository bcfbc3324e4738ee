"""Recipe.named on arbitrary names: a known name gives its cataloged recipe, anything else a
documented error."""

import atheris

with atheris.instrument_imports():
    import harness
import torvane as tv

RECIPES = {row[0]: row[3] for row in tv.catalog()}


def test_one_input(data: bytes) -> None:
    name = data.decode("utf-8", "replace")
    recipe = tv.Recipe.named(name)
    if name in RECIPES:
        assert recipe == tv.Recipe.parse(RECIPES[name]), name


if __name__ == "__main__":
    harness.main(test_one_input)

"""Move text on a cube: a text either fails before anything moves, or makes as many turns as it
says, and undoing them all gives back the solved puzzle."""

import atheris

with atheris.instrument_imports():
    import harness
import torvane as tv

PUZZLE = tv.Puzzle("?shell=C$1&cut=C$1/3")


def test_one_input(data: bytes) -> None:
    text = data.decode("utf-8", "replace")
    PUZZLE.reset()
    try:
        turns = PUZZLE.apply(text)
    except harness.DOCUMENTED:
        assert PUZZLE.history_length == 0 and PUZZLE.is_solved, text
        raise
    assert PUZZLE.history_length == turns, (text, turns)
    for _ in range(turns):
        assert PUZZLE.undo(), text
    assert PUZZLE.is_solved, text


if __name__ == "__main__":
    harness.main(test_one_input)

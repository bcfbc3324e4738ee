"""The player's commands as a page could send them: any command name with any JSON arguments
reaches one long-lived Viewer, which answers with a state that JSON can carry or refuses with a
CommandError, never another exception; frames keep the viewer's size whatever came before."""

import json
import math

import atheris

with atheris.instrument_imports():
    import harness
    from torvane._viewer import CommandError, Viewer
import torvane as tv

COMMANDS = ["pointer", "wheel", "apply", "scramble", "undo", "restore", "reset", "load", "hello", "frame",
            "_start", "__init__", "", "apply "]
KEYS = ["kind", "x", "y", "delta", "moves", "count", "seed", "recipe"]
# Recipes that build in milliseconds; the recipe parser and builder have targets of their own.
RECIPES = ["Rubik's Cube (3x3x3)", "Pyraminx", "Skewb", "Helicopter Cube", "Megaminx", "?shell=C$1&cut=C$1/3",
           "?shell=X$1", "No Such Puzzle", "", "?"]
SIZE = 16
viewer = Viewer(tv.Puzzle("Rubik's Cube (3x3x3)"), size=SIZE)


def value(p: atheris.FuzzedDataProvider, key: str):
    if key == "recipe" and p.ConsumeBool():
        return p.PickValueInList(RECIPES)
    if key == "kind" and p.ConsumeBool():
        return p.PickValueInList(["down", "move", "up", "leave"])
    if key == "moves" and p.ConsumeBool():
        return " ".join(p.PickValueInList(["A", "B2'", "C3", "A1001", "F'", "Z", "'"]) for _ in range(3))
    return p.PickValueInList([None, True, 0, -1, 2**64, p.ConsumeIntInRange(0, 1200), p.ConsumeFloatInRange(-2, 2),
                              math.inf, math.nan, p.ConsumeUnicodeNoSurrogates(12), [], {}])


def test_one_input(data: bytes) -> None:
    p = atheris.FuzzedDataProvider(data)
    for _ in range(p.ConsumeIntInRange(1, 8)):
        command = p.PickValueInList(COMMANDS)
        if command == "frame":
            image_format = p.PickValueInList(["png", "rgba"])
            pixels, state = viewer.frame(p.PickValueInList([16.0, 0.0, -5.0, 1e9, math.nan]), image_format)
            assert image_format == "png" or len(pixels) == SIZE * SIZE * 4
        else:
            args = {key: value(p, key) for key in KEYS if p.ConsumeBool()}
            try:
                state = viewer.command(command, p.PickValueInList([args, args, [], "x"]))
            except CommandError as error:
                assert error.status in (400, 404) and str(error)
                continue
        json.dumps(state, allow_nan=False)


if __name__ == "__main__":
    harness.main(test_one_input, allowed=(CommandError,))

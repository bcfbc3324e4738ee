"""Rich display in IPython and Jupyter: an `Image` or a `Puzzle` shows as a picture, a
`PuzzleBatch` as a short table with its first copies drawn beside it.

The native classes are immutable, so the display methods cannot be set on them; they are handed
to IPython's formatters instead, by type name, which also means nothing here imports IPython. It
happens on `import torvane` inside a running IPython, or through `%load_ext torvane`.

A display must never change what it shows: a puzzle is drawn as it stands, without advancing its
animation. An object that another thread holds right now gives None, so IPython falls back to the
text form; that form cannot read the object either, so it says the object is busy instead of
printing a traceback.
"""

from __future__ import annotations

import base64
import html
import sys
from typing import Any, Callable

from torvane._native import Image, PuzzleError

# A puzzle's picture in a notebook: big enough to read the stickers of a Megaminx, small enough
# that a page of them stays light.
PUZZLE_PICTURE_SIZE = 256
# A batch shows at most this many of its copies, this big: drawing them all could take long.
STRIP_COPIES, STRIP_SIZE = 8, 96


def image_png(image: Any) -> bytes | None:
    return image.to_png()


def puzzle_png(puzzle: Any) -> bytes | None:
    return puzzle.render(PUZZLE_PICTURE_SIZE, PUZZLE_PICTURE_SIZE).to_png()


def batch_html(batch: Any) -> str | None:
    try:
        solved = str(sum(batch.solved().tolist()))
    except PuzzleError:
        solved = "unknown: a copy has left the solved lattice"
    engine = "tabular" if batch.is_tabular else "geometric"
    rows = [
        ("recipe", html.escape(batch.query)),
        ("copies", str(len(batch))),
        ("engine", engine),
        ("stickers", f"{batch.sticker_count} in {batch.color_count} colors"),
        ("actions", str(batch.action_count)),
        ("solved", solved),
    ]
    cells = "".join(
        f"<tr><th style='text-align:left'>{name}</th><td style='text-align:left'>{value}</td></tr>"
        for name, value in rows
    )
    return f"<table><caption>PuzzleBatch</caption>{cells}</table>{batch_strip(batch)}"


def batch_strip(batch: Any) -> str:
    """The first copies of a tabular batch side by side, painted from their color rows. A
    geometric batch has no painting table, and drawing its copies means building their scenes,
    so it shows none."""
    if not batch.is_tabular:
        return ""
    count = min(STRIP_COPIES, len(batch))
    colors = batch.observations()
    block = batch.render_states([colors[i] for i in range(count)], STRIP_SIZE, STRIP_SIZE).to_bytes()
    frame = STRIP_SIZE * STRIP_SIZE * 4
    strip = Image(STRIP_SIZE * count, STRIP_SIZE)
    for i in range(count):
        copy = Image.from_bytes(STRIP_SIZE, STRIP_SIZE, block[i * frame:(i + 1) * frame])
        strip.blit(copy, x=i * STRIP_SIZE)
    png = base64.b64encode(strip.to_png()).decode("ascii")
    return f"<img src='data:image/png;base64,{png}' alt='the first {count} copies'>"


def when_free(show: Callable[[Any], Any]) -> Callable[[Any], Any]:
    """`show`, answering None while another thread holds the object."""

    def formatter(value: Any) -> Any:
        try:
            return show(value)
        except RuntimeError:
            return None

    return formatter


FORMATTERS = [
    ("image/png", "Image", image_png),
    ("image/png", "Puzzle", puzzle_png),
    ("text/html", "PuzzleBatch", batch_html),
]


def pretty_text(value: Any, printer: Any, cycle: bool) -> None:
    try:
        text = repr(value)
    except RuntimeError:
        text = f"<{type(value).__name__}, in use by another thread>"
    printer.text(text)


def register(ipython: Any) -> None:
    formatters = ipython.display_formatter.formatters
    for mime, class_name, show in FORMATTERS:
        formatters[mime].for_type_by_name("torvane._native", class_name, when_free(show))
        formatters["text/plain"].for_type_by_name("torvane._native", class_name, pretty_text)


def register_if_running() -> None:
    """Registers with the IPython that is running this program, if one is."""
    ipython_module = sys.modules.get("IPython")
    if ipython_module is None:
        return
    ipython = ipython_module.get_ipython()
    if ipython is not None:
        register(ipython)

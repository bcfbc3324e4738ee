"""Exact simulation of twisty puzzles.

Everything lives in the native module ``torvane._native``; this package re-exports its
names so that ``import torvane as tv`` gives ``tv.Fraction``, ``tv.thread_count`` and the rest.
"""

from torvane import _native
from torvane._native import *  # noqa: F401,F403

__all__ = list(_native.__all__)
__version__ = _native.__version__


def widget(puzzle, *, size=512):
    """A notebook widget that plays `puzzle` in its cell, as ``python -m torvane view`` does in
    a browser; changes made to `puzzle` from Python show up in it. Needs the notebook extra:
    ``pip install torvane[notebook]`` (anywidget)."""
    try:
        from torvane._notebook import PuzzleWidget
    except ModuleNotFoundError as error:
        raise ImportError("tv.widget needs anywidget: pip install 'torvane[notebook]'") from error
    return PuzzleWidget(puzzle, size=size)

"""Exact simulation of twisty puzzles.

Everything lives in the native module ``torvane._native``; this package re-exports its
names so that ``import torvane as tv`` gives ``tv.Fraction``, ``tv.thread_count`` and the rest.
Inside IPython or Jupyter, images and puzzles display as pictures (``%load_ext torvane`` when the
package was imported before IPython started).
"""

from torvane import _native
from torvane._native import *  # noqa: F401,F403
from torvane import _display

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


def load_ipython_extension(ipython):
    """``%load_ext torvane``: registers the rich displays with this IPython."""
    _display.register(ipython)


_display.register_if_running()

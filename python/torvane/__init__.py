"""Exact simulation of twisty puzzles.

Everything lives in the native module ``torvane._native``; this package re-exports its
names so that ``import torvane as tv`` gives ``tv.Fraction``, ``tv.thread_count`` and the rest.
"""

from torvane import _native
from torvane._native import *  # noqa: F401,F403

__all__ = list(_native.__all__)
__version__ = _native.__version__

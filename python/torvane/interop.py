"""Hand-offs of torvane's arrays to other array libraries, without copying.

`Array` and `Image` speak NumPy's array interface. torch does not read that interface, but it
takes a NumPy array through DLPack, so a tensor reaches the same bytes in two steps. Neither
NumPy nor torch is imported until one of these is called.
"""

from __future__ import annotations

from typing import Any


def to_numpy(array: Any) -> Any:
    """A NumPy view of an `Array` or `Image`; it keeps the buffer alive on its own."""
    import numpy

    return numpy.asarray(array)


def to_torch(array: Any) -> Any:
    """A CPU tensor over the bytes of an `Array` or `Image`; it keeps the buffer alive on its own."""
    import torch

    return torch.from_dlpack(to_numpy(array))

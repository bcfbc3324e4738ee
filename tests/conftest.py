import os
import signal
import threading
import time

import pytest
from hypothesis import settings

# Property tests run a fixed number of examples so that a run costs the same every time.
settings.register_profile("torvane", max_examples=int(os.environ.get("TORVANE_EXAMPLES", "300")), deadline=None)
settings.load_profile("torvane")


@pytest.fixture(autouse=True)
def mpmath_digits(request):
    """mpmath's precision is one global setting, and every module that sets it at import (all
    are imported before any test runs) would set it for the others: a module that names its
    precision in MPMATH_DIGITS gets it back before each of its tests."""
    digits = getattr(request.module, "MPMATH_DIGITS", None)
    if digits is not None:
        import mpmath
        mpmath.mp.dps = digits


@pytest.fixture
def interrupted():
    """Runs a call that would take very long with SIGINT sent 0.5 s in, and checks that it ends
    with KeyboardInterrupt soon after, not when the work would have finished."""
    if threading.current_thread() is not threading.main_thread():
        pytest.skip("signals reach the main thread only")

    def run(call):
        timer = threading.Timer(0.5, lambda: os.kill(os.getpid(), signal.SIGINT))
        start = time.monotonic()
        timer.start()
        try:
            with pytest.raises(KeyboardInterrupt):
                call()
        finally:
            timer.cancel()
        assert time.monotonic() - start < 30

    return run

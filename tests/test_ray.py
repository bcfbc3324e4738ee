"""The Ray example spreads walks over two workers and gets the bytes of one process."""
import importlib.util
import sys
from pathlib import Path

import pytest

ray = pytest.importorskip("ray", reason="Ray is an optional extra (pip install torvane[ray])")

EXAMPLE = Path(__file__).resolve().parents[1] / "examples" / "ray_walks.py"


@pytest.fixture(scope="module")
def walks():
    # A local cluster for a few seconds: no token written to the home folder.
    patch = pytest.MonkeyPatch()
    patch.setenv("RAY_AUTH_MODE", "disabled")
    spec = importlib.util.spec_from_file_location("ray_walks", EXAMPLE)
    module = importlib.util.module_from_spec(spec)
    sys.modules["ray_walks"] = module
    spec.loader.exec_module(module)
    ray.init(num_cpus=2, include_dashboard=False)
    yield module
    ray.shutdown()
    patch.undo()


@pytest.mark.parametrize("threads", [1, 2])
@pytest.mark.parametrize("depth", [7, (2, 12)])
def test_two_workers_walk_as_one_process(walks, threads, depth):
    walkers = walks.start_walkers("Rubik's Cube (3x3x3)", 2, threads)
    assert ray.get([w.thread_count.remote() for w in walkers]) == [threads, threads]
    spread = walks.walk_on_ray(walkers, 5001, depth, seed=2**64 - 3)
    here = walks.walk_here("Rubik's Cube (3x3x3)", 5001, depth, seed=2**64 - 3)
    assert walks.digest(spread) == walks.digest(here)

"""Random walks of one puzzle spread over Ray workers, byte for byte the walks of one process.

Neither `PuzzleBatch` nor `Array` pickles, so each worker builds its own batch from the recipe
text and sends back NumPy arrays. Shard k holds rows `offset .. offset + rows` of the whole block
and seeds its batch with `seed_all(seed + offset)`, so its copy j walks from generator state
`seed + offset + j`, as row `offset + j` of one big batch does. A `(low, high)` depth is drawn by
the driver from one generator in row order, and every shard gets its rows' depths as they are.
Each worker's pool size comes from `RAYON_NUM_THREADS`, set through the actor's runtime_env.

    python examples/ray_walks.py --rows 200000 --workers 2 --threads 1 --depth 10 30
"""

import argparse
import hashlib

import numpy as np
import ray

import torvane as tv

MASK_64 = (1 << 64) - 1


@ray.remote
class Walker:
    """Builds batches of one recipe and walks them."""

    def __init__(self, recipe: str) -> None:
        self.recipe = recipe

    def walk(self, offset: int, depths: np.ndarray, seed: int) -> np.ndarray:
        batch = tv.PuzzleBatch(self.recipe, len(depths))
        batch.seed_all((seed + offset) & MASK_64)
        batch.scramble(depths)
        return np.asarray(batch.sticker_ids())

    def thread_count(self) -> int:
        return tv.thread_count()


def row_depths(rows: int, depth: int | tuple[int, int], seed: int) -> np.ndarray:
    """Every row's walk depth: one number, or draws from (low, high), both ends included."""
    if isinstance(depth, int):
        return np.full(rows, depth, dtype=np.uint32)
    low, high = depth
    return np.random.default_rng(seed).integers(low, high, rows, endpoint=True, dtype=np.uint32)


def start_walkers(recipe: str, workers: int, threads: int) -> list:
    runtime_env = {"env_vars": {"RAYON_NUM_THREADS": str(threads)}}
    return [Walker.options(runtime_env=runtime_env).remote(recipe) for _ in range(workers)]


def walk_on_ray(walkers: list, rows: int, depth, seed: int) -> np.ndarray:
    """The identities of `rows` walked copies, shard k on walker k."""
    depths = row_depths(rows, depth, seed)
    bounds = np.linspace(0, rows, len(walkers) + 1).astype(int).tolist()
    shards = [walker.walk.remote(low, depths[low:high], seed)
              for walker, low, high in zip(walkers, bounds, bounds[1:])]
    return np.concatenate(ray.get(shards))


def walk_here(recipe: str, rows: int, depth, seed: int) -> np.ndarray:
    batch = tv.PuzzleBatch(recipe, rows, seed=seed)
    batch.scramble(row_depths(rows, depth, seed))
    return np.asarray(batch.sticker_ids())


def digest(states: np.ndarray) -> str:
    return hashlib.sha256(states.tobytes()).hexdigest()[:16]


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--recipe", default="Rubik's Cube (3x3x3)")
    parser.add_argument("--rows", type=int, default=200_000)
    parser.add_argument("--workers", type=int, default=2)
    parser.add_argument("--threads", type=int, default=1, help="RAYON_NUM_THREADS of each worker")
    parser.add_argument("--depth", type=int, nargs="+", default=[20], help="a depth, or low high")
    parser.add_argument("--seed", type=int, default=0)
    args = parser.parse_args()
    depth = args.depth[0] if len(args.depth) == 1 else tuple(args.depth)
    ray.init(num_cpus=args.workers, include_dashboard=False)
    walkers = start_walkers(args.recipe, args.workers, args.threads)
    spread = walk_on_ray(walkers, args.rows, depth, args.seed)
    here = walk_here(args.recipe, args.rows, depth, args.seed)
    print(f"{args.rows} walks of {args.recipe} over {args.workers} workers: {digest(spread)}; "
          f"in this process: {digest(here)}; equal: {np.array_equal(spread, here)}")


if __name__ == "__main__":
    main()

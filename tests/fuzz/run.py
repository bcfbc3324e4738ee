"""Runs every fuzz target for a while and reports inputs per second, crashes and slow inputs.

    python tests/fuzz/run.py [seconds per target] [--allow-slow] [--only NAME]

Each target runs in its own process (libFuzzer through atheris) with a corpus in
build/fuzz/<target>/corpus, seeded from the catalog, the polyhedron table and the expressions
of the tests. A crash or a slow input ends that process; it is restarted until the target's
time is used up. Reproducers stay in build/fuzz/<target>/ as crash-*, timeout-* and slow-*.
The exit status is 1 when any target crashed (or, without --allow-slow, met a slow input).
"""

import argparse
import ast
import glob
import hashlib
import os
import pathlib
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
TARGETS = ["expressions", "recipes", "named", "factor", "image", "moves", "view", "batch", "geometric", "player"]


def test_strings() -> list[str]:
    """Every string constant of the Python tests: expressions, recipes, names."""
    strings = set()
    for path in sorted((ROOT / "tests").glob("test_*.py")):
        for node in ast.walk(ast.parse(path.read_text())):
            if isinstance(node, ast.Constant) and isinstance(node.value, str) and 0 < len(node.value) < 300:
                strings.add(node.value)
    return sorted(strings)


def seeds(target: str) -> list[bytes]:
    import torvane as tv
    catalog = tv.catalog()
    if target == "moves":
        return [t.encode() for t in ["A B2' A'", "A", "F2 E' D3", "A\u00a0B", "A B C D E F", "A'2", ""]]
    if target == "named":
        return [row[0].encode() for row in catalog]
    if target == "recipes":
        recipes = [row[3] for row in catalog]
        shapes = [f"{code}$1" for code, _ in tv.polyhedra()] + ["1,0,0$-1/2", "C$1/3", "D$2/(sqrt(5)+1)"]
        return [t.encode() for t in recipes + shapes]
    if target == "expressions":
        polyhedra = [f"{code}$1" for code, _ in tv.polyhedra()]
        sizes = [str(tv.Recipe.parse(row[3])).split("$", 1)[-1].split("&")[0] for row in catalog]
        return [t.encode() for t in test_strings() + sizes] + [p.encode() for p in polyhedra]
    # Structured targets read their arguments from the bytes: a few random starts will do.
    return [hashlib.sha256(bytes([i])).digest() * 4 for i in range(16)]


def write_seeds(target: str, folder: pathlib.Path) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    for data in seeds(target):
        (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)


def reproducers(folder: pathlib.Path, kind: str) -> set[str]:
    return set(glob.glob(str(folder / f"{kind}-*")))


def run_target(target: str, seconds: float, limit: float) -> dict:
    work = ROOT / "build" / "fuzz" / target
    corpus, seed_folder = work / "corpus", work / "seeds"
    corpus.mkdir(parents=True, exist_ok=True)
    write_seeds(target, seed_folder)
    before = {kind: reproducers(work, kind) for kind in ("crash", "timeout", "slow", "oom")}
    package = os.environ.get("PYTHONPATH") or str(ROOT / "python")
    env = {**os.environ, "PYTHONPATH": os.pathsep.join([str(HERE), package]), "TORVANE_FUZZ_LIMIT": str(limit)}
    runs, started, restarts = 0, time.monotonic(), 0
    while (left := seconds - (time.monotonic() - started)) >= 1:
        (work / f"fuzz_{target}.runs").unlink(missing_ok=True)
        command = [sys.executable, str(HERE / f"fuzz_{target}.py"), f"-artifact_prefix={work}/",
                   f"-max_total_time={int(left)}", "-timeout=30", "-rss_limit_mb=4096", "-print_final_stats=0",
                   str(corpus), str(seed_folder)]
        # The output goes straight to a file: held here, it would swell this process, and the
        # peak size of a process is inherited by the children it starts, whose libFuzzer then
        # reports it as their own out-of-memory.
        with open(work / "last.log", "wb") as log:
            result = subprocess.run(command, env=env, stdout=log, stderr=subprocess.STDOUT)
        try:
            runs += int((work / f"fuzz_{target}.runs").read_text() or 0)
        except FileNotFoundError:
            pass
        if result.returncode != 0:
            restarts += 1
    elapsed = time.monotonic() - started
    found = {kind: sorted(reproducers(work, kind) - before[kind]) for kind in before}
    return {"target": target, "runs": runs, "seconds": elapsed, "restarts": restarts, **found}


def main() -> int:
    parser = argparse.ArgumentParser(prog="./run.sh fuzz", description=__doc__.split("\n\n")[0])
    parser.add_argument("seconds", nargs="?", type=float, default=60.0, help="time per target (default 60)")
    parser.add_argument("--limit", type=float, default=2.0, help="seconds after which an input is slow (default 2)")
    parser.add_argument("--allow-slow", action="store_true", help="report slow inputs without failing")
    parser.add_argument("--only", action="append", choices=TARGETS, help="run only this target (repeatable)")
    args = parser.parse_args()
    failed = False
    print(f"{'target':<12} {'inputs':>9} {'inputs/s':>9} {'crashes':>8} {'slow':>5}")
    for target in args.only or TARGETS:
        report = run_target(target, args.seconds, args.limit)
        crashes = report["crash"] + report["timeout"] + report["oom"]
        print(f"{target:<12} {report['runs']:>9} {report['runs'] / max(report['seconds'], 1e-9):>9.0f} "
              f"{len(crashes):>8} {len(report['slow']):>5}", flush=True)
        for path in crashes + report["slow"]:
            print(f"    {path}")
        failed = failed or bool(crashes) or (bool(report["slow"]) and not args.allow_slow)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

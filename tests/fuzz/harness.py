"""What every fuzz target shares: the watchdog, the allowed exceptions, the statistics.

A target module defines `test_one_input(data: bytes)` and calls `main(test_one_input,
allowed=...)`. Each input runs under a watchdog: one that runs longer than the time limit
(2 s by default) is written to `slow-<sha1>` in the artifact folder and ends the run, as a
crash would (a crash leaves `crash-<sha1>` there, written by libFuzzer). An exception outside
`allowed` is a crash. The number of inputs run is kept in `<artifact folder>/<target>.runs`.

Run one target directly with
    PYTHONPATH=python python tests/fuzz/fuzz_expressions.py -artifact_prefix=out/ corpus/
or all of them with `./run.sh fuzz [seconds]`.
"""

import hashlib
import os
import sys
import threading
import time

import atheris

import torvane as tv

# What the module may raise for bad input: its failure kinds and the argument errors.
DOCUMENTED = (ValueError, ArithmeticError, TypeError, OverflowError, IndexError, RuntimeError, tv.PuzzleError)


class Watchdog(threading.Thread):
    """Reports the input in hand once it has run for `limit` seconds; counts the inputs."""

    def __init__(self, name: str, prefix: str, limit: float):
        super().__init__(daemon=True)
        self.name_, self.prefix, self.limit = name, prefix, limit
        self.current: bytes | None = None
        self.started = 0.0
        self.runs = 0

    def begin(self, data: bytes) -> None:
        self.current, self.started = data, time.monotonic()

    def end(self) -> None:
        self.current = None
        self.runs += 1

    def write_runs(self) -> None:
        with open(f"{self.prefix}{self.name_}.runs", "w") as out:
            out.write(str(self.runs))

    def run(self) -> None:
        last_written = time.monotonic()
        while True:
            time.sleep(0.05)
            data, started = self.current, self.started
            now = time.monotonic()
            if now - last_written > 0.5:
                self.write_runs()
                last_written = now
            if data is not None and now - started > self.limit and data is self.current:
                path = f"{self.prefix}slow-{hashlib.sha1(data).hexdigest()}"
                with open(path, "wb") as out:
                    out.write(data)
                self.write_runs()
                print(f"SLOW INPUT: more than {self.limit:g} s, written to {path}", file=sys.stderr, flush=True)
                os._exit(70)


def artifact_prefix(argv: list[str]) -> str:
    for arg in argv:
        if arg.startswith("-artifact_prefix="):
            return arg.split("=", 1)[1]
    return "./"


def main(test_one_input, allowed=DOCUMENTED) -> None:
    name = os.path.splitext(os.path.basename(sys.argv[0]))[0]
    limit = float(os.environ.get("TORVANE_FUZZ_LIMIT", "2"))
    watchdog = Watchdog(name, artifact_prefix(sys.argv), limit)
    watchdog.start()

    def one_input(data: bytes) -> None:
        watchdog.begin(data)
        try:
            test_one_input(data)
        except allowed:
            pass
        finally:
            watchdog.end()

    atheris.Setup(sys.argv, one_input)
    try:
        atheris.Fuzz()
    finally:
        watchdog.write_runs()

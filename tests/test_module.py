import os
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import torvane as tv
from torvane import _native

REGISTERED = ["__version__", "PuzzleError", "Fraction", "Real", "Image", "Puzzle", "Shape", "Recipe", "Grip",
              "PuzzleBatch", "Array", "Layout", "catalog", "polyhedra", "evaluate", "factor_polynomial",
              "build_many", "render_many", "thread_count", "jumbles", "non_jumbling", "free_threaded"]


def test_attributes_are_registered_in_their_fixed_order():
    present = [name for name in REGISTERED if hasattr(_native, name)]
    assert _native.__all__ == present
    assert tv.__all__ == present
    assert _native.__version__ == "0.1.1"
    assert _native.free_threaded is True


def test_puzzle_error_derives_directly_from_exception():
    assert tv.PuzzleError.__mro__[1] is Exception
    assert tv.PuzzleError.__module__ == "torvane._native"
    assert tv.PuzzleError.__doc__ == "Base class for errors raised by the torvane extension."


def test_module_declares_it_needs_no_gil():
    assert "does not need the global interpreter lock" in _native.__doc__
    if hasattr(sys, "_is_gil_enabled"):
        code = "import sys, torvane; print(sys._is_gil_enabled())"
        result = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True,
                                env={**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)})
        if not sys._is_gil_enabled():
            assert result.stdout.strip() == "False"


def test_docstrings_carry_text_signatures():
    import inspect
    assert str(inspect.signature(tv.thread_count)) == "()"
    assert str(inspect.signature(tv.Fraction)) == "(numerator, denominator=1)"
    assert "RAYON_NUM_THREADS" in tv.thread_count.__doc__


@pytest.mark.parametrize("env, expected", [
    ({"RAYON_NUM_THREADS": "3"}, 3),
    ({"RAYON_NUM_THREADS": "junk", "RAYON_RS_NUM_CPUS": "5"}, 5),
    ({"RAYON_RS_NUM_CPUS": "2"}, 2),
    ({"RAYON_NUM_THREADS": "0", "RAYON_RS_NUM_CPUS": "5"}, os.cpu_count()),
])
def test_thread_count_follows_the_environment(env, expected):
    clean = {k: v for k, v in os.environ.items() if not k.startswith("RAYON_")}
    clean["PYTHONPATH"] = os.pathsep.join(sys.path)
    result = subprocess.run([sys.executable, "-c", "import torvane; print(torvane.thread_count())"],
                            capture_output=True, text=True, check=True, env={**clean, **env})
    assert int(result.stdout) == expected


def test_thread_count_is_positive_and_fixed():
    assert tv.thread_count() >= 1
    assert tv.thread_count() == tv.thread_count()


@pytest.mark.parametrize("call, error, message", [
    (lambda: tv.Fraction(1, 2, 3), TypeError, "Fraction() takes from 1 to 2 positional arguments but 3 were given"),
    (lambda: tv.Fraction(), TypeError, "Fraction() missing 1 required positional argument: 'numerator'"),
    (lambda: tv.Fraction(1, numerator=2), TypeError, "Fraction() got multiple values for argument 'numerator'"),
    (lambda: tv.Fraction(1, scale=2), TypeError, "Fraction() got an unexpected keyword argument 'scale'"),
    (lambda: tv.Fraction(**{"numerator": 1, "denominator": 2, "x": 3}), TypeError,
     "Fraction() got an unexpected keyword argument 'x'"),
    (lambda: tv.thread_count(1), TypeError, "thread_count() takes 0 positional arguments but 1 was given"),
    (lambda: tv.thread_count(x=1), TypeError, "thread_count() got an unexpected keyword argument 'x'"),
])
def test_signature_mismatches_raise_cpythons_errors(call, error, message):
    with pytest.raises(error) as info:
        call()
    assert str(info.value) == message
    assert not getattr(info.value, "__notes__", None)


class Index:
    def __init__(self, value):
        self.value = value

    def __index__(self):
        return self.value


@pytest.mark.parametrize("kwargs, error, message, name", [
    ({"numerator": "3"}, TypeError, "'str' object cannot be interpreted as an integer", "numerator"),
    ({"numerator": 1.5}, TypeError, "'float' object cannot be interpreted as an integer", "numerator"),
    ({"numerator": 2**63}, OverflowError, None, "numerator"),
    ({"numerator": 1, "denominator": -2**64}, OverflowError, None, "denominator"),
    ({"numerator": None}, TypeError, None, "numerator"),
    # The first bad argument in declaration order decides, whatever the keyword order.
    ({"denominator": "x", "numerator": "y"}, TypeError, None, "numerator"),
])
def test_conversion_errors_carry_a_note_naming_the_argument(kwargs, error, message, name):
    with pytest.raises(error) as info:
        tv.Fraction(**kwargs)
    if message is not None:
        assert str(info.value) == message
    assert info.value.__notes__ == [f"while processing '{name}'"]


@pytest.mark.parametrize("value", [-1, 2**32, 2**64, -2**70])
def test_narrow_integers_out_of_range_give_one_message(value):
    with pytest.raises(OverflowError) as info:
        tv.Image(value, 1)
    assert str(info.value) == "out of range integral type conversion attempted"
    assert info.value.__notes__ == ["while processing 'width'"]


class LyingLength:
    """A sequence whose length says 2**62 and which yields two items."""

    def __init__(self, item):
        self.item = item

    def __len__(self):
        return 2**62

    def __getitem__(self, index):
        if index < 2:
            return self.item
        raise IndexError


@pytest.mark.parametrize("call, error, message", [
    (lambda: tv.Recipe(shell=range(10**12)), TypeError, "'int' object is not an instance of 'Shape'"),
    (lambda: tv.Recipe().with_cuts(range(10**12)), TypeError, "'int' object is not an instance of 'Shape'"),
    (lambda: tv.Image.from_bytes(1, 1, range(10**12)), OverflowError, "out of range integral type conversion attempted"),
    (lambda: tv.Recipe().with_cuts(LyingLength(5)), TypeError, "'int' object is not an instance of 'Shape'"),
    (lambda: tv.factor_polynomial(LyingLength("1")), TypeError, "'str' object cannot be interpreted as an integer"),
    (lambda: tv.Image.from_bytes(2**30, 2**30, b""), ValueError, "data length must be width * height * 4"),
    (lambda: tv.Image.from_bytes(20000, 20000, b"abc"), ValueError, "data length must be width * height * 4"),
])
def test_sizes_from_the_caller_are_checked_before_allocating(call, error, message):
    with pytest.raises(error) as info:
        call()
    assert str(info.value) == message
    assert tv.factor_polynomial(LyingLength(1)) == [["1", "1"]]


def test_a_daemon_thread_inside_a_released_call_survives_interpreter_exit():
    code = """if True:
        import threading, time, torvane as tv
        image = tv.Image(512, 512)
        def spin():
            while True:
                image.downsample(2)
        for _ in range(4):
            threading.Thread(target=spin, daemon=True).start()
        time.sleep(0.3)
    """
    env = {**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)}
    for _ in range(6):
        result = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, env=env)
        assert (result.returncode, result.stderr) == (0, "")


def test_index_protocol_and_numpy_integers_are_accepted():
    assert tv.Fraction(Index(6), np.int64(-4)) == tv.Fraction(-3, 2)
    assert tv.Fraction(True) == tv.Fraction(1)


def test_many_threads_use_the_module_at_once():
    results, errors = [], []

    def work(seed):
        try:
            total = tv.Fraction(0)
            for k in range(1, 200):
                total = total + tv.Fraction(seed, k * (k + 1))
            results.append((seed, total))
        except BaseException as error:  # collected and asserted below
            errors.append(error)

    threads = [threading.Thread(target=work, args=(s,)) for s in range(1, 9)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not errors
    assert sorted(results, key=lambda r: r[0]) == [(s, tv.Fraction(199 * s, 200)) for s in range(1, 9)]


@pytest.mark.parametrize("flag, accepted", [(True, True), (np.bool_(True), True), (np.bool_(False), True),
                                            (1, False), (None, False), ("yes", False)])
def test_flags_are_bools_or_numpy_bools(flag, accepted):
    image = tv.Image(8, 8)
    if accepted:
        image.draw_text(4, 0, "a", center=flag)
        return
    with pytest.raises(TypeError) as info:
        image.draw_text(4, 0, "a", center=flag)
    expected = "'None' is not an instance of 'bool'" if flag is None else \
        f"'{type(flag).__name__}' object is not an instance of 'bool'"
    assert str(info.value) == expected
    assert info.value.__notes__ == ["while processing 'center'"]


def test_a_busy_object_refuses_other_threads_at_once():
    """While one thread blits into an image with the interpreter released, others are refused."""
    target, source = tv.Image(2048, 2048), tv.Image(2048, 2048, (1, 2, 3, 4))
    seen, done = set(), threading.Event()

    def blit_until_seen():
        while not done.is_set():
            try:
                target.blit(source, mode="over")
            except RuntimeError as error:  # the main thread's own call holds the image
                assert str(error) in ("Already borrowed", "Already mutably borrowed")

    worker = threading.Thread(target=blit_until_seen)
    worker.start()
    deadline = time.monotonic() + 60
    try:
        # Tries until both refusals have been seen: the worker's blits come and go.
        while len(seen) < 2 and time.monotonic() < deadline:
            for attempt, message in [(lambda: target.fill((0, 0, 0, 0)), "Already borrowed"),
                                     (lambda: target.pixel(0, 0), "Already mutably borrowed")]:
                try:
                    attempt()
                except RuntimeError as error:
                    assert str(error) == message
                    seen.add(message)
    finally:
        done.set()
        worker.join()
    assert seen == {"Already borrowed", "Already mutably borrowed"}


def test_eight_threads_share_every_kind_of_object():
    """Only refusals of a busy object may come out, and every result equals the serial one."""
    half, root2 = tv.Fraction(1, 2), tv.evaluate("sqrt(2)")
    phi = tv.evaluate("(1+sqrt(5))/2")
    recipe, shape = tv.Recipe.named("Megaminx"), tv.Shape.parse("1,0,0$-1/2")
    puzzle = tv.Puzzle("?shell=C$1&cut=C$1/3")
    background = (10, 20, 30, 255)
    image, other = tv.Image(96, 64, background), tv.Image(32, 32, background)
    calls = {
        "fraction": lambda: (half + half, half / tv.Fraction(3), -half, abs(-half), float(half), hash(half),
                             half < tv.Fraction(1), half.numerator, half.denominator),
        # A field's interval narrows while other threads refine it: compare the polynomial only.
        "real": lambda: (repr(phi * phi - phi), (root2 + phi).sign(), float(phi), str(root2 / phi).split(" in Q(")[0], phi == root2,
                         root2 < phi, repr(root2.root(3)), abs(-root2) == root2, str(phi.field)),
        "real interval": lambda: phi.interval and None,
        "recipe": lambda: (str(recipe), repr(recipe), hash(recipe), recipe.shell, recipe.cuts, recipe.query,
                           str(recipe.with_cuts([shape])), str(recipe.adding_cuts([shape])), recipe == recipe),
        "shape": lambda: (str(shape), shape.kind, shape.coefficients, str(shape.offset()), hash(shape)),
        "puzzle": lambda: (puzzle.stickers(), puzzle.sticker_ids(), puzzle.action_permutations(), puzzle.grip_names,
                           puzzle.palette, puzzle.piece_count, puzzle.is_solved, puzzle.query),
        # The writes put back what is there, so every read sees the same pixels.
        "image writes": lambda: (image.fill(background), image.fill_rect(3, 4, 50, 9, background),
                                 image.set_pixel(5, 5, background), image.blit(other, 7, 9, mode="over")) and None,
        "image reads": lambda: (image.pixel(5, 5), image.to_bytes(), image.downsample(3).to_bytes(),
                                image.resized(13, 17).to_bytes(), image.to_png(), image.copy().to_bytes(), len(image)),
        "image text": lambda: (other.copy().draw_text(0, 0, "Ab", color=background), tv.Image.text_size("Ab\nc"),
                               tv.Image.fit_text("abcdef", 20)),
    }
    serial = {name: call() for name, call in calls.items()}
    failures, refusals = [], []
    stop = threading.Event()

    def work(offset):
        names = list(calls)
        k = offset
        while not stop.is_set():
            name = names[k % len(names)]
            k += 1
            try:
                result = calls[name]()
            except RuntimeError as error:
                if str(error) not in ("Already borrowed", "Already mutably borrowed"):
                    failures.append((name, error))
                refusals.append(name)
                continue
            except BaseException as error:  # collected and asserted below
                failures.append((name, error))
                continue
            if result != serial[name]:
                failures.append((name, result))

    threads = [threading.Thread(target=work, args=(i,)) for i in range(8)]
    for thread in threads:
        thread.start()
    stop.wait(3)
    stop.set()
    for thread in threads:
        thread.join()
    assert failures == []

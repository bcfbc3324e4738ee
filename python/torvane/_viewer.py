"""One puzzle as a person plays it, behind the browser page and the notebook widget.

A `Viewer` owns one `Puzzle` and turns the page's few commands (pointer events, the wheel,
move text, the buttons, a new recipe) into calls on it, one at a time under its own lock, so
that two requests of one page never meet inside the puzzle. Every command answers with the
state the page shows; `frame` advances the puzzle and draws it. The page keeps pulling frames
while `moving` is true and stops once the puzzle and its camera are at rest.

Only the text of recipes and moves and the fixed command names reach the puzzle; nothing the
page sends is evaluated in any other way.
"""

import math
import secrets
import threading

import torvane as tv

# Errors the library raises for bad input; each reaches the page as its own message.
INPUT_ERRORS = (tv.PuzzleError, ValueError, TypeError, OverflowError, RuntimeError, IndexError)

MAX_TURNS_AT_ONCE = 1000   # move text asking for more is refused before any move is made
MAX_SCRAMBLE = 1000
LOG_LENGTH = 24            # how many of the latest moves the page lists
DISTANCE_RANGE = (2.5, 60.0)
WHEEL_STEP = 0.0015        # the distance grows by exp(delta * this) for a wheel delta in pixels
# The camera counts as coasting while one frame moves it by more than this share of its
# distance; below it the change is far under a pixel.
REST_SHARE = 2e-5
# Frames drawn while the puzzle moves use one sample a pixel, for speed; the frame at rest is
# supersampled as the puzzle is set.
MOTION_SUPERSAMPLE = 1


class CommandError(Exception):
    """A command the viewer refuses, with the HTTP status that says why (400, 404)."""

    def __init__(self, message, status=400):
        super().__init__(message)
        self.status = status


def catalog_names():
    return [name for name, *_ in tv.catalog()]


def label_of(puzzle):
    """The catalog name of the puzzle's recipe, or the recipe's query text."""
    return next((name for name, _, _, query in tv.catalog() if query == puzzle.query), puzzle.query)


def _number(args, key, default=None):
    value = args.get(key, default)
    if isinstance(value, bool) or not isinstance(value, (int, float)) or not math.isfinite(value):
        raise CommandError(f"'{key}' must be a finite number")
    return float(value)


def _count(args, key, default, limit):
    value = args.get(key, default)
    if isinstance(value, bool) or not isinstance(value, int) or not 0 <= value <= limit:
        raise CommandError(f"'{key}' must be a whole number from 0 to {limit}")
    return value


def _text(args, key):
    value = args.get(key)
    if not isinstance(value, str):
        raise CommandError(f"'{key}' must be text")
    return value


class Viewer:
    """The puzzle of one page, with what the page shows beside the frame."""

    def __init__(self, puzzle, *, size=512, seed=None):
        self.lock = threading.Lock()
        self.size = size
        self._start(puzzle)
        self.seed = seed

    def _start(self, puzzle):
        self.puzzle = puzzle
        self.label = label_of(puzzle)
        self.seed = None
        self.log = []              # names of the latest turns, oldest first
        self.dragging = False      # the pointer went down off the arrows and is not up yet
        self.coasting = False      # the camera moved in the last frame or a drag fed it since
        self.scramble_end = 0      # the move count at which queued scramble turns are done
        self.idle_frames = 0       # frames in a row that neither animated nor turned
        self.drawn = None          # the look of the last frame drawn at rest

    # -- commands -------------------------------------------------------------------------

    def command(self, name, args):
        """Runs command `name` with the JSON object `args`; returns the state."""
        handler = getattr(self, "_do_" + name, None) if name.isidentifier() else None
        if handler is None:
            raise CommandError(f"unknown command '{name}'", status=404)
        if not isinstance(args, dict):
            raise CommandError("the request body must be a JSON object")
        with self.lock:
            try:
                handler(args)
            except INPUT_ERRORS as error:
                raise CommandError(str(error)) from None
            return self._state()

    def state(self):
        with self.lock:
            return self._state()

    def frame(self, dt_ms, image_format="png"):
        """Advances the puzzle by `dt_ms` and draws it; returns (bytes, state)."""
        with self.lock:
            puzzle = self.puzzle
            eye = puzzle.camera_position + puzzle.camera_up
            moving = puzzle.animating or self.coasting or self._scrambling()
            moves = puzzle.move_count
            supersample = puzzle.supersample
            if moving:
                puzzle.supersample = MOTION_SUPERSAMPLE
            try:
                image = puzzle.frame(min(max(dt_ms, 0.0), 250.0), self.size, self.size)
            except INPUT_ERRORS as error:
                raise CommandError(str(error)) from None
            finally:
                puzzle.supersample = supersample
            moved = max(abs(a - b) for a, b in zip(eye, puzzle.camera_position + puzzle.camera_up))
            self.coasting = moved > REST_SHARE * max(puzzle.distance, 1.0)
            turned = puzzle.animating or puzzle.move_count != moves
            self.idle_frames = 0 if turned else self.idle_frames + 1
            # A frame drawn in motion is redrawn supersampled once everything stops.
            self.drawn = self._look() if not moving else None
            data = image.to_png() if image_format == "png" else image.to_bytes()
            return data, self._state()

    def _do_pointer(self, args):
        kind = args.get("kind")
        x, y = _number(args, "x"), _number(args, "y")
        puzzle = self.puzzle
        if kind == "down":
            self.dragging = not puzzle.pointer_down(x, y)
        elif kind == "move":
            puzzle.pointer_move(x, y)
            if self.dragging:
                self.coasting = True
        elif kind == "up":
            turn = puzzle.pointer_up(x, y)
            if self.dragging:
                self.coasting = True
            self.dragging = False
            if turn is not None:
                self._record([self._turn_name(*turn)])
        elif kind == "leave":
            puzzle.clear_hover()
        else:
            raise CommandError("'kind' must be down, move, up or leave")

    def _do_wheel(self, args):
        delta = _number(args, "delta")
        low, high = DISTANCE_RANGE
        distance = self.puzzle.distance * math.exp(max(-500.0, min(500.0, delta)) * WHEEL_STEP)
        self.puzzle.distance = min(max(distance, low), high)

    def _do_apply(self, args):
        text = _text(args, "moves")
        names = self._turn_names(text)
        if names is not None and len(names) > MAX_TURNS_AT_ONCE:
            raise CommandError(f"at most {MAX_TURNS_AT_ONCE} turns at a time")
        before = self.puzzle.history_length
        try:
            self.puzzle.apply(text)
        finally:
            # A locked layer stops the text partway; the turns made before it stay made.
            made = self.puzzle.history_length - before
            if names is not None and made > 0:
                self._record(names[:made])

    def _do_scramble(self, args):
        count = _count(args, "count", 20, MAX_SCRAMBLE)
        seed = args.get("seed")
        if seed is None:
            seed = secrets.randbits(32)
        elif isinstance(seed, bool) or not isinstance(seed, int) or not 0 <= seed < 2**64:
            raise CommandError("'seed' must be a whole number from 0 to 2^64 - 1")
        self.puzzle.seed(seed)
        self.puzzle.scramble(count)
        self.seed = seed
        self.log = []
        self.scramble_end = self.puzzle.move_count + count
        self.idle_frames = 0

    def _do_undo(self, args):
        if self.puzzle.undo() and self.log:
            self.log.pop()

    def _do_restore(self, args):
        self.puzzle.restore()
        self.log = []
        self.seed = None

    def _do_reset(self, args):
        self.puzzle.reset()
        self.log = []
        self.seed = None
        self.scramble_end = 0

    def _do_load(self, args):
        recipe = _text(args, "recipe").strip()
        if not recipe:
            raise CommandError("give a catalog name or a recipe such as ?shell=C$1&cut=C$1/3")
        old = self.puzzle
        puzzle = tv.Puzzle(recipe, background=old.background)
        puzzle.camera_position, puzzle.camera_up = old.camera_position, old.camera_up
        self._start(puzzle)

    def _do_hello(self, args):
        """Asks for nothing but the state, and a frame when the puzzle changed elsewhere."""

    # -- what the page shows ---------------------------------------------------------------

    def _scrambling(self):
        # The next queued turn starts at the advance after the last one ends, so one idle frame
        # is normal; two mean that nothing is left to turn (say, after a restore).
        return self.puzzle.move_count < self.scramble_end and self.idle_frames < 2

    def _record(self, names):
        self.log = (self.log + names)[-LOG_LENGTH:]

    def _turn_name(self, grip, direction):
        """The name of the action that turns `grip` by `direction` now, or its grip number."""
        for action in range(0 if direction > 0 else 1, self.puzzle.action_count, 2):
            if self.puzzle.action_grip(action) == grip:
                return self.puzzle.actions[action]
        return f"#{grip}" + ("" if direction > 0 else "'")

    def _turn_names(self, text):
        """The names of the single turns that move text makes, or None if it is not readable."""
        names = []
        for token in text.split():
            if self.puzzle.action_index(token) is not None:
                names.append(token)
                continue
            inverse = "'" if token.endswith("'") else ""
            stem = token[:-1] if inverse else token
            digits = len(stem) - len(stem.rstrip("0123456789"))
            for length in range(1, digits + 1):
                name = stem[:-length]
                if name and self.puzzle.action_index(name + inverse) is not None:
                    repeat = int(stem[-length:])
                    if repeat > MAX_TURNS_AT_ONCE:
                        return [name] * (MAX_TURNS_AT_ONCE + 1)
                    names += [name + inverse] * repeat
                    break
            else:
                return None
        return names

    def _look(self):
        """What a frame shows, apart from the animation: if it changes, the picture is stale."""
        p = self.puzzle
        return (p.history_length, p.move_count, p.hovered_arrow, p.camera_position, p.camera_up,
                p.camera_target, p.fov, p.background, p.supersample, p.line_width, p.show_arrows,
                p.show_edges, p.show_pieces)

    def _state(self):
        puzzle = self.puzzle
        note = None
        try:
            solved = puzzle.is_solved
        except tv.PuzzleError:
            solved = None
            note = "This puzzle has left its own lattice, so its stickers cannot be read here."
        moving = puzzle.animating or self.coasting or self._scrambling() or self.drawn != self._look()
        return {
            "label": self.label,
            "query": puzzle.query,
            "moves": puzzle.move_count,
            "turns": puzzle.history_length,
            "solved": solved,
            "note": note,
            "last": " ".join(self.log),
            "seed": self.seed,
            "size": self.size,
            "moving": moving,
        }

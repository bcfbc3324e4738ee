"""The puzzle player in a Jupyter notebook: `tv.widget(puzzle)`.

The widget runs the page's own script (`viewer.js`) as an anywidget front end. The script sends
the page's calls as widget messages, {id, command, args}; they go to a `Viewer` over the same
puzzle, and each answer carries the id back, with a frame's PNG as the message's buffer. The
front end asks for the state now and then while idle, so changes made to the puzzle from
Python show up in the cell.
"""

from importlib import resources

import anywidget

from torvane._viewer import CommandError, Viewer, catalog_names


def answer(viewer, message):
    """The reply to one message of the front end: (content, buffers)."""
    reply = {"id": message.get("id")}
    command, args = message.get("command"), message.get("args", {})
    try:
        if command == "start":
            return {**reply, "catalog": catalog_names(), "state": viewer.state()}, []
        if command == "frame":
            dt = args.get("dt", 16.0) if isinstance(args, dict) else None
            if isinstance(dt, bool) or not isinstance(dt, (int, float)) or dt != dt:
                raise CommandError("'dt' must be a number of milliseconds")
            png, state = viewer.frame(float(dt))
            return {**reply, "state": state}, [png]
        if not isinstance(command, str):
            raise CommandError("a message needs a command")
        return {**reply, "state": viewer.command(command, args)}, []
    except CommandError as error:
        return {**reply, "error": str(error)}, []


class PuzzleWidget(anywidget.AnyWidget):
    """Plays a `Puzzle` in a notebook cell: click arrows, drag, scroll, type moves."""

    _esm = resources.files("torvane").joinpath("viewer.js").read_text()

    def __init__(self, puzzle, *, size=512, **kwargs):
        super().__init__(**kwargs)
        self.viewer = Viewer(puzzle, size=size)
        self.on_msg(self._receive)

    @property
    def puzzle(self):
        """The puzzle shown now: the one given, until the page loads another."""
        return self.viewer.puzzle

    def _receive(self, _widget, message, _buffers):
        content, buffers = answer(self.viewer, message)
        self.send(content, buffers)

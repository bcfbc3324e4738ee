"""The notebook widget's Python half, talking to a fake front end."""

import io

import pytest
from PIL import Image as PILImage

import torvane as tv

pytest.importorskip("anywidget", reason="anywidget (the notebook extra) is not installed")

CUBE = "Rubik's Cube (3x3x3)"


class FakeFrontEnd:
    """Sends messages as viewer.js does and keeps the widget's replies by id."""

    def __init__(self, puzzle):
        self.widget = tv.widget(puzzle, size=48)
        self.replies = []
        self.widget.send = lambda content, buffers=None: self.replies.append((content, buffers or []))
        self.next_id = 0

    def send(self, command, **args):
        self.next_id += 1
        self.widget._receive(self.widget, {"id": self.next_id, "command": command, "args": args}, [])
        content, buffers = self.replies[-1]
        assert content["id"] == self.next_id
        return content, buffers

    def settle(self):
        for _ in range(400):
            content, buffers = self.send("frame", dt=16)
            if not content["state"]["moving"]:
                return buffers[0]
        raise AssertionError("never at rest")


def test_start_frames_and_a_refusal():
    front = FakeFrontEnd(tv.Puzzle(CUBE))
    content, _ = front.send("start")
    assert len(content["catalog"]) == len(tv.catalog()) and content["state"]["label"] == CUBE
    png = front.settle()
    assert PILImage.open(io.BytesIO(png)).size == (48, 48)
    content, _ = front.send("apply", moves="A Q")
    assert "'Q' is not a move" in content["error"] and front.widget.puzzle.history_length == 0


@pytest.mark.parametrize("message", [{"command": 7}, {"command": "frame", "args": {"dt": "x"}},
                                     {"command": "nope"}, {"command": "apply", "args": []}])
def test_malformed_messages_get_an_error_reply(message):
    front = FakeFrontEnd(tv.Puzzle(CUBE))
    front.widget._receive(front.widget, {"id": 5, **message}, [])
    assert front.replies[-1][0]["id"] == 5 and front.replies[-1][0]["error"]

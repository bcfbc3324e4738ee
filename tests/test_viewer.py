"""The puzzle player's server, driven over HTTP without a browser."""

import http.client
import io
import json
import os
import signal
import socket
import subprocess
import sys
import threading

import pytest
from PIL import Image as PILImage

import torvane as tv
from torvane import _serve

CUBE = "Rubik's Cube (3x3x3)"
SIZE = 64


@pytest.fixture(scope="module")
def server():
    server = _serve.ViewerServer(0, _serve.viewer_factory(CUBE, SIZE, 0, None))
    thread = threading.Thread(target=server.serve_forever, daemon=True)
    thread.start()
    yield server
    server.shutdown()
    server.server_close()


def request(server, method, path, body=None):
    connection = http.client.HTTPConnection(*server.server_address, timeout=60)
    connection.request(method, path, body=json.dumps(body) if isinstance(body, dict) else body)
    response = connection.getresponse()
    return response.status, response, response.read()


def open_session(server):
    return json.loads(request(server, "POST", "/api/session", {})[2])


def command(server, session, name, args=None):
    status, _, data = request(server, "POST", f"/api/{session}/{name}", args or {})
    assert status == 200, data
    return json.loads(data)


def settle(server, session, limit=400):
    """Pulls frames as the page does until the state says the puzzle is at rest."""
    for count in range(1, limit + 1):
        status, response, _ = request(server, "GET", f"/api/{session}/frame?dt=16")
        assert status == 200
        if not json.loads(response.getheader("X-Torvane-State"))["moving"]:
            return count
    raise AssertionError("the puzzle never came to rest")


def puzzle_of(server, session):
    return server.sessions.get(session).puzzle


def test_frames_come_as_png_or_the_same_pixels_raw(server):
    opened = open_session(server)
    assert opened["catalog"] == [name for name, *_ in tv.catalog()] and opened["state"]["label"] == CUBE
    session = opened["session"]
    settle(server, session)
    _, png_response, png = request(server, "GET", f"/api/{session}/frame?dt=0")
    _, raw_response, raw = request(server, "GET", f"/api/{session}/frame?dt=0&format=rgba")
    assert png_response.getheader("Content-Type") == "image/png"
    decoded = PILImage.open(io.BytesIO(png))
    assert decoded.size == (SIZE, SIZE) and decoded.mode == "RGBA"
    assert decoded.tobytes() == raw
    assert json.loads(raw_response.getheader("X-Torvane-State"))["size"] == SIZE


@pytest.mark.parametrize("method, path, body, status", [
    ("GET", "/index.html", None, 404),
    ("GET", "/api/nosuchsession/frame", None, 404),
    ("POST", "/api/nosuchsession/undo", "{}", 404),
    ("POST", "/api/a/b/c", "{}", 404),
    ("POST", "/api/{session}/frame", "{}", 404),
    ("POST", "/api/{session}/__init__", "{}", 404),
    ("GET", "/api/{session}/undo", None, 405),
    ("POST", "/api/{session}/apply", "x" * (_serve.BODY_LIMIT + 1), 413),
    ("POST", "/api/{session}/apply", "{not json", 400),
    ("POST", "/api/{session}/apply", "[1, 2]", 400),
    ("POST", "/api/{session}/apply", b"\xff\xfe", 400),
])
def test_unknown_paths_methods_and_bodies(server, method, path, body, status):
    session = open_session(server)["session"]
    got, _, data = request(server, method, path.format(session=session), body)
    assert got == status and "error" in json.loads(data)
    assert puzzle_of(server, session).history_length == 0


@pytest.mark.parametrize("name, args, message", [
    ("apply", {"moves": "A Q"}, "'Q' is not a move of this puzzle"),
    ("apply", {"moves": "A1001"}, "at most 1000 turns"),
    ("load", {"recipe": "No Such Puzzle"}, 'no cataloged puzzle named "No Such Puzzle"'),
    ("load", {"recipe": "?shell=X$1"}, "unknown polyhedron"),
    ("pointer", {"kind": "down", "x": "0", "y": 0}, "'x' must be a finite number"),
    ("wheel", {"delta": float("inf")}, "'delta' must be a finite number"),
    ("scramble", {"count": 5, "seed": 2**64}, "'seed' must be"),
])
def test_refused_input_leaves_the_puzzle_as_it_was(server, name, args, message):
    session = open_session(server)["session"]
    command(server, session, "apply", {"moves": "B C'"})
    before = puzzle_of(server, session).stickers()
    status, _, data = request(server, "POST", f"/api/{session}/{name}", json.dumps(args))
    assert status == 400 and message in json.loads(data)["error"]
    assert command(server, session, "hello")["label"] == CUBE
    assert puzzle_of(server, session).stickers() == before


def test_move_text_undo_restore_and_a_second_tab(server):
    session, other = open_session(server)["session"], open_session(server)["session"]
    state = command(server, session, "apply", {"moves": "A B2' C"})
    reference = tv.Puzzle(CUBE)
    reference.apply("A B2' C")
    assert puzzle_of(server, session).stickers() == reference.stickers()
    assert state["last"] == "A B' B' C" and state["moves"] == 4 and state["solved"] is False
    assert puzzle_of(server, other).history_length == 0
    assert command(server, session, "undo")["last"] == "A B' B'"
    assert command(server, session, "restore")["solved"] is True


def test_a_drag_orbits_the_camera_until_it_coasts_to_rest(server):
    session = open_session(server)["session"]
    puzzle = puzzle_of(server, session)
    start = puzzle.camera_position
    assert command(server, session, "pointer", {"kind": "down", "x": 0.99, "y": -0.99})["moves"] == 0
    for step in range(1, 6):
        command(server, session, "pointer", {"kind": "move", "x": 0.99 - step * 0.05, "y": -0.99})
        request(server, "GET", f"/api/{session}/frame?dt=16")
    command(server, session, "pointer", {"kind": "up", "x": 0.74, "y": -0.99})
    settle(server, session)
    assert puzzle.camera_position != start and puzzle.history_length == 0
    at_rest = puzzle.camera_position
    assert settle(server, session) == 1 and puzzle.camera_position == pytest.approx(at_rest, abs=1e-3)
    for _ in range(10):
        command(server, session, "wheel", {"delta": -500})
    assert puzzle.distance == pytest.approx(2.5)


def test_scramble_shows_its_seed_and_a_puzzle_off_its_lattice_shows_a_note(server):
    session = open_session(server)["session"]
    state = command(server, session, "scramble", {"count": 4, "seed": 99})
    assert state["seed"] == 99 and state["moving"]
    settle(server, session)
    assert puzzle_of(server, session).stickers() == tv.Puzzle(CUBE, seed=99, scramble=4).stickers()
    command(server, session, "load", {"recipe": "Helicopter Cube"})
    state = command(server, session, "apply", {"moves": "A"})
    assert state["solved"] is None and "left its own lattice" in state["note"]


def test_one_tab_hammered_from_many_threads_is_never_entered_twice(server):
    session = open_session(server)["session"]
    statuses = []

    def hammer(k):
        for i in range(10):
            if (i + k) % 2:
                statuses.append(request(server, "GET", f"/api/{session}/frame?dt=16")[0])
            else:
                statuses.append(request(server, "POST", f"/api/{session}/apply", {"moves": "A A'"})[0])

    threads = [threading.Thread(target=hammer, args=(k,)) for k in range(6)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert statuses == [200] * 60


def test_the_server_listens_on_loopback_only(server):
    assert server.server_address[0] == "127.0.0.1"
    with pytest.raises(OSError):
        socket.create_connection(("127.0.0.2", server.server_address[1]), timeout=5)


def run_view(*args):
    return subprocess.Popen([sys.executable, "-m", "torvane", "view", *args], stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, env={**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)})


def test_command_line_prints_the_url_and_stops_at_ctrl_c():
    process = run_view("Pyraminx", "--port", "0", "--scramble", "5", "--seed", "3")
    line = process.stdout.readline()
    assert "Playing Pyraminx at http://127.0.0.1:" in line
    process.send_signal(signal.SIGINT)
    assert process.wait(timeout=10) == 0


@pytest.mark.parametrize("args, message", [
    (["No Such Puzzle"], "no cataloged puzzle"),
    (["--size", "4"], "--size must be"),
    (["--port", "{busy}"], "is in use. Try another one"),
])
def test_command_line_refusals(args, message):
    with socket.socket() as busy:
        busy.bind(("127.0.0.1", 0))
        busy.listen()
        args = [a.format(busy=busy.getsockname()[1]) for a in args]
        process = run_view(*args)
        _, err = process.communicate(timeout=60)
    assert process.returncode == 2 and message in err

"""`python -m torvane view`: play a puzzle in the browser.

A small HTTP server on 127.0.0.1 (never another address) serves one page and a JSON API over
the `Viewer` of each browser tab. The standard library's threading server is enough here: one
person, a few tabs, requests of a few milliseconds; each tab's calls queue on its viewer's lock,
so several tabs are several puzzles and none of them is ever entered twice at once.

Routes:
    GET  /                         the page
    GET  /viewer.js                its script
    POST /api/session              a new puzzle for a new tab: {"session", "catalog", "state"}
    GET  /api/<session>/frame?dt=  advance by dt milliseconds and draw (PNG, or raw RGBA with
                                   format=rgba); the state rides in the X-Torvane-State header
    POST /api/<session>/<command>  one command with a JSON object body; answers the state
Refused input answers 400 with the library's message as {"error": ...}; unknown paths and
sessions 404; a body over BODY_LIMIT bytes 413.
"""

import argparse
import collections
import errno
import http.server
import json
import os
import secrets
import sys
import threading
import urllib.parse
from importlib import resources

import torvane as tv
from torvane._viewer import CommandError, Viewer, catalog_names

HOST = "127.0.0.1"
DEFAULT_PORT = 8765
BODY_LIMIT = 16 * 1024
START_YAW, START_PITCH = 30.0, 25.0   # degrees: three sides of a cube in view
SESSION_LIMIT = 32          # the oldest tab's puzzle is dropped past this many
STATIC = {"/": ("viewer.html", "text/html; charset=utf-8"),
          "/viewer.js": ("viewer.js", "text/javascript; charset=utf-8")}


class Sessions:
    """The viewers of the open tabs, newest last, at most SESSION_LIMIT of them."""

    def __init__(self, make_viewer):
        self._make_viewer = make_viewer
        self._viewers = collections.OrderedDict()
        self._lock = threading.Lock()

    def open(self):
        viewer = self._make_viewer()
        key = secrets.token_urlsafe(12)
        with self._lock:
            self._viewers[key] = viewer
            while len(self._viewers) > SESSION_LIMIT:
                self._viewers.popitem(last=False)
        return key, viewer

    def get(self, key):
        with self._lock:
            viewer = self._viewers.get(key)
            if viewer is not None:
                self._viewers.move_to_end(key)
        if viewer is None:
            raise CommandError("no such session: reload the page to start a new one", status=404)
        return viewer


class ViewerServer(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def __init__(self, port, make_viewer):
        super().__init__((HOST, port), Handler)
        self.sessions = Sessions(make_viewer)
        self.static = {path: (resources.files("torvane").joinpath(name).read_bytes(), kind)
                       for path, (name, kind) in STATIC.items()}

    def handle_error(self, request, client_address):
        """A tab that closes mid-request is not an error worth a traceback."""
        if not isinstance(sys.exc_info()[1], ConnectionError):
            super().handle_error(request, client_address)

    @property
    def url(self):
        return f"http://{HOST}:{self.server_address[1]}/"


class Handler(http.server.BaseHTTPRequestHandler):
    server_version = "torvane"
    protocol_version = "HTTP/1.1"

    def log_message(self, format, *args):
        """Quiet: the terminal shows the URL and errors, not every frame."""

    def do_GET(self):
        self._answer(self._get)

    def do_POST(self):
        self._answer(self._post)

    def _answer(self, route):
        try:
            route(urllib.parse.urlsplit(self.path))
        except CommandError as error:
            self._send_json({"error": str(error)}, status=error.status)

    def _get(self, url):
        if url.path == "/favicon.ico":
            return self._send(b"", "image/x-icon", status=204)
        if url.path in self.server.static:
            body, kind = self.server.static[url.path]
            return self._send(body, kind)
        parts = url.path.split("/")
        if len(parts) == 4 and parts[1] == "api" and parts[3] == "frame":
            viewer = self.server.sessions.get(parts[2])
            query = urllib.parse.parse_qs(url.query)
            try:
                dt = float(query.get("dt", ["16"])[0])
            except ValueError:
                raise CommandError("'dt' must be a number of milliseconds") from None
            image_format = query.get("format", ["png"])[0]
            if image_format not in ("png", "rgba"):
                raise CommandError("'format' must be png or rgba")
            data, state = viewer.frame(dt if dt == dt else 0.0, image_format)
            kind = "image/png" if image_format == "png" else "application/octet-stream"
            return self._send(data, kind, {"X-Torvane-State": json.dumps(state)})
        if len(parts) == 4 and parts[1] == "api" or url.path == "/api/session":
            raise CommandError("use POST for commands", status=405)
        raise CommandError(f"no such page: {url.path}", status=404)

    def _post(self, url):
        body = self._read_body()
        parts = url.path.split("/")
        if len(parts) < 3 or parts[1] != "api" or len(parts) > 4:
            raise CommandError(f"no such page: {url.path}", status=404)
        args = parse_json(body)
        if parts[2:] == ["session"]:
            key, viewer = self.server.sessions.open()
            return self._send_json({"session": key, "catalog": catalog_names(), "state": viewer.state()})
        if len(parts) != 4:
            raise CommandError(f"no such page: {url.path}", status=404)
        viewer = self.server.sessions.get(parts[2])
        self._send_json(viewer.command(parts[3], args))

    def _read_body(self):
        try:
            length = int(self.headers.get("Content-Length", "0"))
        except ValueError:
            length = -1
        if not 0 <= length <= BODY_LIMIT:
            # The body stays unread, so the connection cannot carry another request.
            self.close_connection = True
            if length < 0:
                raise CommandError("bad Content-Length")
            raise CommandError(f"request body over {BODY_LIMIT} bytes", status=413)
        return self.rfile.read(length)

    def _send_json(self, value, status=200):
        self._send(json.dumps(value).encode(), "application/json", status=status)

    def _send(self, body, kind, headers=(), status=200):
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Cache-Control", "no-store")
        if self.close_connection:
            self.send_header("Connection", "close")
        for name, value in dict(headers).items():
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(body)


def parse_json(body):
    if not body.strip():
        return {}
    try:
        return json.loads(body)
    except (UnicodeDecodeError, json.JSONDecodeError, RecursionError):
        raise CommandError("the request body is not JSON") from None


def viewer_factory(recipe, size, scramble, seed):
    """Makes the first puzzle of every new tab; checks the recipe once, before serving."""
    if scramble and seed is None:
        seed = secrets.randbits(32)
    keywords = {"seed": seed, "scramble": scramble} if scramble else {}
    keywords.update(yaw=START_YAW, pitch=START_PITCH)

    def make():
        return Viewer(tv.Puzzle(recipe, **keywords), size=size, seed=seed if scramble else None)

    make()
    return make


def main(argv):
    try:
        serve(argv)
    except KeyboardInterrupt:
        # Ctrl-C is how the server ends. A tab may be building a large puzzle on another
        # thread; do not wait for it.
        print("stopped", flush=True)
        os._exit(0)


def serve(argv):
    parser = argparse.ArgumentParser(prog="python -m torvane view",
                                     description="Play a puzzle in the browser, on this machine only.")
    parser.add_argument("recipe", nargs="?", default="Rubik's Cube (3x3x3)",
                        help="a catalog name or a recipe query such as '?shell=C$1&cut=C$1/3' "
                             "(default: Rubik's Cube (3x3x3))")
    parser.add_argument("--port", type=int, default=DEFAULT_PORT,
                        help=f"port on 127.0.0.1 (default {DEFAULT_PORT}; 0 picks a free one)")
    parser.add_argument("--size", type=int, default=512, help="frame size in pixels (default 512)")
    parser.add_argument("--scramble", type=int, default=0, help="random moves to start from")
    parser.add_argument("--seed", type=int, help="seed of the starting scramble")
    args = parser.parse_args(argv)
    if not 16 <= args.size <= 2048:
        parser.error("--size must be from 16 to 2048")
    if not 0 <= args.scramble <= 100000:
        parser.error("--scramble must be from 0 to 100000")
    if args.seed is not None and not 0 <= args.seed < 2**64:
        parser.error("--seed must be from 0 to 2^64 - 1")
    try:
        make_viewer = viewer_factory(args.recipe, args.size, args.scramble, args.seed)
    except (tv.PuzzleError, ValueError, TypeError, RuntimeError) as error:
        parser.exit(2, f"python -m torvane view: {error}\n")
    try:
        server = ViewerServer(args.port, make_viewer)
    except OSError as error:
        if error.errno == errno.EADDRINUSE:
            parser.exit(2, f"python -m torvane view: port {args.port} is in use. Try another one, "
                           f"such as --port {args.port + 1}, or --port 0 for any free port.\n")
        raise
    print(f"Playing {args.recipe} at {server.url}  (Ctrl-C stops the server)", flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main(sys.argv[1:])

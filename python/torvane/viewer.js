// The torvane puzzle player: a canvas that shows the puzzle's frames, with move text, buttons,
// a catalog picker and a recipe box around it. The puzzle itself lives in Python; this file only
// forwards what the person does and shows what comes back. Two transports carry the calls: HTTP
// for `python -m torvane view`, and the widget's messages in Jupyter (the default export, which
// anywidget loads).

const STYLE = `
.tv-player { font: 14px system-ui, sans-serif; color: #e6e6e6; background: #181a20;
  display: inline-flex; flex-direction: column; gap: 8px; padding: 12px; border-radius: 8px; }
.tv-player canvas { background: #181a20; touch-action: none; user-select: none; cursor: grab; display: block;
  width: min(var(--tv-size), 92vw); height: min(var(--tv-size), 92vw); }
.tv-player canvas.tv-hover { cursor: pointer; }
.tv-player .tv-row { display: flex; gap: 6px; flex-wrap: wrap; align-items: center; }
.tv-player input, .tv-player select, .tv-player button { font: inherit; color: inherit;
  background: #262a33; border: 1px solid #3a3f4b; border-radius: 4px; padding: 3px 6px; }
.tv-player button:hover { background: #323744; }
.tv-player .tv-grow { flex: 1; min-width: 10em; }
.tv-player .tv-count { width: 4em; }
.tv-player .tv-seed { width: 8em; }
.tv-player .tv-status { font-variant-numeric: tabular-nums; }
.tv-player .tv-last { font-family: ui-monospace, monospace; min-height: 1.2em; overflow-wrap: anywhere; }
.tv-player .tv-note { color: #d9b45a; }
.tv-player .tv-error { color: #ff7a7a; min-height: 1.2em; white-space: pre-wrap; }
`;

// Calls that the pointer or a timer makes, not the person's deliberate actions.
const QUIET = ["pointer", "wheel", "hello"];

function element(tag, props = {}, children = []) {
  const node = Object.assign(document.createElement(tag), props);
  for (const child of children) node.append(child);
  return node;
}

// Builds the controls inside `root` and plays through `transport`, which has
// start() -> {catalog, state}, call(command, args) -> state, frame(dt) -> {state, image}.
export async function mount(root, transport) {
  if (!document.getElementById("tv-player-style")) {
    document.head.append(element("style", { id: "tv-player-style", textContent: STYLE }));
  }
  const canvas = element("canvas", { className: "tv-canvas", tabIndex: 0 });
  const context = canvas.getContext("2d");
  const picker = element("select", { className: "tv-picker", title: "a puzzle from the catalog" });
  const recipe = element("input", { className: "tv-recipe tv-grow", placeholder: "recipe, e.g. ?shell=C$1&cut=C$1/3" });
  const build = element("button", { className: "tv-build", textContent: "Build" });
  const moves = element("input", { className: "tv-moves tv-grow", placeholder: "moves, e.g. A B2' C (Enter)" });
  const count = element("input", { className: "tv-count", type: "number", min: 0, max: 1000, value: 20, title: "random moves" });
  const seed = element("input", { className: "tv-seed", placeholder: "seed (random)", title: "seed of the scramble" });
  const button = (name, text) => element("button", { className: `tv-${name}`, textContent: text });
  const scramble = button("scramble", "Scramble"), undo = button("undo", "Undo");
  const reset = button("reset", "Reset"), restore = button("restore", "Restore");
  const status = element("div", { className: "tv-status" });
  const last = element("div", { className: "tv-last" });
  const note = element("div", { className: "tv-note" });
  const error = element("div", { className: "tv-error", role: "alert" });
  root.append(element("div", { className: "tv-player" }, [
    element("div", { className: "tv-row" }, [picker, recipe, build]),
    canvas,
    element("div", { className: "tv-row" }, [moves]),
    element("div", { className: "tv-row" }, [scramble, count, seed, undo, reset, restore]),
    status, last, note, error,
  ]));

  let state = null;

  function show(next) {
    state = next;
    const solved = state.solved === null ? "" : state.solved ? " · solved" : " · not solved";
    const seedText = state.seed === null ? "" : ` · scrambled with seed ${state.seed}`;
    status.textContent = `${state.label} · ${state.moves} moves${solved}${seedText}`;
    last.textContent = state.last ? `last moves: ${state.last}` : "";
    note.textContent = state.note || "";
    if (canvas.width !== state.size) {
      canvas.width = canvas.height = state.size;
      root.style.setProperty("--tv-size", `${state.size}px`);
    }
    if (state.moving) pullFrames();
  }

  // Runs one call after the calls before it, so that the puzzle sees events in their order; a
  // refused one shows the library's message and leaves the state as it was.
  let queue = Promise.resolve();
  function run(command, args = {}) {
    const result = queue.then(async () => {
      try {
        show(await transport.call(command, args));
        // An error stays up while the pointer moves; the next deliberate action clears it.
        if (!QUIET.includes(command)) error.textContent = "";
        return true;
      } catch (failure) {
        error.textContent = failure.message;
        return false;
      }
    });
    queue = result;
    return result;
  }

  // Pulls frames while the puzzle animates or the camera coasts, one request at a time.
  let pulling = false, again = false, frames = 0;
  async function pullFrames() {
    again = true;
    if (pulling) return;
    pulling = true;
    try {
      let lastFrame = performance.now() - 16;
      while (again) {
        again = false;
        const now = performance.now();
        const { state: next, image } = await transport.frame(Math.min(now - lastFrame, 100));
        lastFrame = now;
        frames += 1;
        context.clearRect(0, 0, canvas.width, canvas.height);
        if (image instanceof ImageData) context.putImageData(image, 0, 0);
        else context.drawImage(image, 0, 0, canvas.width, canvas.height);
        show(next);
        if (again) await new Promise(requestAnimationFrame);
      }
    } catch (failure) {
      error.textContent = failure.message;
    } finally {
      pulling = false;
    }
  }

  // Pointer events, in coordinates from -1 to 1 over the canvas with y up. Moves are sent one
  // at a time; while one is on its way only the latest position waits.
  const place = (event) => {
    const box = canvas.getBoundingClientRect();
    return { x: ((event.clientX - box.left) / box.width) * 2 - 1, y: 1 - ((event.clientY - box.top) / box.height) * 2 };
  };
  let moveBusy = false, moveWaiting = null;
  async function sendMove(point) {
    if (moveBusy) { moveWaiting = point; return; }
    moveBusy = true;
    await run("pointer", { kind: "move", ...point });
    moveBusy = false;
    if (moveWaiting) { const next = moveWaiting; moveWaiting = null; sendMove(next); }
  }
  let pressed = false;
  canvas.addEventListener("pointerdown", (event) => {
    canvas.setPointerCapture(event.pointerId);
    pressed = true;
    canvas.style.cursor = "grabbing";
    run("pointer", { kind: "down", ...place(event) });
  });
  canvas.addEventListener("pointermove", (event) => sendMove(place(event)));
  const release = (event) => {
    if (!pressed) return;
    pressed = false;
    canvas.style.cursor = "";
    moveWaiting = null;
    run("pointer", { kind: "up", ...place(event) });
  };
  canvas.addEventListener("pointerup", release);
  canvas.addEventListener("pointercancel", release);
  canvas.addEventListener("pointerleave", () => { if (!pressed) run("pointer", { kind: "leave", x: 0, y: 0 }); });
  canvas.addEventListener("wheel", (event) => {
    event.preventDefault();
    const scale = event.deltaMode === 1 ? 16 : event.deltaMode === 2 ? 400 : 1;
    run("wheel", { delta: event.deltaY * scale });
  }, { passive: false });

  moves.addEventListener("keydown", async (event) => {
    if (event.key === "Enter" && await run("apply", { moves: moves.value })) moves.value = "";
    if (event.key === "Escape") moves.value = "";
  });
  scramble.addEventListener("click", () => {
    const args = { count: Number(count.value) };
    if (seed.value.trim() !== "") args.seed = Number(seed.value);
    run("scramble", args);
  });
  undo.addEventListener("click", () => run("undo"));
  reset.addEventListener("click", () => run("reset"));
  restore.addEventListener("click", () => run("restore"));
  const load = async (text) => {
    if (await run("load", { recipe: text })) picker.value = catalog.includes(text) ? text : "";
  };
  picker.addEventListener("change", () => { if (picker.value) load(picker.value); });
  build.addEventListener("click", () => load(recipe.value));
  recipe.addEventListener("keydown", (event) => { if (event.key === "Enter") load(recipe.value); });

  const { catalog, state: first } = await transport.start();
  picker.append(element("option", { value: "", textContent: "catalog…" }));
  for (const name of catalog) picker.append(element("option", { value: name, textContent: name }));
  if (catalog.includes(first.label)) picker.value = first.label;
  show(first);
  pullFrames();
  return { run, pullFrames, get state() { return state; }, get frames() { return frames; } };
}

async function failureOf(response) {
  let message = `${response.status} ${response.statusText}`;
  try { message = (await response.json()).error || message; } catch (_) { /* not JSON */ }
  return new Error(message);
}

// The transport of `python -m torvane view`: JSON commands and frames over HTTP.
export function httpTransport(base = "", format = "rgba") {
  let session = null;
  return {
    async start() {
      const response = await fetch(`${base}api/session`, { method: "POST", body: "{}" });
      if (!response.ok) throw await failureOf(response);
      const answer = await response.json();
      session = answer.session;
      return answer;
    },
    async call(command, args) {
      const response = await fetch(`${base}api/${session}/${command}`, { method: "POST", body: JSON.stringify(args) });
      if (!response.ok) throw await failureOf(response);
      return response.json();
    },
    async frame(dt) {
      const response = await fetch(`${base}api/${session}/frame?dt=${dt.toFixed(1)}&format=${format}`);
      if (!response.ok) throw await failureOf(response);
      const state = JSON.parse(response.headers.get("X-Torvane-State"));
      const image = format === "png"
        ? await createImageBitmap(await response.blob())
        : new ImageData(new Uint8ClampedArray(await response.arrayBuffer()), state.size, state.size);
      return { state, image };
    },
  };
}

// The transport of the notebook widget: the same calls as messages to its Python half, which
// answers each with {id, state} or {id, error}, a frame's pixels in the message's buffer.
export function widgetTransport(model) {
  let next = 0;
  const waiting = new Map();
  model.on("msg:custom", (message, buffers) => {
    const entry = waiting.get(message.id);
    if (!entry) return;
    waiting.delete(message.id);
    if (message.error !== undefined) entry.reject(new Error(message.error));
    else entry.resolve({ ...message, buffers });
  });
  const send = (command, args = {}) => new Promise((resolve, reject) => {
    const id = next++;
    waiting.set(id, { resolve, reject });
    model.send({ id, command, args });
  });
  return {
    start: () => send("start"),
    call: async (command, args) => (await send(command, args)).state,
    async frame(dt) {
      const { state, buffers } = await send("frame", { dt });
      const image = await createImageBitmap(new Blob([buffers[0]], { type: "image/png" }));
      return { state, image };
    },
  };
}

export default {
  async render({ model, el }) {
    const player = await mount(el, widgetTransport(model));
    // Changes made from Python show up at the next look: ask now and then while idle.
    const timer = setInterval(() => { if (!player.state || !player.state.moving) player.run("hello"); }, 500);
    return () => clearInterval(timer);
  },
};

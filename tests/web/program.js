/** The real program, started as a user starts it, and a connection to it that can be cut and listened to. */
import { execFile, spawn } from "node:child_process";
import { once } from "node:events";
import { mkdtemp, readFile, rm, writeFile } from "node:fs/promises";
import { createServer, request as createRequest } from "node:http";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { fileURLToPath } from "node:url";
import { promisify } from "node:util";

const ROOT = fileURLToPath(new URL("../..", import.meta.url));
export const PROGRAMS = process.env.VELMOR_PROGRAMS ?? join(ROOT, "build/release/bin");
const DEMO = join(ROOT, "simulator/demo");
const START_MS = 60000;
const STOP_MS = 30000;

/** For programs built with sanitizers; leaks are told apart by their whole call stacks. */
const SANITIZERS = {
  ASAN_OPTIONS: "fast_unwind_on_malloc=0",
  LSAN_OPTIONS: `suppressions=${join(ROOT, "tests/demo/leaks.supp")}:print_suppressions=0`,
};

const { parameters: installed, ...description } = JSON.parse(await readFile(join(DEMO, "demo.settings.json")));

/** What a camera is, and nothing that an installer has set. */
export const demoCamera = () => ({ source: join(DEMO, "demo.mp4"), loop: true, ...description });

/** The demo's settings: what an installer of that room would set. */
export const demoParameters = () => installed;

const environment = { ...process.env, ...SANITIZERS, VELMOR_SOURCE_DIR: ROOT };

/** Waits for a condition, as long as it takes. */
export async function until(condition) {
  while (!(await condition())) await new Promise((resolve) => setTimeout(resolve, 100));
}

/** A new folder with a camera's description, for the program's state. */
export async function makeFolder(camera) {
  const folder = await mkdtemp(join(tmpdir(), "velmor-page-"));
  await writeFile(join(folder, "camera.json"), JSON.stringify(camera));
  return folder;
}

const stateIn = (folder) => join(folder, "state");
/** Where its program keeps the alarms. */
export const alarmJournal = (folder) => join(stateIn(folder), "alarms.jsonl");

/** Runs a command that comes to its end, such as `tls`, for a folder's program. */
export const runFor = (folder, command) =>
  promisify(execFile)(join(PROGRAMS, "velmor_run"), [command, "--state", stateIn(folder)], { env: environment });

/**
 * Starts the program in its folder and waits until its page has an address.
 * @param {boolean} terminal it has one of its own, and what it shows there is part of its output
 */
export async function startIn(folder, listen, terminal = false) {
  const words = ["--source", join(folder, "camera.json"), "--state", stateIn(folder), "--listen", listen];
  const command = [join(PROGRAMS, "velmor_run"), ...words];
  const [file, ...rest] = terminal
    ? ["script", "-qec", `exec ${command.map((word) => `'${word}'`).join(" ")}`, "/dev/null"]
    : command;
  const child = spawn(file, rest, { env: environment, stdio: ["ignore", "pipe", "pipe"] });
  const program = new RunningProgram(child, folder, terminal);
  try {
    await program.started();
  } catch (error) {
    await program.stop().catch(() => {});
    throw error;
  }
  return program;
}

/** Starts the program on a camera's description and waits until its page has an address. */
export const startProgram = async (camera) => startIn(await makeFolder(camera), "127.0.0.1:0");

const childOf = async (id) => Number((await readFile(`/proc/${id}/task/${id}/children`, "utf8")).trim().split(" ")[0]);

class RunningProgram {
  constructor(child, folder, terminal) {
    Object.assign(this, { child, folder, terminal, state: stateIn(folder), output: "", page: null, stopping: false });
    for (const stream of [child.stdout, child.stderr]) stream.on("data", (chunk) => (this.output += chunk));
    this.ended = once(child, "close").then(([code, signal]) => {
      if (!this.stopping) console.error(`the program ended by itself with ${code ?? signal}:\n${this.output}`);
      return { code, signal };
    });
  }

  /** Waits for the page's address. */
  async started() {
    const late = setTimeout(() => this.child.kill("SIGKILL"), START_MS).unref();
    while (!this.page) {
      const end = await Promise.race([once(this.child.stdout, "data"), this.ended]);
      if ("code" in end) throw new Error(`no address of a page:\n${this.output}`);
      const address = /^Page: (https?:\S+)/m.exec(this.output)?.[1];
      if (address) this.page = new URL(address);
    }
    clearTimeout(late);
  }

  /** The address of the program's own handler. */
  get handler() {
    return new URL("/local/velmor_care/control.cgi", this.page);
  }

  /** The answer to a request to the program's handler, as a well-behaved client sends it. */
  async ask(action, parameters = "") {
    const url = `${this.handler}?action=${action}${parameters && `&${parameters}`}`;
    const answer = await fetch(url, { headers: { "X-Requested-With": "test" } });
    if (!answer.ok) throw new Error(`${action}: ${answer.status} ${await answer.text()}`);
    return answer.text();
  }

  /** The file in which the program keeps its settings. */
  stored() {
    return readFile(join(this.state, "parameters.conf"), "utf8");
  }

  /** The process that the launcher watches over. */
  async process() {
    return childOf(this.terminal ? await childOf(this.child.pid) : this.child.pid);
  }

  async signal(name) {
    process.kill(await this.process(), name);
  }

  /** Ends it at once, wherever it is; its state stays. */
  async kill() {
    this.stopping = true;
    await this.signal("SIGKILL");
    await this.ended;
  }

  /** Ends the program in order; throws when it does not end, or not well. */
  async stop() {
    this.stopping = true;
    this.child.kill("SIGTERM");
    const timer = setTimeout(() => this.child.kill("SIGKILL"), STOP_MS);
    const { code, signal } = await this.ended;
    clearTimeout(timer);
    await rm(this.folder, { recursive: true, force: true });
    if (code !== 0) throw new Error(`the program ended with ${code ?? signal}:\n${this.output}`);
  }
}

/**
 * A port in front of the program that passes requests on, until the connection is cut. `intercept(request, response)`
 * returns true for a request that it answers itself, or leaves without an answer.
 */
export class Gateway {
  constructor(target) {
    this.target = target;
    this.sockets = new Set();
    this.feeds = new Set();
    this.streams = new Set();
    this.intercept = () => false;
    this.server = createServer((request, response) => {
      if (!this.intercept(request, response)) this.passOn(request, response);
    });
    this.server.on("connection", (socket) => {
      this.sockets.add(socket);
      socket.on("close", () => this.sockets.delete(socket));
    });
  }

  passOn(request, response) {
    const { url: path, method, headers } = request;
    const onward = createRequest({ host: "127.0.0.1", port: this.target, path, method, headers }, (answer) => {
      response.writeHead(answer.statusCode, answer.headers);
      response.flushHeaders();
      answer.pipe(response);
    });
    onward.on("error", () => response.destroy());
    response.on("error", () => {});
    response.on("close", () => onward.destroy());
    request.pipe(onward);
    if (path.startsWith("/platform/events")) this.keep(this.feeds, response);
    if (path.startsWith("/axis-cgi/mjpg")) this.keep(this.streams, response);
  }

  keep(set, response) {
    set.add(response);
    response.on("close", () => set.delete(response));
  }

  /** Says something on every open feed of events, as the program would. */
  tell(type, data) {
    for (const feed of this.feeds) feed.write(`event: ${type}\ndata: ${JSON.stringify(data)}\n\n`);
  }

  /** @returns {Promise<number>} the port to connect to, the same each time */
  async plug() {
    this.server.listen(this.port ?? 0, "127.0.0.1");
    await once(this.server, "listening");
    this.port = this.server.address().port;
    return this.port;
  }

  cut() {
    const closed = new Promise((resolve) => this.server.close(resolve));
    this.sockets.forEach((socket) => socket.destroy());
    return closed;
  }
}

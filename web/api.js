/** The page's way to the program (control.cgi) and to the camera (streams, events, appearance). */
import { differences, encodeSettings, parseSettings } from "./wire.js";

const TIMEOUT_MS = 5000;
const POLL_MS = 1000;
const FAILURES_UNTIL_LOST = 2;
const RETRY_MS = 5000;
const HISTORY_MS = 12 * 3600 * 1000;
const HISTORY_LENGTH = 2000;
const EVENTS_URL = "/platform/events";
const EVENT_OF_CODE = { 502: "Patient Out of Bed", 503: "Fall Detected" };

/** The answer to a request as text. Every reason why there is none becomes a sentence. */
async function fetchText(url) {
  let answer;
  try {
    const signal = AbortSignal.timeout(TIMEOUT_MS);
    answer = await fetch(url, { headers: { "X-Requested-With": "velmor_care" }, cache: "no-store", signal });
    if (answer.ok) return await answer.text();
  } catch (error) {
    const slow = error.name === "TimeoutError" || error.name === "AbortError";
    const words = slow ? `has not answered within ${TIMEOUT_MS / 1000} seconds` : "does not answer";
    throw new Error(`The camera ${words}.`, { cause: error });
  }
  const reason = answer.statusText ? ` (${answer.statusText})` : "";
  throw Object.assign(new Error(`The camera refused the request: ${answer.status}${reason}.`), {
    status: answer.status,
  });
}

/** The actions of the program. Requests wait for each other, since the program answers one at a time. */
export class Control {
  /** @param {string} base address of the program's handler */
  constructor(base = "control.cgi") {
    this.base = base;
    this.last = Promise.resolve();
  }

  request(action, parameters = "") {
    const url = `${this.base}?action=${action}${parameters && `&${parameters}`}`;
    const answer = this.last.then(() => fetchText(url));
    this.last = answer.catch(() => {});
    return answer;
  }

  async number(action) {
    const text = await this.request(action);
    if (!/^\d+$/.test(text.trim())) throw new Error(`The camera's answer to ${action} is no number.`);
    return Number(text);
  }

  /** @returns {Promise<number>} */
  statusCode() {
    return this.number("get_status_code");
  }

  /** @returns {Promise<string>} the program's words for its status code */
  statusText() {
    return this.request("get_status_string");
  }

  /** @returns {Promise<number>} milliseconds that the last cycle took */
  executionTime() {
    return this.number("get_execution_time");
  }

  /** @returns {Promise<boolean>} true when the analysis picture is upright */
  async isPortrait() {
    return (await this.number("get_is_portrait")) === 1;
  }

  /** @returns {Promise<import("./wire.js").Settings>} */
  async settings(size) {
    return parseSettings(await this.request("get_all_parameters"), size);
  }

  /** Sends all settings; that they were taken is known only by reading them back. */
  async save(settings, size) {
    await this.request("set_all_parameters", encodeSettings(settings, size));
  }

  async toggleDeveloperMode() {
    await this.request("toggle_dev_mode");
  }
}

/**
 * Saves and reads back. The status is no judge: the next cycle overwrites it.
 * @returns {Promise<{saved: boolean, differences: object[], error: ?string}>} error: why it is not known what the
 *   program holds, or why it was not saved
 */
export async function saveAndCheck(control, settings, size) {
  let refusal = null;
  try {
    await control.save(settings, size);
  } catch (error) {
    refusal = error.message;
  }
  try {
    const found = differences(settings, await control.settings(size), size);
    return { saved: found.length === 0, differences: found, error: found.length === 0 ? null : refusal };
  } catch (error) {
    return { saved: false, differences: [], error: refusal ?? error.message };
  }
}

/**
 * The connection to the program: asks for its state each second. Events, all with the state as detail {code, text,
 * executionTime, connected}: "status" with each answer and while there is none, "lost" after two failures in a row, "back" with
 * the first answer after that.
 */
export class Program extends EventTarget {
  constructor(control) {
    super();
    this.control = control;
    this.failures = 0;
    this.status = { code: null, text: null, executionTime: null, connected: false };
    this.timer = null;
  }

  start() {
    this.timer ??= setTimeout(() => this.poll(), 0);
  }

  stop() {
    clearTimeout(this.timer);
    this.timer = null;
  }

  async poll() {
    const timer = this.timer;
    try {
      this.succeeded(await this.ask());
    } catch {
      this.failed();
    }
    if (this.timer === timer) this.timer = setTimeout(() => this.poll(), POLL_MS);
  }

  async ask() {
    const code = await this.control.statusCode();
    // The code alone says most, and each request may wait for the end of a cycle.
    if (this.status.code === null) this.succeeded({ ...this.status, code, connected: true });
    const executionTime = await this.control.executionTime();
    const known = code === this.status.code ? this.status.text : null;
    const text = known ?? (await this.control.statusText());
    return { code, text, executionTime, connected: true };
  }

  succeeded(status) {
    const back = this.failures >= FAILURES_UNTIL_LOST;
    this.failures = 0;
    this.status = status;
    this.tell("status");
    if (back) this.tell("back");
  }

  failed() {
    this.failures += 1;
    if (this.failures < FAILURES_UNTIL_LOST) return;
    this.status = { ...this.status, connected: false };
    this.tell("status");
    if (this.failures === FAILURES_UNTIL_LOST) this.tell("lost");
  }

  tell(type) {
    this.dispatchEvent(new CustomEvent(type, { detail: this.status }));
  }
}

/**
 * The two events. "state" when they are known (again) as a whole, "change" after each change, both with detail {events,
 * history, limited, offset}: events [{name, active, since}], history the last hours' changes [{name, active, time}],
 * oldest first; offset the camera's clock minus ours in milliseconds. A camera without a feed of its own tells them
 * through the program's status only, `limited`: 502 hides 503, 600 hides both.
 */
export class EventFeed extends EventTarget {
  /** @param {Program} program whose "lost" and "back" close and open the feed */
  constructor(program) {
    super();
    this.program = program;
    this.detail = { events: [], history: [], limited: false, offset: 0 };
    this.source = null;
    this.timer = null;
    this.seq = -1;
  }

  start() {
    this.program.addEventListener("status", ({ detail }) => this.detail.limited && this.takeStatus(detail));
    this.program.addEventListener("lost", () => this.close());
    this.program.addEventListener("back", () => this.open());
    this.open();
  }

  open() {
    this.close();
    const source = new EventSource(EVENTS_URL);
    this.source = source;
    source.addEventListener("state", ({ data }) => this.guarded(() => this.takeState(JSON.parse(data))));
    source.addEventListener("change", ({ data }) => this.guarded(() => this.takeChange(JSON.parse(data))));
    source.addEventListener("error", () => {
      if (this.source !== source) return;
      this.doubt();
      if (source.readyState === EventSource.CLOSED) this.refused();
    });
  }

  close() {
    clearTimeout(this.timer);
    this.source?.close();
    this.source = null;
  }

  /** An event that makes no sense is an error of the connection: it begins anew. */
  guarded(take) {
    try {
      take();
    } catch {
      this.retry();
    }
  }

  retry() {
    this.close();
    this.timer = setTimeout(() => this.open(), RETRY_MS);
  }

  /** What the feed said may be old: until it is back, the status tells what it can. */
  doubt() {
    this.publish("change", { ...this.detail, limited: true });
    this.takeStatus(this.program.status);
  }

  /** A browser does not tell why an address was refused, so ask again in a way that does. */
  async refused() {
    this.retry();
    const status = await fetchText(EVENTS_URL).catch((error) => error.status);
    if (status === 404) this.close();
  }

  takeState({ time, seq, events, history }) {
    this.seq = seq;
    this.publish("state", { events, history, limited: false, offset: Date.parse(time) - Date.now() });
  }

  takeChange({ seq, name, active, time }) {
    if (seq <= this.seq) return;
    this.seq = seq;
    this.change(name, active, time);
  }

  change(name, active, time) {
    const oldest = Date.parse(time) - HISTORY_MS;
    const kept = this.detail.history.filter((entry) => Date.parse(entry.time) >= oldest).slice(1 - HISTORY_LENGTH);
    const others = this.detail.events.map((event) =>
      event.name === name ? { ...event, active, since: active ? time : null } : event,
    );
    this.publish("change", { ...this.detail, events: others, history: [...kept, { name, active, time }] });
  }

  takeStatus({ code, connected }) {
    if (!connected) return;
    if (!this.detail.events.length) {
      const events = Object.values(EVENT_OF_CODE).map((name) => ({ name, active: false, since: null }));
      this.publish("state", { ...this.detail, events, history: [] });
    }
    const time = new Date().toISOString();
    for (const { name, active } of this.detail.events) {
      const told = activeByStatus(name, code);
      if (told !== null && told !== active) this.change(name, told, time);
    }
  }

  publish(type, detail) {
    this.detail = detail;
    this.dispatchEvent(new CustomEvent(type, { detail }));
  }
}

/** Whether a status code says that an event is active: true, false, or null when it hides that. */
function activeByStatus(name, code) {
  if (EVENT_OF_CODE[code] === name) return true;
  return code === 200 || code === 503 ? false : null;
}

let requests = 0;
const unique = () => `${Date.now().toString(36)}${(requests++).toString(36)}`;

/**
 * Address of the live stream (MJPEG) of a size such as "1280x720"; another one each time, so that nothing is cached.
 * Asked for as anonymised, it is refused once another choice has been saved.
 */
export const streamUrl = (size, anonymised = false) =>
  `/axis-cgi/mjpg/video.cgi?resolution=${encodeURIComponent(size)}${anonymised ? "&anonymised=1" : ""}&_=${unique()}`;

/** Address of one picture (JPEG) of a stream; another one each time. */
export const snapshotUrl = (size) => `/axis-cgi/jpg/image.cgi?resolution=${encodeURIComponent(size)}&_=${unique()}`;

/**
 * How the camera turns its streams. One that does not tell counts as upright and not mirrored.
 * @returns {Promise<{rotation: number, mirrored: boolean}>} rotation in degrees clockwise
 */
export async function cameraAppearance() {
  const group = "root.Image.I0.Appearance";
  let text = "";
  try {
    text = await fetchText(`/axis-cgi/param.cgi?action=list&group=${group}`);
  } catch (error) {
    if (error.status === undefined) throw error;
  }
  const values = new Map(text.split(/\r?\n/).map((line) => line.split("=", 2)));
  return {
    rotation: Number(values.get(`${group}.Rotation`) ?? 0) || 0,
    mirrored: values.get(`${group}.MirrorEnabled`)?.trim() === "yes",
  };
}

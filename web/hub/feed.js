import { REFUSAL } from "../base/facts.js";
import { fetchText } from "../program/api.js";

const EVENTS_URL = "/platform/events";
const RETRY_MS = 5000;
/** A feed that does not open, or falls silent, is opened anew after so long: a cut line may tell nothing. */
const SILENCE_MS = 10000;
const HISTORY_MS = 12 * 3600 * 1000;
const HISTORY_LENGTH = 2000;

/**
 * The camera's feed of events.
 *
 * state: "opening" before the first message, then "open", "lost" while it is away, "absent" on a camera without one.
 * events: [{name, active, since, run, seq}] as last known; active null: not known; run and seq: of the change that the feed
 * told, if it did. history: the last hours' changes [{name, active, time, closed_at_start, run, seq}], watching: when the
 * program began and ceased to watch [{active, time, why}], null where the camera does not tell; both oldest first. heartbeat: the newest, null until there is one, and `beatAt` when it arrived. offset:
 * the camera's clock minus ours in milliseconds.
 */
export class EventFeed {
  /**
   * @param {{news: () => void, past: () => void}} listener what has changed: the past is history and watching
   * @param {() => number} now milliseconds that never jump
   */
  constructor(listener, now) {
    Object.assign(this, { listener, now, state: "opening", events: [], history: [], watching: null, offset: 0 });
    Object.assign(this, { heartbeat: null, beatAt: null, source: null, timer: null, openedAt: null });
    Object.assign(this, { run: undefined, seq: -1, doubted: false });
  }

  open() {
    this.close();
    const source = new EventSource(EVENTS_URL);
    this.source = source;
    this.openedAt = this.now();
    const on = (type, take) =>
      source.addEventListener(type, ({ data }) => this.source === source && this.guarded(() => take(JSON.parse(data))));
    on("state", (state) => this.takeState(state));
    on("change", (change) => this.ofThisRun(change) && this.takeChange(change));
    on("watching", (change) => this.ofThisRun(change) && this.takeWatching(change));
    on("heartbeat", (beat) => this.ofThisRun(beat) && this.takeHeartbeat(beat));
    source.addEventListener("error", () => this.source === source && this.failed());
  }

  close() {
    clearTimeout(this.timer);
    this.source?.close();
    this.source = null;
  }

  /** Once a second: notices a feed that has fallen silent. */
  tick() {
    const heard = Math.max(this.openedAt, this.beatAt);
    if (!this.source || (this.state === "open" && !this.heartbeat) || this.now() - heard <= SILENCE_MS) return;
    this.lost();
    this.open();
  }

  /** A message that makes no sense is an error of the connection: it begins anew. */
  guarded(take) {
    try {
      take();
    } catch {
      this.lost();
      this.retry();
    }
  }

  /** Numbers and events belong to one run of the program; what another run says needs its state first. */
  ofThisRun({ run }) {
    if (this.seq < 0) return false;
    if (run === this.run || run === undefined) return true;
    this.lost();
    this.open();
    return false;
  }

  retry() {
    this.close();
    this.timer = setTimeout(() => this.open(), RETRY_MS);
  }

  lost() {
    this.state = "lost";
    this.listener.news();
  }

  /** A browser opens a feed again by itself, unless it was refused; it does not tell why, so that is asked for. */
  async failed() {
    this.state = "lost";
    this.listener.news();
    if (this.source.readyState !== EventSource.CLOSED) return;
    this.retry();
    const status = await fetchText(EVENTS_URL).catch((error) => error.status);
    if (status !== REFUSAL.absent || this.source) return;
    this.close();
    this.state = "absent";
    this.listener.news();
  }

  takeState({ time, run, seq, events, history, watching }) {
    if (![events, history].every(Array.isArray)) throw new Error("no state");
    const ofRun = events.map((event) => ({ ...event, run }));
    Object.assign(this, {
      run,
      seq,
      events: ofRun,
      history,
      watching: watching ?? null,
      state: "open",
      doubted: false,
    });
    this.offset = Date.parse(time) - Date.now();
    this.listener.past();
    this.listener.news();
  }

  takeChange(change) {
    if (change.seq <= this.seq) return;
    this.seq = change.seq;
    this.change(change);
  }

  takeWatching({ active, time, why }) {
    const last = this.watching?.at(-1);
    if (last?.time === time && last.active === active && last.why === why) return;
    this.watching = [...(this.watching ?? []), { active, time, ...(why && { why }) }];
    this.listener.past();
  }

  takeHeartbeat(heartbeat) {
    this.heartbeat = heartbeat;
    this.beatAt = this.now();
    this.offset = Date.parse(heartbeat.time) - Date.now();
    if (this.doubted) this.open();
    this.listener.news();
  }

  /** An event begins or ends, whoever says so. */
  change({ name, active, time, closed_at_start, run, seq }) {
    const oldest = Date.parse(time) - HISTORY_MS;
    const kept = this.history.filter((entry) => Date.parse(entry.time) >= oldest).slice(1 - HISTORY_LENGTH);
    this.history = [...kept, { name, active, time, run, seq, ...(closed_at_start && { closed_at_start }) }];
    this.set({ name, active, since: active ? time : null, run, seq });
    this.listener.past();
    this.listener.news();
  }

  /** What is known of an event now; active null: nothing. The feed's own word is asked for once it is back. */
  doubt(name, active, since) {
    this.doubted = true;
    this.set({ name, active, since });
  }

  set(known) {
    const others = this.events.filter(({ name }) => name !== known.name);
    this.events = [...others, known];
  }
}

import { KIND, REFUSAL } from "../base/facts.js";
import { fetchText } from "../program/api.js";

const FEED_URL = "/platform/alarms/feed";
const RETRY_MS = 3000;
/** A feed that does not open, or falls silent, is opened anew after so long: it speaks each five seconds. */
const SILENCE_MS = 12000;
/** For so long an event may be active before its alarm is known; then the page calls by itself. */
const GRACE_MS = 3000;

const isOpen = ({ state }) => state !== "closed";

/**
 * The alarms and who answers them.
 *
 * state: as the feed of events'; alarms: as the camera tells them, the newest first, and pause; receivers: whether they
 * are reached. Of an event for which there is no alarm, since the camera has none, its word is away or comes late, an
 * alarm is made here (`local`), which can only be seen: nothing that is active stays without a call. An alarm that
 * cannot be answered while the camera is away may be `hushed` in this browser, until the camera is back.
 */
export class AlarmFeed {
  /**
   * @param {{told: () => void, tested: (test: object) => void}} listener
   * @param {() => number} now milliseconds that never jump
   */
  constructor(listener, now) {
    Object.assign(this, {
      listener,
      now,
      state: "opening",
      alarms: [],
      pause: null,
      receivers: [],
      source: null,
      timer: null,
    });
    Object.assign(this, { heardAt: now(), local: new Map(), bare: new Map(), hushed: new Map() });
  }

  open() {
    this.close();
    const source = new EventSource(FEED_URL);
    this.source = source;
    this.heardAt = this.now();
    const on = (type, take) =>
      source.addEventListener(type, ({ data }) => this.source === source && this.guarded(() => take(JSON.parse(data))));
    on("alarms", (all) => this.takeAll(all));
    on("alarm", (alarm) => this.take(alarm));
    on("pause", (pause) => this.takePause(pause));
    on("test", (test) => this.listener.tested(test));
    on("receivers", (receivers) => this.takeReceivers(receivers));
    on("heartbeat", () => {});
    source.addEventListener("error", () => this.source === source && this.failed());
  }

  close() {
    clearTimeout(this.timer);
    this.source?.close();
    this.source = null;
  }

  /** A message that makes no sense is an error of the connection: it begins anew. */
  guarded(take) {
    this.heardAt = this.now();
    try {
      take();
    } catch {
      this.lost();
      this.retry();
    }
  }

  lost() {
    if (this.state === "lost") return;
    this.state = "lost";
    this.listener.told();
  }

  retry() {
    this.close();
    this.timer = setTimeout(() => this.open(), RETRY_MS);
  }

  async failed() {
    this.lost();
    if (this.source.readyState !== EventSource.CLOSED) return;
    this.retry();
    const status = await fetchText(FEED_URL).catch((error) => error.status);
    if (status !== REFUSAL.absent || this.source) return;
    this.close();
    this.state = "absent";
    this.listener.told();
  }

  takeAll({ alarms, pause, called }) {
    if (!Array.isArray(alarms)) throw new Error("no alarms");
    Object.assign(this, { alarms, pause: pause ?? null, receivers: called?.receivers ?? [], state: "open" });
    this.hushed.clear();
    alarms.forEach((alarm) => this.giveWay(alarm));
    this.listener.told();
  }

  /** One alarm as it is now, by the feed or as the answer to a request. */
  take(alarm) {
    const others = this.alarms.filter(({ id }) => id !== alarm.id);
    this.alarms = [alarm, ...others].sort((a, b) => Date.parse(b.began) - Date.parse(a.began));
    this.giveWay(alarm);
    this.listener.told();
  }

  /** What was made here goes when the camera tells it after all, though it may be over by then. */
  giveWay(alarm) {
    for (const [id, { event, run, seq, began }] of this.local) {
      const isSame = seq === undefined ? began === alarm.began : run === alarm.run && seq === alarm.seq;
      if (event === alarm.event && isSame) this.local.delete(id);
    }
  }

  takePause(pause) {
    this.pause = pause?.until ? pause : null;
    this.listener.told();
  }

  takeReceivers(receivers) {
    if (!Array.isArray(receivers)) throw new Error("no receivers");
    this.receivers = receivers;
    this.listener.told();
  }

  /** Of the alarms made here: somebody has seen it. */
  see(id) {
    const alarm = this.local.get(id);
    if (!alarm) return;
    this.local.set(id, { ...alarm, state: "closed" });
    this.listener.told();
  }

  /** One alarm of the camera's is quiet here: only while its word is away, and for what is known now. */
  hush(id) {
    if (this.state !== "lost" || !this.alarms.some((alarm) => alarm.id === id)) return;
    this.hushed.set(id, { over: false });
    this.listener.told();
  }

  /** Whatever begins anew is heard, also where an alarm that was hushed seems to tell it. */
  hearAnew({ name, active }) {
    for (const { id } of this.alarms.filter(({ event }) => event === name)) {
      const hush = this.hushed.get(id);
      if (hush && active === false) hush.over = true;
      if (hush?.over && active === true) this.hushed.delete(id);
    }
  }

  /** Once a second, with the events as they are known: notices a silent feed and events without an alarm. */
  tick(events) {
    if (this.source && this.now() - this.heardAt > SILENCE_MS) {
      this.lost();
      this.open();
    }
    const made = () => JSON.stringify([[...this.local.values()], [...this.hushed.keys()]]);
    const before = made();
    for (const event of events) {
      this.hearAnew(event);
      this.look(event);
    }
    if (made() !== before) this.listener.told();
  }

  /** The status alone may tell an event for a while that is over: it is asked now and then, and waits for cycles. */
  isCovered({ name, run, seq, since }) {
    const isLate = ({ ended }) => Date.parse(since) <= Date.parse(ended) + GRACE_MS;
    return this.alarms.some((alarm) => {
      if (alarm.event !== name) return false;
      if (seq !== undefined) return alarm.run === run && alarm.seq === seq;
      return alarm.ended === null || (isOpen(alarm) && isLate(alarm));
    });
  }

  look(event) {
    const { name, active, since, run, seq } = event;
    const made = [...this.local.values()].filter((alarm) => alarm.event === name);
    if (active !== true || this.isCovered(event)) {
      this.bare.delete(name);
      if (active === true) made.forEach(({ id }) => this.local.delete(id));
      else if (active === false) made.forEach((alarm) => this.end(alarm));
      return;
    }
    if (!this.bare.has(name)) this.bare.set(name, this.now());
    const waits = this.state === "open" || this.state === "opening";
    if (waits && this.now() - this.bare.get(name) < GRACE_MS) return;
    if (made.some((alarm) => alarm.ended === null)) return;
    const began = since ?? new Date().toISOString();
    const id = `local ${name} ${began}`;
    const fresh = { id, local: true, event: name, kind: KIND[name], run, seq, began, ended: null };
    this.local.set(id, { ...fresh, state: "calling", level: 1, answers: [], next: null });
  }

  /** What ended stays until somebody has seen it. */
  end(alarm) {
    if (!isOpen(alarm)) this.local.delete(alarm.id);
    else if (alarm.ended === null) this.local.set(alarm.id, { ...alarm, ended: new Date().toISOString() });
  }

  /** All that is known, for the tabs. */
  told() {
    const local = [...this.local.values()].filter(isOpen);
    const known = this.alarms.map((alarm) => (this.hushed.has(alarm.id) ? { ...alarm, hushed: true } : alarm));
    return { state: this.state, alarms: [...local, ...known], pause: this.pause, receivers: this.receivers };
  }
}

/**
 * What all tabs of one browser share: one feed of events, one poll of the status, one stream for each picture looked at,
 * and requests one after the other. A browser opens six connections to a camera, whatever the number of its tabs.
 *
 * Messages to a tab:
 *   hello     the hub knows the tab (again) and that it wants no pictures yet
 *   news      once a second and after each change, see newsOf()
 *   past      {history, watching} of the feed, when it has changed; a change has `because` once that is known
 *   scene     {time, people, beds}: what is seen now in sentences, to a tab that looks at it
 *   settings  {document, portrait, error}: as last read, when they have changed or after "refresh"; error: why they could
 *             not be read, or null
 *   answer    {id, text} or {id, error, status} to what was asked
 *   picture   {id, picture: Blob}; the next one comes after "took"
 *   failed    {id, status}: no picture comes; status of a refusal, or null
 *   calls     {state, alarms, pause}: see AlarmFeed; when they have changed
 *   tested    {…}: somebody tries the call
 *   voice     {on}: whether this tab is the one that sounds and notifies for all of them
 *   signed-out  the camera no longer knows who asks, or lets them do less
 * Messages from a tab: here {sounds, visible} (answers news; whether it can make a sound), bye, ask {id, url},
 * watch {id, size, anonymised, covered}, leave {id}, took {id}, look {on} (at what is seen now), refresh (reads the
 * settings), alarm {alarm} (an answer to a request), see {id} (an alarm made here), hush {id} (while the camera is away).
 */
import { BED, CODE, EVENT_NAMES, FALL, FRESH_MS, REFUSAL, mayAs } from "../base/facts.js";
import { Control, PROGRAM_URL, fetchText, isSave, oneByOne } from "../program/api.js";
import { AlarmFeed } from "./alarms.js";
import { Explanation } from "./explanation.js";
import { EventFeed } from "./feed.js";
import { StatusPoll } from "./status.js";
import { PictureStream } from "./streams.js";

const TICK_MS = 1000;
/** A tab that has not answered for so long has gone, or is frozen: nothing is fetched for it. */
const ABSENCE_MS = 10000;
const SETTINGS_MS = 10000;
/** A tab that has been silent for so long makes no sound for the others. */
const VOICE_MS = 3000;
const CODE_OF_EVENT = { [BED]: CODE.outOfBed, [FALL]: CODE.fall };

/** Whether a status code says that an event is active: true, false, or null when it hides that. */
function activeByStatus(name, code) {
  if (CODE_OF_EVENT[name] === code) return true;
  return code === CODE.watching || code === CODE.fall ? false : null;
}

export class Hub {
  /**
   * @param {() => number} now milliseconds that never jump
   * @param {string} role of who asks: the settings are not for everybody
   */
  constructor(now = () => performance.now(), role = "installer") {
    this.now = now;
    this.beganAt = now();
    this.readsSettings = mayAs(role, "nurse");
    const askOne = oneByOne(fetchText);
    this.ask = (url) => askOne(url).catch((error) => this.refused(error));
    this.calls = new AlarmFeed({ told: () => this.tellCalls(), tested: (test) => this.tellTest(test) }, now);
    this.voice = null;
    this.control = new Control(PROGRAM_URL, this.ask);
    this.feed = new EventFeed({ news: () => this.tellNews(), past: () => this.takePast() }, now);
    this.explanation = new Explanation({ learned: () => this.tellReasons(), scene: () => this.tellScene() }, now);
    this.status = new StatusPoll(this.control, { told: () => this.takeStatus(), back: () => this.connectAgain() }, now);
    /** Since when the status tells an event of which the feed knows nothing. */
    this.toldByStatus = new Map();
    this.heard = -Infinity;
    this.heardTime = null;
    this.settings = { document: null, portrait: null, error: null };
    this.settingsAt = -Infinity;
    this.reading = false;
    this.mustTell = false;
    this.tabs = new Map();
    this.streams = new Map();
  }

  start() {
    this.feed.open();
    this.calls.open();
    setInterval(() => this.tick(), TICK_MS);
  }

  /** Once a second. */
  tick() {
    for (const [port, tab] of this.tabs) if (this.now() - tab.seenAt > ABSENCE_MS) this.forget(port);
    this.feed.tick();
    this.calls.tick(this.events());
    this.giveVoice();
    this.explanation.tick(this.isLookedAt());
    for (const { stream } of this.streams.values()) stream.tick();
    if (this.tabs.size) {
      this.status.poll();
      if (this.now() - this.settingsAt > SETTINGS_MS) this.readSettings();
    }
    this.tellNews();
  }

  connect(port) {
    port.onmessage = ({ data }) => this.take(port, data);
    this.tabOf(port);
    this.tick();
  }

  /** A tab that was away, such as a frozen one, is welcome again. */
  tabOf(port) {
    let tab = this.tabs.get(port);
    if (!tab) {
      tab = { seenAt: this.now(), watched: new Map(), looks: false, sounds: false, visible: false };
      this.tabs.set(port, tab);
      port.postMessage({ type: "hello" });
      port.postMessage({ type: "past", ...this.past() });
      if (this.settingsAt > -Infinity) port.postMessage({ type: "settings", ...this.settings });
      port.postMessage(this.news());
      port.postMessage({ type: "calls", ...this.calls.told() });
    }
    tab.seenAt = this.now();
    return tab;
  }

  take(port, message) {
    if (message.type === "bye") return this.forget(port);
    const tab = this.tabOf(port);
    const watched = tab.watched.get(message.id);
    if (message.type === "ask") this.answer(port, message);
    else if (message.type === "watch") this.watch(port, tab, message);
    else if (message.type === "leave") this.leave(tab, message.id);
    else if (message.type === "took" && watched) this.sendNext(watched);
    else if (message.type === "look") this.look(port, tab, message);
    else if (message.type === "refresh") this.readSettings(true);
    else if (message.type === "here") this.hear(tab, message);
    else if (message.type === "alarm") this.calls.take(message.alarm);
    else if (message.type === "see") this.calls.see(message.id);
    else if (message.type === "hush") this.calls.hush(message.id);
    return undefined;
  }

  forget(port) {
    const tab = this.tabs.get(port);
    this.tabs.delete(port);
    for (const id of tab?.watched.keys() ?? []) this.leave(tab, id);
    this.giveVoice();
  }

  tellAll(message) {
    for (const port of this.tabs.keys()) port.postMessage(message);
  }

  // ---- Requests

  async answer(port, { id, url }) {
    try {
      port.postMessage({ type: "answer", id, text: await this.ask(url) });
    } catch ({ message, status, said }) {
      port.postMessage({ type: "answer", id, error: message, status, said });
    }
    if (isSave(url)) this.readSettings();
  }

  /** Reads the settings once for all tabs, which are told when these have changed, or `always`. */
  async readSettings(always = false) {
    this.mustTell ||= always;
    if (this.reading || !this.readsSettings) return;
    this.reading = true;
    const before = JSON.stringify(this.settings);
    try {
      const portrait = await this.control.isPortrait();
      this.settings = { portrait, document: await this.control.document(), error: null };
    } catch ({ message, said }) {
      this.settings = { ...this.settings, error: message, said };
    }
    const must = this.mustTell || this.settingsAt === -Infinity;
    this.settingsAt = this.now();
    this.reading = false;
    this.mustTell = false;
    if (must || JSON.stringify(this.settings) !== before) this.tellAll({ type: "settings", ...this.settings });
  }

  /** A refusal for those who are not known any more, or may less than they did, concerns every tab. */
  refused(error) {
    if (error.status === REFUSAL.signedOut || error.status === REFUSAL.forbidden) this.tellAll({ type: "signed-out" });
    throw error;
  }

  connectAgain() {
    if (this.feed.state !== "open") this.feed.open();
    for (const { stream } of this.streams.values()) stream.hurry();
    this.readSettings();
  }

  // ---- News

  /** Whether the feed is believed alone. */
  feedIsCurrent() {
    const { state, heartbeat, beatAt } = this.feed;
    return state === "open" && (!heartbeat || this.now() - beatAt <= FRESH_MS);
  }

  takeStatus() {
    const { code, connected } = this.status.status;
    const time = new Date(Date.now() + this.feed.offset).toISOString();
    this.toldByStatus = new Map(
      EVENT_NAMES.filter((name) => connected && activeByStatus(name, code)).map((name) => [
        name,
        this.toldByStatus.get(name) ?? time,
      ]),
    );
    if (connected && !this.feedIsCurrent() && this.feed.state !== "opening") this.followStatus(code, time);
    this.tellNews();
  }

  /** Without the feed the status tells what it can; what it hides stays active, or is no longer known. */
  followStatus(code, time) {
    for (const name of EVENT_NAMES) {
      const told = activeByStatus(name, code);
      const known = this.feed.events.find((event) => event.name === name)?.active ?? null;
      if (told === known || (told === null && known === true)) continue;
      if (known !== null && told !== null) this.feed.change({ name, active: told, time });
      this.feed.doubt(name, told, told ? time : null);
    }
  }

  /** The worse news wins: an event is active when the feed or the status says so. */
  events() {
    const unknown = EVENT_NAMES.map((name) => ({ name, active: null, since: null }));
    return (this.feed.events.length ? this.feed.events : unknown).map((event) => {
      const since = this.toldByStatus.get(event.name);
      return since && !event.active ? { name: event.name, active: true, since } : this.withReason(event);
    });
  }

  /**
   * What is known now. Ages in milliseconds, null for what there never was: statusAge since the status answered, beatAge
   * since the heartbeat arrived, silence since anything came from the program, age since this hub began. heardTime: when that something came, in
   * milliseconds since 1970 by the camera's clock. explains: whether the program tells what is seen now.
   */
  news() {
    const now = this.now();
    const since = (at) => (at === null ? null : now - at);
    const { state, heartbeat, offset, beatAt } = this.feed;
    const heard = Math.max(this.status.answeredAt ?? -Infinity, beatAt ?? -Infinity);
    if (heard !== this.heard) this.heardTime = Date.now() - (now - heard) + offset;
    this.heard = heard;
    return {
      type: "news",
      status: this.status.status,
      statusAge: since(this.status.answeredAt),
      feed: state,
      heartbeat,
      beatAge: since(beatAt),
      silence: heard === -Infinity ? null : now - heard,
      heardTime: heard === -Infinity ? null : this.heardTime,
      age: now - this.beganAt,
      events: this.events(),
      explains: this.explanation.offered,
      offset,
    };
  }

  past() {
    const history = this.feed.history.map((change) => this.withReason(change));
    return { history, watching: this.feed.watching };
  }

  tellNews() {
    this.tellAll(this.news());
  }

  tellPast() {
    this.tellAll({ type: "past", ...this.past() });
  }

  // ---- Reasons

  /** The past is told at once; the reasons of what is new in it are asked for and told later. */
  takePast() {
    this.tellPast();
    if (this.feed.state !== "open") return;
    const { history, events, run } = this.feed;
    const newest = history.slice(-1).filter((change) => change.run === run && !change.closed_at_start);
    this.explanation.want([...events.filter(({ active, seq }) => active && seq !== undefined), ...newest], run);
  }

  withReason(change) {
    const because = this.explanation.because(change);
    return because === undefined ? change : { ...change, because };
  }

  tellReasons() {
    this.tellPast();
    this.tellNews();
  }

  isLookedAt() {
    return this.feedIsCurrent() && [...this.tabs.values()].some(({ looks }) => looks);
  }

  look(port, tab, { on }) {
    tab.looks = on;
    if (on && this.explanation.scene) port.postMessage({ type: "scene", ...this.explanation.scene });
    this.explanation.tick(this.isLookedAt());
  }

  tellScene() {
    for (const [port, { looks }] of this.tabs)
      if (looks) port.postMessage({ type: "scene", ...this.explanation.scene });
  }

  // ---- Calls

  tellCalls() {
    this.tellAll({ type: "calls", ...this.calls.told() });
  }

  tellTest(test) {
    this.tellAll({ type: "tested", ...test });
  }

  hear(tab, { sounds = false, visible = false }) {
    const changed = tab.sounds !== sounds;
    Object.assign(tab, { sounds, visible });
    if (changed) this.giveVoice();
  }

  /** One tab calls for all of them: one that can make a sound before others, then the one that did, then one in sight. */
  giveVoice() {
    const worth = ([port, { sounds, visible }]) => 4 * sounds + 2 * (port === this.voice) + visible;
    const there = [...this.tabs].filter(([, { seenAt }]) => this.now() - seenAt <= VOICE_MS);
    const [port] = there.reduce((best, tab) => (best && worth(best) >= worth(tab) ? best : tab), null) ?? [];
    if (port === this.voice) return;
    if (this.tabs.has(this.voice)) this.voice.postMessage({ type: "voice", on: false });
    this.voice = port;
    port?.postMessage({ type: "voice", on: true });
  }

  // ---- Pictures

  watch(port, tab, { id, size, anonymised, covered }) {
    if (tab.watched.has(id)) return;
    const key = `${size} ${anonymised} ${covered}`;
    const watched = { port, id, key, owes: false, next: null };
    tab.watched.set(id, watched);
    let shared = this.streams.get(key);
    if (!shared) {
      shared = { viewers: new Set(), stream: null };
      this.streams.set(key, shared);
      const { viewers } = shared;
      const onPicture = (picture) => viewers.forEach((viewer) => this.offer(viewer, picture));
      const onFail = (status) =>
        viewers.forEach((viewer) => viewer.port.postMessage({ type: "failed", id: viewer.id, status }));
      shared.stream = new PictureStream({ size, anonymised, covered }, { onPicture, onFail }, this.now);
    }
    shared.viewers.add(watched);
  }

  leave(tab, id) {
    const watched = tab.watched.get(id);
    const shared = this.streams.get(watched?.key);
    tab.watched.delete(id);
    if (!shared?.viewers.delete(watched) || shared.viewers.size) return;
    shared.stream.stop();
    this.streams.delete(watched.key);
  }

  /** A tab that is slow gets the newest picture when it has taken the one before. */
  offer(watched, picture) {
    if (watched.owes) {
      watched.next = picture;
      return;
    }
    watched.owes = true;
    watched.port.postMessage({ type: "picture", id: watched.id, picture });
  }

  sendNext(watched) {
    watched.owes = false;
    const { next } = watched;
    watched.next = null;
    if (next) this.offer(watched, next);
  }
}

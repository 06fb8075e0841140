/** Calls whoever is near this device: sound, vibration, notification, title and icon, until the alarm is answered. */
import { eventName, say } from "../base/words.js";
import { SOFTEST, isCalling, openAlarms, ringing, urgent } from "./calls.js";
import { Waker, deviceNow } from "./device.js";
import { Sounder, tuneOf } from "./sound.js";

const TICK_MS = 1000;
/** How long a test waits until it must have come back. */
const BACK_MS = 5000;
/** How long a desk's browser has to say that it has shown a notice; some never say. */
const SHOWN_MS = 2000;
const VIBRATIONS = { fall: [400, 150, 400, 150, 400], exit: [200] };
const VIBRATE_EVERY = { fall: 2, exit: 8 };
const ICONS = { fall: "icon-fall.svg", exit: "icon-exit.svg" };

/** Whether a desk's notice was shown, as its browser says; null: it does not say. */
const wordOf = (notice) =>
  new Promise((resolve) => {
    notice.onshow = () => resolve(true);
    notice.onerror = () => resolve(false);
    setTimeout(() => resolve(null), SHOWN_MS);
  });

/** The notices of a phone come from its service worker, and are taken back there; those of a desk can be closed. */
async function notify(title, options) {
  const registration = await navigator.serviceWorker?.getRegistration().catch(() => null);
  if (!registration?.active) {
    const onDesk = new Notification(title, options);
    return { notice: onDesk, shown: wordOf(onDesk) };
  }
  await registration.showNotification(title, options);
  return { shown: true };
}

/** The notices that the service worker shows, all or those of one tag. */
async function shownByWorker(filter) {
  const registration = await navigator.serviceWorker?.getRegistration().catch(() => null);
  return (await registration?.getNotifications(filter)) ?? [];
}

async function takeBack(tag, onDesk) {
  onDesk?.close();
  (await shownByWorker({ tag })).forEach((notice) => notice.close());
}

export class Caller {
  /**
   * @param {import("../hub/link.js").Link} link told whether this tab can be heard
   * @param {() => void} onChange told when what the page says of the call is to be drawn anew
   */
  constructor(link, onChange) {
    Object.assign(this, {
      link,
      onChange,
      alarms: [],
      voice: false,
      count: 0,
      told: new Map(),
      awake: false,
      swept: false,
    });
    this.sounder = new Sounder(() => this.changed());
    this.waker = new Waker();
    this.waiting = null;
    link.listen("voice", ({ on }) => (this.voice = on));
    link.listen("tested", (test) => this.waiting?.(test));
    this.timer = setInterval(() => this.tick(), TICK_MS);
  }

  /** Nobody is called any more: somebody else looks on. */
  stop() {
    clearInterval(this.timer);
    this.take([]);
    this.sounder.context?.close();
  }

  get ready() {
    return this.sounder.ready;
  }

  changed() {
    this.link.sounds = this.ready;
    this.link.here();
    this.onChange();
  }

  /** The alarms as they are now; `known`: the camera says so. */
  take(alarms, known = false) {
    this.alarms = alarms;
    this.tick();
    if (known && !this.swept) this.sweep().catch(() => {});
  }

  /** Takes back, once, what a page before this one has left of alarms that were answered since. */
  async sweep() {
    this.swept = true;
    const calling = new Set(this.alarms.filter(isCalling).map(({ id }) => id));
    for (const notice of await shownByWorker()) if (!calling.has(notice.tag)) notice.close();
  }

  tick() {
    const call = ringing(this.alarms);
    this.dress(urgent(this.alarms));
    this.notifyAll();
    if (!this.voice) return this.sounder.ring(null);
    this.sounder.ring(call);
    if (!call) {
      this.count = 0;
      return undefined;
    }
    if (this.count++ % VIBRATE_EVERY[call.kind === "fall" ? "fall" : "exit"] === 0) this.vibrate(call.kind);
    return undefined;
  }

  vibrate(kind) {
    if (navigator.userActivation?.hasBeenActive === false) return false;
    return navigator.vibrate?.(VIBRATIONS[kind] ?? VIBRATIONS.fall) === true;
  }

  /** The tab's icon tells the call also where only that is seen. */
  dress(call) {
    const icon = document.querySelector('link[rel="icon"]');
    const wanted = ICONS[call?.kind] ?? "icon.svg";
    if (icon.getAttribute("href") !== wanted) icon.setAttribute("href", wanted);
  }

  /** A notice for each alarm that calls, again with each call; gone once it is answered. */
  notifyAll() {
    const calling = openAlarms(this.alarms).filter(isCalling);
    for (const id of this.told.keys()) if (!calling.some((alarm) => alarm.id === id)) this.forget(id);
    if (!this.voice || deviceNow().notifications !== "granted") return;
    for (const alarm of calling) {
      const told = this.told.get(alarm.id);
      if (!told || told.called !== alarm.called) this.tell(alarm);
    }
  }

  /** One that comes after its answer is taken back as well. */
  tell({ id, event, kind, called }) {
    const told = { called, notice: null };
    this.told.set(id, told);
    this.notice(id, eventName(event), kind).then(
      ({ notice }) => {
        told.notice = notice;
        if (!this.told.has(id)) takeBack(id, notice).catch(() => {});
      },
      () => {},
    );
  }

  notice(tag, title, kind) {
    const body = say("notice.body");
    return notify(title, { tag, body, renotify: true, requireInteraction: kind === "fall", icon: ICONS[kind] });
  }

  forget(id) {
    takeBack(id, this.told.get(id)?.notice).catch(() => {});
    this.told.delete(id);
  }

  /** By a click: everything that needs one, each asked for once. @returns {Promise<boolean>} whether it can be heard */
  async allow() {
    const heard = await this.sounder.allow();
    if (heard) this.sounder.play({ ...tuneOf("exit", SOFTEST), gain: 0.1 });
    this.awake = await this.waker.keep();
    if (deviceNow().notifications === "default") await Notification.requestPermission().catch(() => {});
    this.changed();
    return heard;
  }

  /**
   * Tries the whole way on this device.
   * @param {() => Promise<void>} send sends the test to the camera, from where it must come back
   * @returns {Promise<{key: string, tone: string, words: string}[]>} "ok": it is known to have come; "idle": tried, and
   *   only whoever has the device in hand knows; "warn": it did not come
   */
  async test(send) {
    // At once, and not once the camera has answered: a click counts for a few seconds.
    const [way, heard] = await Promise.all([this.goesAndComes(send), this.allow()]);
    if (heard) this.sounder.play(tuneOf("fall", SOFTEST));
    const insecure = deviceNow().secure ? "" : say("test.insecure");
    const result = (key, tone, words) => ({ key, tone, words });
    return [
      result("way", way ? "warn" : "ok", way || say("test.works")),
      heard ? result("sound", "idle", say("test.played")) : result("sound", "warn", say("test.noSound")),
      this.vibrate("fall")
        ? result("vibration", "idle", say("test.vibrated"))
        : result("vibration", "warn", say("test.noVibration")),
      { key: "notice", ...(insecure ? { tone: "warn", words: insecure } : await this.tryNotice()) },
      this.awake ? result("awake", "ok", say("test.works")) : result("awake", "warn", insecure || say("test.noWake")),
    ];
  }

  /** Whether a test comes back from the camera: "", or why not. */
  async goesAndComes(send) {
    const back = new Promise((resolve) => {
      this.waiting = () => resolve("");
      setTimeout(() => resolve(say("test.notBack")), BACK_MS);
    });
    const way = await send().then(
      () => back,
      (error) => error.message,
    );
    this.waiting = null;
    return way;
  }

  /** What becomes of a notice where notices can be: {tone, words}. */
  async tryNotice() {
    const { notifications } = deviceNow();
    if (notifications !== "granted") return { tone: "warn", words: say(`test.notice.${notifications}`) };
    const shown = await this.notice("test", say("test.notice"), "fall").then(
      (told) => told.shown,
      () => false,
    );
    if (shown === false) return { tone: "warn", words: say("test.notice.granted") };
    return shown ? { tone: "ok", words: say("test.shown") } : { tone: "idle", words: say("test.sent") };
  }
}

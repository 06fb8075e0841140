/** Calls whoever is near this device: sound, vibration, notification, title and icon, until the alarm is answered. */
import { eventName, say } from "../base/words.js";
import { FIRST_LEVEL, isCalling, openAlarms, ringing, urgent } from "./calls.js";
import { Waker, deviceNow } from "./device.js";
import { Sounder, tuneOf } from "./sound.js";

const TICK_MS = 1000;
/** How long a test waits until it must have come back. */
const BACK_MS = 5000;
const VIBRATIONS = { fall: [400, 150, 400, 150, 400], exit: [200] };
const VIBRATE_EVERY = { fall: 2, exit: 8 };
const ICONS = { fall: "icon-fall.svg", exit: "icon-exit.svg" };

/** The notices of a phone come from its service worker, and are taken back there; those of a desk can be closed. */
async function notify(title, options) {
  const registration = await navigator.serviceWorker?.getRegistration().catch(() => null);
  if (!registration?.active) return new Notification(title, options);
  await registration.showNotification(title, options);
  return {};
}

async function takeBack(tag) {
  const registration = await navigator.serviceWorker?.getRegistration().catch(() => null);
  const shown = (await registration?.getNotifications({ tag })) ?? [];
  shown.forEach((notice) => notice.close());
}

export class Caller {
  /**
   * @param {import("../hub/link.js").Link} link told whether this tab can be heard
   * @param {() => void} onChange told when what the page says of the call is to be drawn anew
   */
  constructor(link, onChange) {
    Object.assign(this, { link, onChange, alarms: [], voice: false, count: 0, told: new Map(), awake: false });
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

  /** The alarms as they are now. */
  take(alarms) {
    this.alarms = alarms;
    this.tick();
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

  /** A notice for each alarm that calls, again at each level; gone once it is answered. */
  notifyAll() {
    const calling = openAlarms(this.alarms).filter(isCalling);
    for (const id of this.told.keys()) if (!calling.some((alarm) => alarm.id === id)) this.forget(id);
    if (!this.voice || deviceNow().notifications !== "granted") return;
    for (const alarm of calling) {
      if (this.told.get(alarm.id)?.level === alarm.level) continue;
      this.told.set(alarm.id, { level: alarm.level, notice: null });
      this.notice(alarm.id, eventName(alarm.event), alarm.kind).then(
        (notice) => this.told.has(alarm.id) && (this.told.get(alarm.id).notice = notice),
        () => {},
      );
    }
  }

  notice(tag, title, kind) {
    const body = say("notice.body");
    return notify(title, { tag, body, renotify: true, requireInteraction: kind === "fall", icon: ICONS[kind] });
  }

  forget(id) {
    this.told.get(id)?.notice?.close?.();
    this.told.delete(id);
    takeBack(id).catch(() => {});
  }

  /** By a click: everything that needs one, each asked for once. @returns {Promise<boolean>} whether it can be heard */
  async allow() {
    const heard = await this.sounder.allow();
    if (heard) this.sounder.play({ ...tuneOf("exit", FIRST_LEVEL), gain: 0.1 });
    if (deviceNow().notifications === "default") await Notification.requestPermission().catch(() => {});
    this.awake = await this.waker.keep();
    this.changed();
    return heard;
  }

  /**
   * Tries the whole way on this device.
   * @param {() => Promise<void>} send sends the test to the camera, from where it must come back
   * @returns {Promise<{key: string, works: boolean, why: string}[]>}
   */
  async test(send) {
    const back = new Promise((resolve) => {
      this.waiting = () => resolve("");
      setTimeout(() => resolve(say("test.notBack")), BACK_MS);
    });
    const way = await send().then(
      () => back,
      (error) => error.message,
    );
    this.waiting = null;
    const heard = await this.allow();
    if (heard) this.sounder.play(tuneOf("fall", FIRST_LEVEL));
    const { secure, notifications } = deviceNow();
    const shown =
      notifications === "granted" && (await this.notice("test", say("test.notice"), "fall").catch(() => false));
    const insecure = secure ? "" : say("test.insecure");
    const result = (key, works, why) => ({ key, works, why: works ? "" : why });
    return [
      result("way", way === "", way),
      result("sound", heard, say("test.noSound")),
      result("vibration", this.vibrate("fall"), say("test.noVibration")),
      result("notice", Boolean(shown), insecure || say(`test.notice.${notifications}`)),
      result("awake", this.awake, insecure || say("test.noWake")),
    ];
  }
}

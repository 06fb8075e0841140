/** What this browser on this device can do for a call, and keeping its screen awake. */
import { say } from "../base/words.js";

const can = (name) => typeof globalThis[name] === "function";

/** What there is, and what has been allowed. */
export const deviceNow = () => ({
  secure: globalThis.isSecureContext === true,
  notifications: can("Notification") ? Notification.permission : "absent",
  vibrates: typeof navigator.vibrate === "function",
  wakes: "wakeLock" in navigator,
  fullScreen: document.fullscreenEnabled === true,
});

/** What cannot work on this address or device, as sentences; what a click can still change is not among them. */
export function limitsOf({ secure, notifications, vibrates, wakes }) {
  if (!secure) return [say("device.insecure")];
  const missing = [];
  if (notifications === "absent") missing.push(say("device.noNotifications"));
  if (notifications === "denied") missing.push(say("device.denied"));
  if (!vibrates) missing.push(say("device.noVibration"));
  if (!wakes) missing.push(say("device.noWake"));
  return missing;
}

/** Keeps the screen on from the first click until the page goes. */
export class Waker {
  constructor() {
    Object.assign(this, { lock: null, wanted: false });
    document.addEventListener("visibilitychange", () => this.wanted && !document.hidden && this.keep());
  }

  /** @returns {Promise<boolean>} whether the screen stays on */
  async keep() {
    this.wanted = true;
    if (this.lock && !this.lock.released) return true;
    try {
      this.lock = await navigator.wakeLock.request("screen");
    } catch {
      this.lock = null;
    }
    return this.lock !== null;
  }
}

/** Takes this page into full screen, or out of it. */
export const toggleFullScreen = () =>
  document.fullscreenElement ? document.exitFullscreen() : document.documentElement.requestFullscreen().catch(() => {});

/** One installer's settings of the demo's room, as the page holds them, and short ways to write such things. */
export { BED, FALL, LANDSCAPE, PORTRAIT } from "../../../web/base/facts.js";

export const points = (...pairs) => pairs.map(([x, y]) => ({ x, y }));
export const area = (on, ...pairs) => ({ on, corners: points(...pairs) });
export const rectangle = (on, left, top, right, bottom) =>
  area(on, [left, top], [right, top], [right, bottom], [left, bottom]);
export const OFF = rectangle(false, 2, 2, 3, 3);

/** Nothing in here can be changed: an edit that does not copy throws. */
export function frozen(value) {
  if (typeof value === "object") Object.values(value ?? {}).forEach(frozen);
  return Object.freeze(value);
}

export const SETTINGS = frozen({
  sensitivity: "0.38",
  outOfBed: true,
  falls: true,
  stakes: false,
  overlayOn: true,
  anonymisedOn: false,
  overlaySize: "1280x720",
  anonymisedSize: "640x360",
  sizes: ["640x360", "800x450", "1280x720", "1920x1080"],
  beds: [area(true, [28, 20], [40, 22], [29, 55], [10, 52]), OFF, OFF],
  exclusions: [OFF, OFF, OFF],
  floor: points([573, 362], [868, 388], [898, 580], [516, 537]),
  widthM: "1.60",
  depthM: "1.20",
  problems: [],
});

/** In the place of a browser's EventSource: `newest` is the last that was opened. */
export class FakeSource extends EventTarget {
  static CLOSED = 2;
  static opened = 0;
  readyState = 0; // a browser's while it connects again by itself
  constructor() {
    super();
    this.constructor.newest = this;
    this.constructor.opened += 1;
  }
  close() {
    this.readyState = FakeSource.CLOSED;
  }
  say(type, data) {
    this.dispatchEvent(Object.assign(new Event(type), { data: JSON.stringify(data) }));
  }
}

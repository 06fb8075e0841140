/** What the program does with settings, in its whole-number arithmetic: keeps pixels, gives out a document. */

const THREE = [1, 2, 3];
const FOUR = [1, 2, 3, 4];
const AXES = ["X", "Y"];

const AREA_KEYS = ["AOI", "EX"].flatMap((name) =>
  THREE.flatMap((n) => FOUR.flatMap((k) => AXES.map((axis) => [`${name}${n}_${axis}${k}`, axis]))),
);
const FLOOR_KEYS = ["R", "G", "B", "Y"].flatMap((colour) => AXES.map((axis) => [axis + colour, axis]));

const cut = (value) => value.toFixed(6).slice(0, 4);
const element = (name, value) => `<${name}>${value}</${name}>`;

export class StoredSettings {
  constructor({ width, height }, pixel = (index) => 10 + 7 * index) {
    this.sides = { X: width, Y: height };
    this.texts = { SDO: "1280x720", SAO: "640x360" };
    this.numbers = { SN: Math.fround(0.38), XM: Math.fround(1.6), YM: Math.fround(1.2) };
    this.flags = { POB_ON: "1", FP_ON: "1", DO: "1", AO: "0", SCM: "0" };
    this.pixels = Object.fromEntries([...AREA_KEYS, ...FLOOR_KEYS].map(([key], index) => [key, pixel(index)]));
    for (const name of ["AOI", "EX"]) for (const n of THREE) this.flags[`${name}${n}_ON`] = "0";
  }

  /** Takes a query; throws when a key is missing or unknown. */
  take(query) {
    const left = new Map(query);
    const taken = (key) => {
      if (!left.has(key)) throw new Error(`no ${key}`);
      const value = left.get(key);
      left.delete(key);
      return value;
    };
    for (const key of Object.keys(this.flags)) this.flags[key] = taken(key) === "1" ? "1" : "0";
    for (const key of Object.keys(this.texts)) this.texts[key] = taken(key);
    for (const key of Object.keys(this.numbers)) this.numbers[key] = Math.fround(parseFloat(taken(key)));
    for (const [key, axis] of AREA_KEYS) {
      this.pixels[key] = Math.trunc((parseInt(taken(key), 10) * this.sides[axis]) / 100);
    }
    for (const [key, axis] of FLOOR_KEYS) {
      this.pixels[key] = Math.trunc(Math.fround(Math.fround(parseFloat(taken(key))) * this.sides[axis]));
    }
    if (left.size) throw new Error(`unknown: ${[...left.keys()]}`);
  }

  /** Everything that is stored, to compare. */
  snapshot() {
    return JSON.stringify([this.texts, this.numbers, this.flags, this.pixels]);
  }

  area(key, name) {
    const percent = (axis, k) => Math.trunc((this.pixels[`${key}_${axis}${k}`] * 100) / this.sides[axis]);
    const corners = FOUR.flatMap((k) => AXES.map((axis) => percent(axis, k)));
    const elements = corners.map((value, index) => element(`${name}_${index}`, value));
    return elements.join("") + element(`${name}_Active`, this.flags[`${key}_ON`]);
  }

  document() {
    const floor = FLOOR_KEYS.map(([key, axis], index) =>
      element(`FallCalibration_${index}`, Math.fround(this.pixels[key] / this.sides[axis]).toFixed(6)),
    );
    const content = [
      element("Sensitivity", cut(this.numbers.SN)),
      element("PatientOutOfBed_Active", this.flags.POB_ON),
      element("FallenPersons_Active", this.flags.FP_ON),
      element("ShowCalibrationMarkers", this.flags.SCM),
      element("DetectionOverlaysOn", this.flags.DO),
      element("AnonOverlaysOn", this.flags.AO),
      element("SelectedDetectionOverlay", this.texts.SDO),
      element("SelectedAnonOverlay", this.texts.SAO),
      element("CamsResAsCsv", "640x360,800x450,1280x720,"),
      ...THREE.map((n) => this.area(`AOI${n}`, `Detection${n}`)),
      ...THREE.map((n) => this.area(`EX${n}`, `Exclusion${n}`)),
      ...floor,
      element("HRectM", cut(this.numbers.YM)),
      element("WRectM", cut(this.numbers.XM)),
    ];
    // The document passes a formatter.
    return element("app", content.join("")).replaceAll("%%", "%");
  }
}

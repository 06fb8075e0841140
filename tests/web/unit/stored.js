/** What the program does with settings, in its whole-number arithmetic: keeps pixels, gives out a document. */

const THREE = [1, 2, 3];
const FOUR = [1, 2, 3, 4];
const COLOURS = ["R", "G", "B", "Y"];

const cut = (value) => value.toFixed(6).slice(0, 4);
/** The document passes a formatter. */
const formatted = (text) => text.replaceAll("%%", "%");

export class StoredSettings {
  constructor({ width, height }, pixel = (index) => 10 + 7 * index) {
    this.sides = { X: width, Y: height };
    this.texts = { SDO: "1280x720", SAO: "640x360" };
    this.numbers = { SN: Math.fround(0.38), XM: Math.fround(1.6), YM: Math.fround(1.2) };
    this.flags = { POB_ON: "1", FP_ON: "1", DO: "1", AO: "0", SCM: "0" };
    this.pixels = {};
    [...this.areaKeys(), ...this.floorKeys()].forEach(([key], index) => (this.pixels[key] = pixel(index)));
    for (const name of ["AOI", "EX"]) for (const n of THREE) this.flags[`${name}${n}_ON`] = "0";
  }

  areaKeys() {
    return ["AOI", "EX"].flatMap((name) =>
      THREE.flatMap((n) => FOUR.flatMap((k) => ["X", "Y"].map((axis) => [`${name}${n}_${axis}${k}`, axis]))),
    );
  }

  floorKeys() {
    return COLOURS.flatMap((colour) => ["X", "Y"].map((axis) => [axis + colour, axis]));
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
    for (const [key, axis] of this.areaKeys()) {
      this.pixels[key] = Math.trunc((parseInt(taken(key), 10) * this.sides[axis]) / 100);
    }
    for (const [key, axis] of this.floorKeys()) {
      this.pixels[key] = Math.trunc(Math.fround(Math.fround(parseFloat(taken(key))) * this.sides[axis]));
    }
    if (left.size) throw new Error(`unknown: ${[...left.keys()]}`);
  }

  /** Everything that is stored, to compare. */
  snapshot() {
    return JSON.stringify([this.texts, this.numbers, this.flags, this.pixels]);
  }

  document() {
    const element = (name, value) => `<${name}>${value}</${name}>`;
    const areas = (key, name) =>
      THREE.map((n) => {
        const percent = FOUR.flatMap((k) =>
          ["X", "Y"].map((axis) => Math.trunc((this.pixels[`${key}${n}_${axis}${k}`] * 100) / this.sides[axis])),
        );
        const corners = percent.map((value, j) => element(`${name}${n}_${j}`, value)).join("");
        return corners + element(`${name}${n}_Active`, this.flags[`${key}${n}_ON`]);
      }).join("");
    const floor = this.floorKeys().map(([key, axis], j) =>
      element(`FallCalibration_${j}`, Math.fround(this.pixels[key] / this.sides[axis]).toFixed(6)),
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
      areas("AOI", "Detection"),
      areas("EX", "Exclusion"),
      ...floor,
      element("HRectM", cut(this.numbers.YM)),
      element("WRectM", cut(this.numbers.XM)),
    ];
    return formatted(element("app", content.join("")));
  }
}

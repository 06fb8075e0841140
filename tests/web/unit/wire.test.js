import assert from "node:assert/strict";
import { describe, test } from "node:test";
import {
  differences,
  encodeSettings,
  expectedReadBack,
  nearestPercent,
  parseSettings,
  percentToPixel,
  pixelToPercent,
  smallestPercent,
  steppedPercent,
} from "../../../web/program/wire.js";
import { StoredSettings } from "./stored.js";

const LANDSCAPE = { width: 1280, height: 720 };
const PORTRAIT = { width: 720, height: 1280 };
const SIZES = [LANDSCAPE, PORTRAIT];
const read = (stored, size) => parseSettings(stored.document(), size);
const upTo = (count) => Array.from({ length: count }, (_, index) => index);

describe("percent", () => {
  test("33 percent of 1280 is pixel 422 and comes back as 32, for which 33 is sent again", () => {
    assert.equal(percentToPixel(33, 1280), 422);
    assert.equal(pixelToPercent(422, 1280), 32);
    assert.equal(smallestPercent(32, 1280), 33);
  });

  for (const length of [1280, 720]) {
    test(`what is sent for a value read is the smallest percent that gives it again (${length} pixels)`, () => {
      for (const percent of [...upTo(101), -33, -7, 130]) {
        const value = pixelToPercent(percentToPixel(percent, length), length);
        const sent = smallestPercent(value, length);
        assert.equal(pixelToPercent(percentToPixel(sent, length), length), value);
        if (sent === 0) continue;
        const smaller = sent - Math.sign(sent);
        assert.notEqual(
          pixelToPercent(percentToPixel(smaller, length), length),
          value,
          `${smaller} gives ${value} too`,
        );
      }
    });

    test(`steps reach the picture's edges without getting stuck, and the nearest is near (${length} pixels)`, () => {
      for (const [start, step, end] of [
        [0, 1, 100],
        [100, -1, 0],
        [0, 5, 100],
        [100, -5, 0],
      ]) {
        let percent = start;
        for (let count = 0; count < 100; ++count) {
          const next = steppedPercent(percent, step, length);
          assert.ok(
            percent === end ? next === end : (next - percent) * step >= step * step,
            `${percent}, then ${next}`,
          );
          percent = next;
        }
        assert.equal(percent, end);
      }
      for (const pixel of upTo(length)) {
        const away = percentToPixel(nearestPercent(pixel, length), length) - pixel;
        assert.ok(Math.abs(away) <= length / 100 + 1, `pixel ${pixel}: ${away} away`);
      }
      assert.equal(nearestPercent(length * 2, length), 100);
      assert.equal(nearestPercent(-5, length), 0);
    });
  }
});

describe("saving again and again", () => {
  /** Reads and saves a hundred times; gives what was stored after the first. */
  function saveHundredTimes(stored, size) {
    stored.take(encodeSettings(read(stored, size), size));
    const first = stored.snapshot();
    for (let count = 1; count < 100; ++count) {
      stored.take(encodeSettings(read(stored, size), size));
      assert.equal(stored.snapshot(), first);
    }
  }

  for (const size of SIZES) {
    test(`stores what the page sent for every percent and pixel, ${size.width} wide`, () => {
      // 17 * 24 corners hold every percent of either axis.
      for (const round of upTo(17)) {
        const stored = new StoredSettings(size);
        const drawn = read(stored, size);
        const corner = (n) => ({ x: (round * 6 + (n % 6)) % 101, y: 100 - ((round * 6 + (n % 6)) % 101) });
        const areas = (first) =>
          upTo(3).map((n) => ({ on: n === 1, corners: upTo(4).map((k) => corner(first + 4 * n + k)) }));
        const floor = upTo(4).map((k) => ({ x: (75 * round + k) % size.width, y: (42 * round + k) % size.height }));
        const wanted = { ...drawn, floor, beds: areas(0), exclusions: areas(12) };
        stored.take(encodeSettings(wanted, size));
        const sent = stored.snapshot();
        assert.deepEqual(read(stored, size).floor, floor);
        assert.deepEqual(read(stored, size), expectedReadBack(wanted, size));
        assert.deepEqual(differences(wanted, read(stored, size), size), []);
        saveHundredTimes(stored, size);
        assert.equal(stored.snapshot(), sent);
      }
    });

    test(`moves what a settings file has set by a percent at most, once, ${size.width} wide`, () => {
      for (const start of upTo(8)) {
        const stored = new StoredSettings(
          size,
          (index) => (start * 97 + index * 23) % Math.min(size.width, size.height),
        );
        const before = { ...stored.pixels };
        saveHundredTimes(stored, size);
        for (const [key, pixel] of Object.entries(before)) {
          const limit = /^[XY][RGBY]$/.test(key) ? 0 : stored.sides[key.at(-2)] / 100 + 1;
          assert.ok(Math.abs(stored.pixels[key] - pixel) <= limit, `${key}: ${pixel} became ${stored.pixels[key]}`);
        }
      }
    });
  }

  test("keeps numbers that are no number of the camera's own digits", () => {
    const stored = new StoredSettings(LANDSCAPE);
    stored.numbers = { SN: Math.fround(0.29), XM: Math.fround(12.345), YM: Math.fround(0.05) };
    stored.pixels.XR = -3;
    saveHundredTimes(stored, LANDSCAPE);
    assert.equal(read(stored, LANDSCAPE).widthM, "12.3");
    assert.equal(stored.pixels.XR, -3);
  });
});

describe("free text in the resolutions", () => {
  const texts = [
    "",
    "<script>alert(1)</script>",
    "</SelectedDetectionOverlay><Detection1_0>99</Detection1_0>",
    "</SelectedAnonOverlay><CamsResAsCsv>1x1,</CamsResAsCsv></app>",
    "<SelectedDetectionOverlay>",
    "100%",
    "%s%n%%",
    "1280x720x",
    "0x0",
    "a\nb\u0007&amp;\"'",
  ];
  for (const text of texts) {
    test(`${JSON.stringify(text)} is kept as it is, pointed out, and changes nothing else`, () => {
      const stored = new StoredSettings(LANDSCAPE);
      const plain = read(stored, LANDSCAPE);
      const wanted = { ...plain, overlaySize: text, anonymisedSize: text };
      stored.take(encodeSettings(wanted, LANDSCAPE));
      const { problems, ...found } = read(stored, LANDSCAPE);
      assert.equal(problems.length, 2);
      assert.deepEqual({ ...found, problems: [] }, wanted);
    });
  }
});

const whole = new StoredSettings(LANDSCAPE).document();
const broken = {
  nothing: "",
  "another page": "<html><body>Not found</body></html>",
  "half a document": whole.slice(0, whole.length / 2),
  "no anonymised stream": whole.replace(/<SelectedAnonOverlay>.*<\/SelectedAnonOverlay>/, ""),
  "no depth": whole.replace(/<HRectM>.*<\/HRectM>/, ""),
  "an area that is no number": whole.replace("<Detection2_3>", "<Detection2_3>x"),
  "a floor point that is not finite": whole.replace(/<FallCalibration_1>[^<]*/, "<FallCalibration_1>nan"),
};
for (const [what, text] of Object.entries(broken)) {
  test(`${what} is refused in one sentence`, () => {
    assert.throws(() => parseSettings(text, LANDSCAPE), /^Error: The camera's settings cannot be understood\b.*\.$/);
  });
}

test("every difference is named, with what was wanted and what was found", () => {
  const before = read(new StoredSettings(LANDSCAPE), LANDSCAPE);
  const replaced = (list, index, change) => list.map((old, at) => (at === index ? change(old) : old));
  const cornerMoved = (areas, index, corner) =>
    replaced(areas, index, (area) => ({ ...area, corners: replaced(area.corners, 1, () => corner) }));
  const switchedOn = (areas, index) => replaced(areas, index, (area) => ({ ...area, on: true }));
  const cases = [
    [{ sensitivity: "0.5" }, { what: "Score that a person must reach", wanted: "0.50", found: "0.38" }],
    [{ stakes: true }, { what: "Calibration stakes", wanted: "on", found: "off" }],
    [{ beds: cornerMoved(before.beds, 0, { x: 33, y: 20 }) }, { what: "Bed area 1, corner 2", wanted: "33 %, 20 %" }],
    [{ exclusions: cornerMoved(before.exclusions, 2, { x: 0, y: 0 }) }, { what: "Exclusion area 3, corner 2" }],
    [{ exclusions: switchedOn(before.exclusions, 0) }, { what: "Exclusion area 1", wanted: "on", found: "off" }],
    [{ floor: replaced(before.floor, 3, () => ({ x: 5, y: 6 })) }, { what: "Floor point yellow", wanted: "5, 6" }],
    [{ depthM: "2" }, { what: "Depth of the floor rectangle", wanted: "2.00", found: "1.20" }],
  ];
  for (const [change, expected] of cases) {
    const [difference, ...others] = differences({ ...before, ...change }, before, LANDSCAPE);
    assert.deepEqual(others, []);
    assert.deepEqual({ ...difference, ...expected }, difference);
  }
});

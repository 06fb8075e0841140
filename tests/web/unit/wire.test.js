// The settings on their way to the program and back: nothing creeps, nothing that somebody stored breaks the page.
import assert from "node:assert/strict";
import { describe, test } from "node:test";
import * as wire from "../../../web/program/wire.js";
import { LANDSCAPE, PORTRAIT } from "./fixtures.js";
import { StoredSettings } from "./stored.js";

const { encodeSettings, nearestPercent, parseSettings, percentToPixel, pixelToPercent, smallestPercent } = wire;
const read = (stored, size) => parseSettings(stored.document(), size);
const upTo = (count) => Array.from({ length: count }, (_, index) => index);

for (const length of [1280, 720]) {
  const roundTrip = (percent) => pixelToPercent(percentToPixel(percent, length), length);

  test(`what is sent for a percent read is the smallest that gives it again (${length} pixels)`, () => {
    if (length === 1280) assert.deepEqual([percentToPixel(33, 1280), smallestPercent(32, 1280)], [422, 33]);
    for (const percent of [...upTo(101), -33, -7, 130]) {
      const value = roundTrip(percent);
      const sent = smallestPercent(value, length);
      assert.equal(roundTrip(sent), value);
      if (sent !== 0)
        assert.notEqual(roundTrip(sent - Math.sign(sent)), value, `${sent}: a smaller one gives ${value} too`);
    }
  });

  test(`steps reach the picture's edges without getting stuck, and the nearest is near (${length} pixels)`, () => {
    for (const step of [1, -1, 5, -5]) {
      const end = step > 0 ? 100 : 0;
      let percent = 100 - end;
      for (let count = 0; count < 100; ++count) {
        const next = wire.steppedPercent(percent, step, length);
        const [gone, asked] = [(next - percent) * Math.sign(step), Math.abs(step)];
        assert.ok(
          percent === end ? gone === 0 : next === end || [asked, asked + 1].includes(gone),
          `${percent}: ${next}`,
        );
        assert.equal(smallestPercent(roundTrip(next), length), next, "read back as it was sent");
        percent = next;
      }
      assert.equal(percent, end);
    }
    for (const pixel of upTo(length)) {
      const away = percentToPixel(nearestPercent(pixel, length), length) - pixel;
      assert.ok(Math.abs(away) <= length / 100 + 1, `pixel ${pixel}: ${away} away`);
    }
    assert.deepEqual([nearestPercent(length * 2, length), nearestPercent(-5, length)], [100, 0]);
  });
}

describe("saving again and again", () => {
  /** Reads and saves a hundred times; gives what was stored after the first. */
  function saveHundredTimes(stored, size) {
    stored.take(encodeSettings(read(stored, size), size));
    const first = stored.snapshot();
    for (let count = 1; count < 100; ++count) {
      stored.take(encodeSettings(read(stored, size), size));
      assert.equal(stored.snapshot(), first);
    }
    return first;
  }

  for (const size of [LANDSCAPE, PORTRAIT]) {
    test(`stores what the page sent for every percent and pixel, ${size.width} wide`, () => {
      // 17 * 24 corners hold every percent of either axis.
      for (const round of upTo(17)) {
        const stored = new StoredSettings(size);
        const percent = (n) => (round * 6 + (n % 6)) % 101;
        const corner = (n) => ({ x: percent(n), y: 100 - percent(n) });
        const areas = (first) =>
          upTo(3).map((n) => ({ on: n === 1, corners: upTo(4).map((k) => corner(first + 4 * n + k)) }));
        const floor = upTo(4).map((k) => ({ x: (75 * round + k) % size.width, y: (42 * round + k) % size.height }));
        const wanted = { ...read(stored, size), floor, beds: areas(0), exclusions: areas(12) };
        stored.take(encodeSettings(wanted, size));
        const sent = stored.snapshot();
        assert.deepEqual(read(stored, size).floor, floor);
        assert.deepEqual(read(stored, size), wire.expectedReadBack(wanted, size));
        assert.deepEqual(wire.differences(wanted, read(stored, size), size), []);
        assert.equal(saveHundredTimes(stored, size), sent);
      }
    });

    test(`moves what a settings file has set by a percent at most, once, ${size.width} wide`, () => {
      const shortest = Math.min(size.width, size.height);
      for (const start of upTo(8)) {
        const stored = new StoredSettings(size, (index) => (start * 97 + index * 23) % shortest);
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
    assert.deepEqual([read(stored, LANDSCAPE).widthM, stored.pixels.XR], ["12.3", -3]);
  });
});

test("free text in the resolutions is kept as it is, pointed out, and changes nothing else", () => {
  const tags = ["</SelectedDetectionOverlay><Detection1_0>99</Detection1_0>", "<SelectedDetectionOverlay>"];
  const list = "</SelectedAnonOverlay><CamsResAsCsv>1x1,</CamsResAsCsv></app>";
  for (const text of ["", ...tags, list, "%s%n%%", "1280x720x", "0x0", "a\nb\u0007&amp;\"'"]) {
    const stored = new StoredSettings(LANDSCAPE);
    const wanted = { ...read(stored, LANDSCAPE), overlaySize: text, anonymisedSize: text };
    stored.take(encodeSettings(wanted, LANDSCAPE));
    const { problems, ...found } = read(stored, LANDSCAPE);
    assert.equal(problems.length, 2, text);
    assert.deepEqual({ ...found, problems: [] }, wanted);
  }
});

test("what is no settings document is refused in one sentence", () => {
  const whole = new StoredSettings(LANDSCAPE).document();
  const broken = {
    "another page": "<html><body>Not found</body></html>",
    "half a document": whole.slice(0, whole.length / 2),
    "an area that is no number": whole.replace("<Detection2_3>", "<Detection2_3>x"),
    "a floor point that is not finite": whole.replace(/<FallCalibration_1>[^<]*/, "<FallCalibration_1>nan"),
  };
  const sentence = /^Error: The camera's settings cannot be understood\b.*\.$/;
  for (const [what, text] of Object.entries(broken)) {
    assert.throws(() => parseSettings(text, LANDSCAPE), sentence, what);
  }
});

test("every difference is named, with what was wanted and what was found", () => {
  const before = read(new StoredSettings(LANDSCAPE), LANDSCAPE);
  const replaced = (list, index, change) => list.map((old, at) => (at === index ? { ...old, ...change } : old));
  const moved = (areas, index, to) => replaced(areas, index, { corners: replaced(areas[index].corners, 1, to) });
  const cases = [
    [{ sensitivity: "0.5" }, "Score that a person must reach: 0.50, not 0.38"],
    [{ beds: moved(before.beds, 0, { x: 33, y: 20 }) }, /^Bed area 1, corner 2: 33 %, 20 %, not /],
    [{ exclusions: replaced(before.exclusions, 2, { on: true }) }, "Exclusion area 3: on, not off"],
    [{ floor: replaced(before.floor, 3, { x: 5, y: 6 }) }, /^Floor point yellow: 5, 6, not /],
    [{ depthM: "2" }, "Depth of the floor rectangle in metres: 2.00, not 1.20"],
  ];
  for (const [change, expected] of cases) {
    const found = wire.differences({ ...before, ...change }, before, LANDSCAPE);
    const words = found.map(({ what, wanted, found: held }) => `${what}: ${wanted}, not ${held}`).join();
    if (typeof expected === "string") assert.equal(words, expected);
    else assert.match(words, expected);
  }
});

import assert from "node:assert/strict";
import { describe, test } from "node:test";

import { figureAt, figureMovedTo, figureStepped, figureWords, floorTrouble } from "../../../web/setup/floor.js";
import { createHistory } from "../../../web/settings/history.js";
import { loupeSide, loupeSize, loupeSpan } from "../../../web/setup/loupe.js";
import { pointWords } from "../../../web/setup/stage.js";
import {
  FLOOR,
  TOOLS,
  isUndrawn,
  movePoint,
  placeFloorInMiddle,
  shiftArea,
  stepPoint,
  switchArea,
} from "../../../web/setup/tools.js";
import { floorProblem, floorWarning } from "../../../web/geometry/calibration.js";
import { areaProblem, contains, distanceToSegment, nearest } from "../../../web/geometry/plane.js";
import { percentToPixel, pixelToPercent, smallestPercent } from "../../../web/program/wire.js";

const LANDSCAPE = { width: 1280, height: 720 };
const PORTRAIT = { width: 720, height: 1280 };
const [BED_1, BED_2, BED_3] = TOOLS;

const points = (...pairs) => pairs.map(([x, y]) => ({ x, y }));
const area = (on, ...pairs) => ({ on, corners: points(...pairs) });
const drawn = (on) => area(on, [10, 20], [40, 20], [45, 60], [5, 60]);

/** Nothing in here can be changed: an edit that does not copy throws. */
function frozen(value) {
  if (typeof value === "object") Object.values(value ?? {}).forEach(frozen);
  return Object.freeze(value);
}

const settings = frozen({
  beds: [drawn(true), drawn(false), drawn(false)],
  exclusions: [drawn(false), drawn(false), drawn(false)],
  floor: points([573, 362], [868, 388], [898, 580], [516, 537]),
  widthM: "1.60",
  depthM: "1.20",
});

describe("history", () => {
  test("undoes and redoes step by step and forgets what was undone at the next edit", () => {
    const start = createHistory("a");
    assert.deepEqual(
      [start.canUndo, start.canRedo, start.undo().present, start.redo().present],
      [false, false, "a", "a"],
    );
    const edited = start.push("b").push("c");
    const back = edited.undo().undo();
    assert.deepEqual([back.present, back.canUndo, back.canRedo], ["a", false, true]);
    assert.equal(back.redo().present, "b");
    assert.equal(back.redo().redo().present, "c");
    const other = edited.undo().push("d");
    assert.deepEqual([other.present, other.canRedo, other.undo().present], ["d", false, "b"]);
    assert.equal(edited.present, "c", "a history itself never changes");
  });

  test("edits in a row with one label are one step; others are not", () => {
    const typed = createHistory("").push("1", "width").push("1.", "width").push("1.6", "width");
    assert.equal(typed.undo().present, "");
    assert.equal(typed.push("x", "depth").undo().present, "1.6");
    assert.equal(createHistory(0).push(1).push(2).undo().present, 1, "drags have no label");
    const afterUndo = typed.push("x").undo().push("2", "width");
    assert.equal(afterUndo.undo().present, "1.6", "a label from before an undo takes nothing in");
    assert.equal(typed.push("1.6", "other"), typed, "no change is no step");
  });
});

describe("moving points", () => {
  const moves = [
    ["a corner goes to the nearest whole percent", BED_1, 1, { x: 12.7 * 12.8, y: 0.4 * 7.2 }, { x: 13, y: 0 }],
    ["a corner stops at the picture's edges", BED_1, 1, { x: -50, y: 9999 }, { x: 0, y: 100 }],
    ["a floor point goes to the nearest pixel", FLOOR, 2, { x: 99.5, y: 10.4 }, { x: 100, y: 10 }],
    ["a floor point stays in the picture", FLOOR, 2, { x: 1280, y: -3 }, { x: 1279, y: 0 }],
  ];
  for (const [name, tool, index, to, expected] of moves) {
    test(name, () => {
      const moved = movePoint(settings, tool, index, to, LANDSCAPE);
      const [before, after] = [settings, moved].map((from) => (tool === FLOOR ? from.floor : from.beds[0].corners));
      assert.deepEqual(after[index], expected);
      const others = (list) => list.filter((_, at) => at !== index);
      assert.deepEqual(others(after), others(before), "the others stay");
      assert.equal(movePoint(moved, tool, index, to, LANDSCAPE), moved, "no change is no edit");
    });
  }

  test("a key's step goes on from everywhere, to the next percent that is read back as it was sent", () => {
    for (const size of [LANDSCAPE, PORTRAIT]) {
      for (let percent = 0; percent <= 94; percent++) {
        const at = { ...settings, beds: [area(true, [percent, percent], [0, 0], [1, 1], [2, 2])] };
        const { x, y } = stepPoint(at, BED_1, 0, 1, 5, size).beds[0].corners[0];
        const stored = percentToPixel(x, size.width);
        assert.equal(smallestPercent(pixelToPercent(stored, size.width), size.width), x);
        assert.ok([1, 2].includes(x - percent) && [5, 6].includes(y - percent), `${percent} to ${x}, ${y}`);
      }
    }
  });

  test("an area that is shifted against the edges keeps its shape", () => {
    const { corners } = shiftArea(settings, BED_1, { x: -9999, y: 9999 }, LANDSCAPE).beds[0];
    assert.deepEqual(corners, points([5, 60], [35, 60], [40, 100], [0, 100]));
    assert.deepEqual(shiftArea(settings, BED_1, { x: 25.6, y: -7.2 }, LANDSCAPE).beds[0].corners[0], { x: 12, y: 19 });
    const across = shiftArea(settings, BED_1, { x: 76.8, y: 0 }, LANDSCAPE).beds[0].corners.map((corner) => corner.x);
    assert.deepEqual(across, [15, 45, 50, 10], "16, 46, 51 and 11 would be read back as these");
    assert.equal(shiftArea(settings, BED_1, { x: 3, y: 3 }, LANDSCAPE), settings);
  });
});

describe("the figure", () => {
  const scene = frozen({ settings, figure: null });

  test("stands in the rectangle's middle, walks by keys, and its feet follow the pointer", () => {
    assert.match(figureWords(scene), /^0[.]8 .* 0[.]6 /);
    const walked = { ...scene, figure: figureStepped(scene, 1, -1, true) };
    assert.match(figureWords(walked), /^1[.]3 .* 0[.]1 /);
    const to = { x: 700, y: 520 };
    const { foot, head } = figureAt({ ...scene, figure: figureMovedTo(scene, to, LANDSCAPE) }, LANDSCAPE);
    assert.ok(Math.hypot(foot.x - to.x, foot.y - to.y) < 0.5);
    assert.ok(head.y < foot.y - 100);
  });

  test("stays near the rectangle, and away from where nobody can stand", () => {
    const { x } = figureMovedTo(scene, { x: 1279, y: 300 }, LANDSCAPE);
    assert.ok(x > 1.6 && x <= 6.6, `${x}`);
    const far = figureStepped({ ...scene, figure: { x: -5, y: 0 } }, -1, 0, true);
    assert.deepEqual(far, { x: -5, y: 0 });
  });

  test("is not there, and the reason is, when the floor cannot be calibrated", () => {
    assert.deepEqual(floorTrouble(settings, LANDSCAPE), { refused: [], warned: [] });
    for (const change of [{ widthM: "0" }, { depthM: "-1" }, { widthM: "two" }, { depthM: "" }]) {
      const wrong = { ...settings, ...change };
      assert.equal(floorTrouble(wrong, LANDSCAPE).refused.length, 1, JSON.stringify(change));
      assert.equal(figureAt({ settings: wrong, figure: null }, LANDSCAPE), null);
    }
  });
});

test("places are told as the viewer sees them", () => {
  const corner = (mirrored) => pointWords(settings, BED_1, 1, LANDSCAPE, mirrored);
  assert.deepEqual(
    [corner(false), corner(true)].map((words) => words.match(/[0-9]+/g)),
    [
      ["40", "20"],
      ["60", "20"],
    ],
  );
  assert.match(pointWords(settings, FLOOR, 0, LANDSCAPE, true), /^706 pixels across, 362 /);
});

describe("switching areas on", () => {
  const packaged = { 1280: [13, 23, 38, 67], 720: [23, 13, 67, 38] };
  for (const size of [LANDSCAPE, PORTRAIT]) {
    test(`what nobody has drawn begins as rectangles in the middle, ${size.width} wide`, () => {
      const [left, top, right, bottom] = packaged[size.width];
      const first = area(false, [left, top], [right, top], [right, bottom], [left, bottom]);
      const empty = area(false, [0, 0], [0, 0], [0, 0], [0, 0]);
      let next = frozen({ ...settings, beds: [first, empty, area(false, [9, 9], [70, 9], [70, 10], [9, 10])] });
      assert.ok(next.beds.every((bed) => isUndrawn(bed, size)));
      for (const tool of [BED_1, BED_2, BED_3]) next = switchArea(next, tool, true, size);
      for (const bed of next.beds) {
        assert.ok(bed.on && contains(bed.corners, { x: 50, y: 50 }));
        assert.equal(areaProblem(bed, size), null);
      }
      assert.equal(new Set(next.beds.map((bed) => bed.corners[0].x)).size, 3, "none hides another");
      assert.deepEqual(switchArea({ beds: [first] }, BED_1, false, size).beds[0].corners, first.corners);
    });
  }

  test("what somebody has drawn stays as it is", () => {
    const on = switchArea(settings, BED_2, true, LANDSCAPE);
    assert.deepEqual(on.beds[1], { on: true, corners: settings.beds[1].corners });
    assert.deepEqual(switchArea(on, BED_2, false, LANDSCAPE), settings);
    assert.ok(!isUndrawn(area(false, [13, 23], [38, 23], [38, 67], [10, 67]), LANDSCAPE), "one corner has been moved");
  });

  test("floor points put in the middle can be calibrated", () => {
    for (const size of [LANDSCAPE, PORTRAIT]) {
      const { floor } = placeFloorInMiddle(settings, size);
      assert.equal(floorProblem(floor, 1.5, 1.5), null);
      assert.doesNotMatch(floorWarning(floor, 1.5, 1.5, size) ?? "", /cross|clockwise|outside|line/);
    }
  });
});

test("a pointer takes the nearest handle within its reach", () => {
  const handles = points([0, 0], [10, 0], [100, 0]);
  const cases = [
    [{ x: 6, y: 0 }, 1],
    [{ x: 4, y: 3 }, 0],
    [{ x: 10, y: 20 }, 1],
    [{ x: 10, y: 20.1 }, -1],
  ];
  for (const [at, expected] of cases) assert.equal(nearest(handles, at, 20), expected, JSON.stringify(at));
});

test("inside and beside", () => {
  const arrow = points([0, 0], [10, 5], [0, 10], [5, 5]);
  assert.ok(contains(arrow, { x: 7, y: 5 }));
  assert.ok(!contains(arrow, { x: 2, y: 5 }), "in the notch");
  assert.ok(!contains(arrow, { x: 11, y: 5 }));
  const [a, b] = points([0, 0], [0, 10]);
  assert.deepEqual(
    [
      [3, 5],
      [3, -4],
      [0, 12],
    ].map(([x, y]) => distanceToSegment({ x, y }, a, b)),
    [3, 5, 2],
  );
  assert.equal(distanceToSegment({ x: 3, y: 4 }, a, a), 5);
});

test("the loupe leaves a finger's width around the point free and magnifies at least four times", () => {
  for (const width of [288, 328, 600, 1400]) {
    const side = loupeSize(width);
    for (let x = 0; x <= width; x++) {
      const left = loupeSide({ x, y: 0 }, width) === "left" ? 8 : width - 8 - side;
      assert.ok(x + 22 < left || x - 22 > left + side, `${x} of ${width}`);
    }
    for (const unit of [0.5, 1, 1280 / width, 4]) assert.ok(loupeSpan(side, unit) * 4 <= side * unit + 1e-9);
    assert.ok(loupeSpan(side, 4) * 4 <= side, "each of the stream's pixels can be told from the next");
  }
});
